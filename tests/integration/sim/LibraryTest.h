#ifndef OXA_TESTS_INTEGRATION_LIBRARY_TEST_H_
#define OXA_TESTS_INTEGRATION_LIBRARY_TEST_H_

#include <oxa.h>

#include <cstdlib>
#include <memory>
#include <type_traits>

#include "LibraryEvents.h"
#include "SimTest.h"

namespace oxa::test {

struct ServiceDeleter {
  void operator()(oxa_service_h service) const { oxa_service_destroy(service); }
};
using Service = std::unique_ptr<std::remove_pointer_t<oxa_service_h>, ServiceDeleter>;

struct DeviceDeleter {
  void operator()(oxa_device_h device) const { oxa_device_destroy(device); }
};
using Device = std::unique_ptr<std::remove_pointer_t<oxa_device_h>, DeviceDeleter>;

struct CommandDeleter {
  void operator()(oxa_command_h command) const { oxa_command_destroy(command); }
};
using Command = std::unique_ptr<std::remove_pointer_t<oxa_command_h>, CommandDeleter>;

struct MessageDeleter {
  void operator()(oxa_simple_message_h message) const { oxa_simple_message_destroy(message); }
};
using Message = std::unique_ptr<std::remove_pointer_t<oxa_simple_message_h>, MessageDeleter>;

// The library in this process against a simulated agent in a child process.
class LibraryTest : public SimTest {
 protected:
  static constexpr char kAppId[] = "org.example.e2e";

  LibraryTest() { setenv("RPC_PORT_APPID", kAppId, 1); }

  // oxa_initialize, then waits for its callback, which must report success.
  void initialize() {
    const size_t before = events.initialized.size();
    ASSERT_EQ(oxa_initialize(&Events::onInitialized, &events), OXA_ERROR_NONE);
    ASSERT_TRUE(runUntil([&] { return events.initialized.size() > before; }));
    ASSERT_EQ(events.initialized.back(), OXA_ERROR_NONE);
  }

  static Service createService(oxa_service_type_e type) {
    oxa_service_h service = nullptr;
    EXPECT_EQ(oxa_service_create(type, &service), OXA_ERROR_NONE);
    return Service(service);
  }

  static Command createCommand(const char *address, int type, int id, const Bytes &payload) {
    oxa_command_h command = nullptr;
    EXPECT_EQ(oxa_command_create(address, type, id, payload.data(),
                                 static_cast<int>(payload.size()), &command),
              OXA_ERROR_NONE);
    return Command(command);
  }

  static Message createMessage(const char *address, const Bytes &data) {
    oxa_simple_message_h message = nullptr;
    EXPECT_EQ(
        oxa_simple_message_create(address, data.data(), static_cast<int>(data.size()), &message),
        OXA_ERROR_NONE);
    return Message(message);
  }

  template <typename T>
  bool waitForCount(const std::vector<T> &seen, size_t count) {
    return runUntil([&] { return seen.size() >= count; });
  }

  Events events;
};

}  // namespace oxa::test

#endif  // OXA_TESTS_INTEGRATION_LIBRARY_TEST_H_
