#include "Scenario.h"

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

namespace oxa_sim {

namespace {

using Json = nlohmann::json;

int hexDigit(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  if (c >= 'A' && c <= 'F') {
    return c - 'A' + 10;
  }
  throw std::runtime_error(std::string("invalid hex digit '") + c + "'");
}

Bytes fromHex(const std::string &text) {
  if (text.size() % 2 != 0) {
    throw std::runtime_error("hex data \"" + text + "\" has an odd number of digits");
  }
  Bytes bytes;
  for (size_t i = 0; i < text.size(); i += 2) {
    bytes.push_back(static_cast<unsigned char>(hexDigit(text[i]) * 16 + hexDigit(text[i + 1])));
  }
  return bytes;
}

// Data is written either as "text" (its UTF-8 bytes) or as "hex" digits.
Bytes dataOf(const Json &object) {
  if (object.contains("text")) {
    const std::string text = object.at("text").get<std::string>();
    return {text.begin(), text.end()};
  }
  if (object.contains("hex")) {
    return fromHex(object.at("hex").get<std::string>());
  }
  return {};
}

SimDevice deviceFrom(const Json &object) {
  SimDevice device;
  device.record.address = object.at("address").get<std::string>();
  device.record.type = object.value("type", 99);
  device.record.name = object.value("name", "");
  device.present = object.value("present", true);
  device.echo = object.value("echo", false);
  if (object.contains("adv_data")) {
    device.advData = dataOf(object.at("adv_data"));
  }
  for (const Json &context : object.value("contexts", Json::array())) {
    const ContextKey key{context.at("service").get<int>(), context.at("context").get<int>()};
    device.contexts[key] = dataOf(context);
  }
  return device;
}

TimelineAction actionFrom(const std::string &name) {
  static const std::pair<const char *, TimelineAction> actions[] = {
      {"appear", TimelineAction::Appear},   {"disappear", TimelineAction::Disappear},
      {"context", TimelineAction::Context}, {"command", TimelineAction::Command},
      {"message", TimelineAction::Message},
  };
  for (const auto &[text, action] : actions) {
    if (name == text) {
      return action;
    }
  }
  throw std::runtime_error("unknown timeline action \"" + name + "\"");
}

TimelineEntry entryFrom(const Json &object) {
  TimelineEntry entry;
  entry.atMs = object.at("at_ms").get<int>();
  entry.action = actionFrom(object.at("action").get<std::string>());
  entry.address = object.at("address").get<std::string>();
  entry.serviceType = object.value("service", 0);
  entry.contextType = object.value("context", 0);
  entry.commandId = object.value("id", 0);
  entry.commandType = object.value("type", 0);
  entry.data = dataOf(object);
  return entry;
}

void checkAddresses(const Scenario &scenario) {
  for (const TimelineEntry &entry : scenario.timeline) {
    bool known = false;
    for (const SimDevice &device : scenario.devices) {
      known = known || device.record.address == entry.address;
    }
    if (!known) {
      throw std::runtime_error("timeline names unknown device " + entry.address);
    }
  }
}

}  // namespace

Scenario parseScenario(const std::string &json) {
  try {
    const Json document = Json::parse(json);
    Scenario scenario;
    for (const Json &device : document.value("devices", Json::array())) {
      scenario.devices.push_back(deviceFrom(device));
    }
    for (const Json &entry : document.value("timeline", Json::array())) {
      scenario.timeline.push_back(entryFrom(entry));
    }
    checkAddresses(scenario);
    return scenario;
  } catch (const Json::exception &error) {
    throw std::runtime_error(std::string("bad scenario: ") + error.what());
  }
}

Scenario loadScenario(const std::string &path) {
  std::ifstream file(path);
  if (!file) {
    throw std::runtime_error("cannot read scenario file " + path);
  }
  std::ostringstream text;
  text << file.rdbuf();
  return parseScenario(text.str());
}

}  // namespace oxa_sim
