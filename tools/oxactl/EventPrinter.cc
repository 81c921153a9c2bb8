#include "EventPrinter.h"

#include <string>

#include "DeviceInfo.h"

namespace oxactl {

namespace {

CommandInfo describeCommand(oxa_command_h command) {
  CommandInfo info;
  char *address = nullptr;
  oxa_command_type_e type = OXA_COMMAND_TYPE_1;
  unsigned char *payload = nullptr;
  int length = 0;
  check("oxa_command_get_address", oxa_command_get_address(command, &address));
  info.address = takeString(address);
  check("oxa_command_get_type", oxa_command_get_type(command, &type));
  info.type = type;
  check("oxa_command_get_id", oxa_command_get_id(command, &info.id));
  check("oxa_command_get_payload", oxa_command_get_payload(command, &payload, &length));
  info.payload = takeBuffer(payload, length);
  return info;
}

}  // namespace

void EventPrinter::subscribeDevices() {
  const oxa_service_h service = session_.service();
  subscriptions_.emplace_back("oxa_set_device_found_cb", &oxa_set_device_found_cb,
                              &oxa_unset_device_found_cb, service, &EventPrinter::onFound, this);
  subscriptions_.emplace_back("oxa_set_device_lost_cb", &oxa_set_device_lost_cb,
                              &oxa_unset_device_lost_cb, service, &EventPrinter::onLost, this);
  subscriptions_.emplace_back("oxa_set_context_changed_cb", &oxa_set_context_changed_cb,
                              &oxa_unset_context_changed_cb, service,
                              &EventPrinter::onContextChanged, this);
}

void EventPrinter::subscribeState() {
  subscriptions_.emplace_back("oxa_service_set_state_changed_cb", &oxa_service_set_state_changed_cb,
                              &oxa_service_unset_state_changed_cb, session_.service(),
                              &EventPrinter::onState, this);
}

void EventPrinter::subscribeReceived() {
  const oxa_service_h service = session_.service();
  subscriptions_.emplace_back("oxa_set_command_received_cb", &oxa_set_command_received_cb,
                              &oxa_unset_command_received_cb, service, &EventPrinter::onCommand,
                              this);
  subscriptions_.emplace_back(
      "oxa_set_simple_message_received_cb", &oxa_set_simple_message_received_cb,
      &oxa_unset_simple_message_received_cb, service, &EventPrinter::onMessage, this);
}

void EventPrinter::rethrow() const {
  if (error_) {
    std::rethrow_exception(error_);
  }
}

template <typename Print>
void EventPrinter::guard(Print print) {
  if (error_) {
    return;
  }
  try {
    print();
  } catch (const Failure &) {
    error_ = std::current_exception();
    session_.loop().stop();
  }
}

void EventPrinter::onFound(oxa_device_h device, void *self) {
  auto *events = static_cast<EventPrinter *>(self);
  events->guard([&] {
    DeviceInfo info = describeDevice(device);
    readAdvData(device, info);
    events->printer_.deviceEvent("found", info);
  });
}

void EventPrinter::onLost(oxa_device_h device, void *self) {
  auto *events = static_cast<EventPrinter *>(self);
  // A lost device is gone: there is no advertised data to ask for.
  events->guard([&] { events->printer_.deviceEvent("lost", describeDevice(device)); });
}

void EventPrinter::onContextChanged(oxa_device_h device, void *self) {
  auto *events = static_cast<EventPrinter *>(self);
  // Which context changed is not told; `info --context` reads it.
  events->guard([&] { events->printer_.deviceEvent("context_changed", describeDevice(device)); });
}

void EventPrinter::onState(oxa_service_h /*service*/, int state, void *self) {
  auto *events = static_cast<EventPrinter *>(self);
  events->guard([&] { events->printer_.state(state); });
}

void EventPrinter::onCommand(oxa_command_h command, void *self) {
  auto *events = static_cast<EventPrinter *>(self);
  events->guard([&] { events->printer_.command(describeCommand(command)); });
}

void EventPrinter::onMessage(const char *address, const unsigned char *data, int length,
                             void *self) {
  auto *events = static_cast<EventPrinter *>(self);
  events->guard([&] { events->printer_.message(address, Bytes(data, data + length)); });
}

}  // namespace oxactl
