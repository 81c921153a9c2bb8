// The same through <oxa.hpp>, and every kind of callback the C++ interface takes, so that the
// whole header is instantiated under the consumer's warnings.
#include <cstdlib>
#include <iostream>
#include <oxa.hpp>
#include <string>

namespace {

[[maybe_unused]] oxa::Result<void> subscribeToEverything(oxa::Service &service) {
  int events = 0;
  oxa::Result<void> result = service.on_device_found(
      [&](const oxa::DeviceView &d) { events += static_cast<int>(d.name().value().size()); });
  if (result) result = service.on_device_lost([&](const oxa::DeviceView &) { ++events; });
  if (result) result = service.on_context_changed([&](const oxa::DeviceView &) { ++events; });
  if (result) result = service.on_command_received([&](const oxa::CommandView &) { ++events; });
  if (result) {
    result = service.on_simple_message_received([&](std::string_view, oxa::ByteView) { ++events; });
  }
  if (result) result = service.on_state_changed([&](int state) { events += state; });
  if (result) result = service.register_service([&](std::error_code) { ++events; });
  if (result) {
    result = service.send(oxa::Command::create("02:00:00:00:00:01", OXA_COMMAND_TYPE_1, 1).value(),
                          [](const oxa::Command &, std::error_code) {});
  }
  if (result) {
    result = service.for_each_found_device([](const oxa::DeviceView &) { return true; });
  }
  return result;
}

}  // namespace

int main() {
  const oxa::Command command =
      oxa::Command::create("02:00:00:00:00:01", OXA_COMMAND_TYPE_2, 7, oxa::Bytes{1, 2, 3}).value();
  const oxa::Bytes payload = command.payload().value();
  std::cout << "command to " << command.address().value() << ": " << payload.size()
            << " bytes, last " << static_cast<int>(payload.back()) << "\n";
  const oxa::Result<oxa::Command> refused = oxa::Command::create("short", OXA_COMMAND_TYPE_1, 1);
  std::cout << "refused: " << refused.error().value() << " " << refused.error().message() << "\n";
  return EXIT_SUCCESS;
}
