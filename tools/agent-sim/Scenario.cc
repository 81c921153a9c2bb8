#include "Scenario.h"

#include <fstream>
#include <set>
#include <stdexcept>

#include "Limits.h"
#include "ScenarioJson.h"

namespace oxa_sim {

namespace {

// The type of a device whose type the scenario leaves out: "unknown".
constexpr int kUnknownDeviceType = 99;

TimelineAction actionNamed(const std::string &name) {
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

TimelineEntry timedEntryFrom(const Json &object) {
  TimelineEntry entry = actionFromJson(object);
  entry.atMs = requireInt(object, "at_ms");
  if (entry.atMs < 0) {
    throw std::runtime_error("field \"at_ms\" must not be negative");
  }
  return entry;
}

const Json &arrayOf(const Json &document, const char *key) {
  static const Json kEmpty = Json::array();
  const auto it = document.find(key);
  if (it == document.end()) {
    return kEmpty;
  }
  if (!it->is_array()) {
    throw std::runtime_error(std::string("\"") + key + "\" must be an array");
  }
  return *it;
}

void checkAddresses(const Scenario &scenario) {
  std::set<std::string> addresses;
  for (const SimDevice &device : scenario.devices) {
    addresses.insert(device.record.address);
  }
  for (const TimelineEntry &entry : scenario.timeline) {
    if (addresses.count(entry.address) == 0) {
      throw std::runtime_error("timeline names unknown device " + entry.address);
    }
  }
}

}  // namespace

SimDevice deviceFromJson(const Json &object) {
  if (!object.is_object()) {
    throw std::runtime_error("a device must be a JSON object");
  }
  SimDevice device;
  device.record.address = requireString(object, "address");
  device.record.type = optionalInt(object, "type", kUnknownDeviceType);
  device.record.name = optionalString(object, "name", "");
  device.present = optionalBool(object, "present", true);
  device.echo = optionalBool(object, "echo", false);
  if (object.contains("adv_data")) {
    device.advData = dataOf(object.at("adv_data"));
  }
  for (const Json &context : arrayOf(object, "contexts")) {
    const ContextKey key{requireInt(context, "service"), requireInt(context, "context")};
    device.contexts[key] = dataOf(context);
  }
  return device;
}

TimelineEntry actionFromJson(const Json &object) {
  if (!object.is_object()) {
    throw std::runtime_error("an action must be a JSON object");
  }
  TimelineEntry entry;
  entry.action = actionNamed(requireString(object, "action"));
  entry.address = requireString(object, "address");
  switch (entry.action) {
    case TimelineAction::Appear:
    case TimelineAction::Disappear:
      break;
    case TimelineAction::Context:
      entry.serviceType = requireInt(object, "service");
      entry.contextType = requireInt(object, "context");
      entry.data = dataOf(object);
      break;
    case TimelineAction::Command:
      entry.serviceType = requireInt(object, "service");
      entry.commandId = requireInt(object, "id");
      entry.commandType = requireInt(object, "type");
      entry.data = dataOf(object);
      break;
    case TimelineAction::Message:
      entry.serviceType = requireInt(object, "service");
      entry.data = dataOf(object);
      break;
  }
  return entry;
}

Scenario parseScenario(const std::string &json) {
  try {
    const Json document = Json::parse(json);
    if (!document.is_object()) {
      throw std::runtime_error("a scenario must be a JSON object");
    }
    Scenario scenario;
    for (const Json &device : arrayOf(document, "devices")) {
      scenario.devices.push_back(deviceFromJson(device));
    }
    for (const Json &entry : arrayOf(document, "timeline")) {
      scenario.timeline.push_back(timedEntryFrom(entry));
    }
    checkAddresses(scenario);
    return scenario;
  } catch (const Json::exception &error) {
    throw std::runtime_error(std::string("bad scenario: ") + error.what());
  }
}

Scenario loadScenario(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw std::runtime_error("cannot read scenario file " + path);
  }
  std::string text(kMaxScenarioBytes + 1, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (file.bad()) {
    throw std::runtime_error("cannot read scenario file " + path);
  }
  if (static_cast<size_t>(file.gcount()) > kMaxScenarioBytes) {
    throw std::runtime_error("scenario file " + path + " is larger than " +
                             std::to_string(kMaxScenarioBytes) + " bytes");
  }
  text.resize(static_cast<size_t>(file.gcount()));
  return parseScenario(text);
}

}  // namespace oxa_sim
