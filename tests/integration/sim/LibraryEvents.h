#ifndef OXA_TESTS_INTEGRATION_LIBRARY_EVENTS_H_
#define OXA_TESTS_INTEGRATION_LIBRARY_EVENTS_H_

#include <oxa.h>

#include <string>
#include <vector>

namespace oxa::test {

using Bytes = std::vector<unsigned char>;

// A device as the application reads it through the public getters.
struct DeviceSeen {
  std::string address;
  std::string name;
  int type = 0;
  bool operator==(const DeviceSeen &other) const {
    return address == other.address && name == other.name && type == other.type;
  }
};

struct CommandSeen {
  std::string address;
  int type = 0;
  int id = 0;
  Bytes payload;
  bool operator==(const CommandSeen &other) const {
    return address == other.address && type == other.type && id == other.id &&
           payload == other.payload;
  }
};

struct MessageSeen {
  std::string address;
  Bytes data;
  bool operator==(const MessageSeen &other) const {
    return address == other.address && data == other.data;
  }
};

template <typename Handle>
struct Outcome {
  Handle handle = nullptr;
  int result = 0;
};

DeviceSeen readDevice(oxa_device_h device);
CommandSeen readCommand(oxa_command_h command);

// Everything the library reported to the application, in arrival order. Its callbacks take a
// pointer to the Events object as user data.
struct Events {
  std::vector<int> initialized;
  std::vector<Outcome<oxa_service_h>> registered;
  std::vector<int> states;
  std::vector<DeviceSeen> found;
  std::vector<DeviceSeen> lost;
  std::vector<DeviceSeen> contextChanged;
  std::vector<Outcome<oxa_command_h>> commandsSent;
  std::vector<CommandSeen> commandsReceived;
  std::vector<Outcome<oxa_simple_message_h>> messagesSent;
  std::vector<MessageSeen> messagesReceived;

  static void onInitialized(oxa_error_e result, void *events);
  static void onRegistered(oxa_service_h service, oxa_error_e result, void *events);
  static void onStateChanged(oxa_service_h service, int state, void *events);
  static void onFound(oxa_device_h device, void *events);
  static void onLost(oxa_device_h device, void *events);
  static void onContextChanged(oxa_device_h device, void *events);
  static void onCommandSent(oxa_command_h command, oxa_error_e result, void *events);
  static void onCommandReceived(oxa_command_h command, void *events);
  static void onMessageSent(oxa_simple_message_h message, oxa_error_e result, void *events);
  static void onMessageReceived(const char *address, const unsigned char *data, int length,
                                void *events);
};

}  // namespace oxa::test

#endif  // OXA_TESTS_INTEGRATION_LIBRARY_EVENTS_H_
