#include "LibrarySession.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "InMemoryPlatform.h"

namespace fuzz {
namespace {

constexpr char kAddress[] = "A0:00:00:00:00:01";

// A plain reply: command id 0, result 0.
void queueOkReply() {
  const uint8_t reply[8] = {0, 0, 0, 0, 0, 0, 0, 0};
  queueReply(reply, sizeof reply);
}

// GetMyDevice's reply: command id 0, device record (address, type 1, name "me"), result 0.
void queueMyDeviceReply() {
  Body body(4, 0);
  auto int32 = [&body](int32_t value) {
    uint8_t bytes[4];
    std::memcpy(bytes, &value, sizeof bytes);
    body.insert(body.end(), bytes, bytes + sizeof bytes);
  };
  auto string = [&](const char *text) {
    int32(static_cast<int32_t>(std::strlen(text) + 1));
    body.insert(body.end(), text, text + std::strlen(text) + 1);
  };
  string(kAddress);
  int32(1);
  string("me");
  int32(0);
  queueReply(body.data(), body.size());
}

void onInitialized(oxa_error_e /*result*/, void * /*data*/) {}
void onRegistered(oxa_service_h /*service*/, oxa_error_e /*result*/, void * /*data*/) {}
void onState(oxa_service_h /*service*/, int /*state*/, void * /*data*/) {}
void onDevice(oxa_device_h device, void * /*data*/) {
  readDevice(device);
}
void onCommand(oxa_command_h command, void * /*data*/) {
  readCommand(command);
}
void onMessage(const char *address, const unsigned char *data, int length, void * /*data*/) {
  volatile size_t sum = std::strlen(address);
  for (int at = 0; at < length; ++at) {
    sum = sum + data[at];
  }
}
void onCommandSent(oxa_command_h command, oxa_error_e /*result*/, void * /*data*/) {
  if (command != nullptr) {
    readCommand(command);
  }
}
void onMessageSent(oxa_simple_message_h /*message*/, oxa_error_e /*result*/, void * /*data*/) {}

void initialize() {
  oxa_initialize(onInitialized, nullptr);
  fireConnected();
}

void registerEveryDelegate(LibrarySession &session) {
  oxa_service_register(session.service, onRegistered, nullptr);
  queueOkReply();
  oxa_service_set_state_changed_cb(session.service, onState, nullptr);
  queueOkReply();
  oxa_set_command_received_cb(session.service, onCommand, nullptr);
  queueOkReply();
  oxa_set_simple_message_received_cb(session.service, onMessage, nullptr);
  queueOkReply();
  oxa_set_device_found_cb(session.service, onDevice, nullptr);
  queueOkReply();
  oxa_set_device_lost_cb(session.service, onDevice, nullptr);
  queueOkReply();
  oxa_set_context_changed_cb(session.service, onDevice, nullptr);
  queueOkReply();
  oxa_send_command(session.service, session.command, onCommandSent, nullptr);
  queueOkReply();
  oxa_send_simple_message(session.service, session.message, onMessageSent, nullptr);
}

LibrarySession makeSession() {
  LibrarySession session;
  initialize();
  oxa_service_create(OXA_SERVICE_TYPE_1, &session.service);
  const unsigned char payload[] = {1, 2, 3};
  oxa_command_create(kAddress, OXA_COMMAND_TYPE_1, 1, payload, sizeof payload, &session.command);
  oxa_simple_message_create(kAddress, payload, sizeof payload, &session.message);
  registerEveryDelegate(session);
  queueMyDeviceReply();
  oxa_get_my_device(session.service, kAddress, &session.device);
  clearQueues();
  return session;
}

}  // namespace

LibrarySession &connectLibrary() {
  static LibrarySession session = makeSession();
  return session;
}

void reconnectLibrary() {
  fireDisconnected();
  initialize();
  clearQueues();
}

void readDevice(oxa_device_h device) {
  char *text = nullptr;
  if (oxa_device_get_name(device, &text) == OXA_ERROR_NONE) {
    std::free(text);
  }
  if (oxa_device_get_address(device, &text) == OXA_ERROR_NONE) {
    std::free(text);
  }
  oxa_device_type_e type = OXA_DEVICE_TYPE_UNKNOWN;
  oxa_device_get_type(device, &type);
}

void readCommand(oxa_command_h command) {
  char *address = nullptr;
  if (oxa_command_get_address(command, &address) == OXA_ERROR_NONE) {
    std::free(address);
  }
  unsigned char *payload = nullptr;
  int length = 0;
  if (oxa_command_get_payload(command, &payload, &length) == OXA_ERROR_NONE) {
    std::free(payload);
  }
  int id = 0;
  oxa_command_get_id(command, &id);
  oxa_command_type_e type = OXA_COMMAND_TYPE_1;
  oxa_command_get_type(command, &type);
}

}  // namespace fuzz
