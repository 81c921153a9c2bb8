// The library connected through the in-memory platform, with one service of each type and every
// kind of delegate registered (in the order of FuzzDelegates.h), for the library fuzz targets.
#ifndef OXA_TESTS_FUZZ_LIBRARY_SESSION_H_
#define OXA_TESTS_FUZZ_LIBRARY_SESSION_H_

#include <oxa.h>

namespace fuzz {

struct LibrarySession {
  oxa_service_h service = nullptr;
  oxa_device_h device = nullptr;
  oxa_command_h command = nullptr;
  oxa_simple_message_h message = nullptr;
};

// Connects (again) and registers the delegates; the session lives until the process ends.
LibrarySession &connectLibrary();
// Drops the connection, which frees every delegate, and connects again without registering any.
void reconnectLibrary();

// The application's callbacks: each reads what it is given through the public getters.
void readDevice(oxa_device_h device);
void readCommand(oxa_command_h command);

}  // namespace fuzz

#endif  // OXA_TESTS_FUZZ_LIBRARY_SESSION_H_
