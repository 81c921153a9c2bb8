#include "LibraryEvents.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace oxa::test {

namespace {

Events &of(void *events) {
  return *static_cast<Events *>(events);
}

std::string takeString(char *text) {
  std::string value = text != nullptr ? text : "";
  std::free(text);
  return value;
}

}  // namespace

DeviceSeen readDevice(oxa_device_h device) {
  DeviceSeen seen;
  char *text = nullptr;
  EXPECT_EQ(oxa_device_get_address(device, &text), OXA_ERROR_NONE);
  seen.address = takeString(text);
  text = nullptr;
  EXPECT_EQ(oxa_device_get_name(device, &text), OXA_ERROR_NONE);
  seen.name = takeString(text);
  oxa_device_type_e type = OXA_DEVICE_TYPE_UNKNOWN;
  EXPECT_EQ(oxa_device_get_type(device, &type), OXA_ERROR_NONE);
  seen.type = type;
  return seen;
}

CommandSeen readCommand(oxa_command_h command) {
  CommandSeen seen;
  char *address = nullptr;
  EXPECT_EQ(oxa_command_get_address(command, &address), OXA_ERROR_NONE);
  seen.address = takeString(address);
  oxa_command_type_e type = OXA_COMMAND_TYPE_1;
  EXPECT_EQ(oxa_command_get_type(command, &type), OXA_ERROR_NONE);
  seen.type = type;
  EXPECT_EQ(oxa_command_get_id(command, &seen.id), OXA_ERROR_NONE);
  unsigned char *payload = nullptr;
  int length = 0;
  EXPECT_EQ(oxa_command_get_payload(command, &payload, &length), OXA_ERROR_NONE);
  seen.payload.assign(payload, payload + length);
  std::free(payload);
  return seen;
}

void Events::onInitialized(oxa_error_e result, void *events) {
  of(events).initialized.push_back(result);
}

void Events::onRegistered(oxa_service_h service, oxa_error_e result, void *events) {
  of(events).registered.push_back({service, result});
}

void Events::onStateChanged(oxa_service_h /*service*/, int state, void *events) {
  of(events).states.push_back(state);
}

void Events::onFound(oxa_device_h device, void *events) {
  of(events).found.push_back(readDevice(device));
}

void Events::onLost(oxa_device_h device, void *events) {
  of(events).lost.push_back(readDevice(device));
}

void Events::onContextChanged(oxa_device_h device, void *events) {
  of(events).contextChanged.push_back(readDevice(device));
}

void Events::onCommandSent(oxa_command_h command, oxa_error_e result, void *events) {
  of(events).commandsSent.push_back({command, result});
}

void Events::onCommandReceived(oxa_command_h command, void *events) {
  of(events).commandsReceived.push_back(readCommand(command));
}

void Events::onMessageSent(oxa_simple_message_h message, oxa_error_e result, void *events) {
  of(events).messagesSent.push_back({message, result});
}

void Events::onMessageReceived(const char *address, const unsigned char *data, int length,
                               void *events) {
  of(events).messagesReceived.push_back({address, Bytes(data, data + length)});
}

}  // namespace oxa::test
