#include "Controller.h"

#include <stdexcept>

#include "ScenarioJson.h"

namespace oxa_sim {

namespace {

constexpr char kOk[] = R"({"ok": true})";
constexpr char kTimelineActions[] = "appear, disappear, context, command, message";

std::string refusal(const std::string &reason) {
  // Reasons may quote the line's own text; bytes that are not UTF-8 are replaced, not fatal.
  return R"({"ok": false, "error": )" +
         Json(reason).dump(-1, ' ', false, Json::error_handler_t::replace) + "}";
}

Json parseLine(const std::string &line) {
  try {
    Json action = Json::parse(line);
    if (!action.is_object()) {
      throw std::runtime_error("a control line must be a JSON object");
    }
    return action;
  } catch (const Json::parse_error &error) {
    throw std::runtime_error(std::string("invalid JSON: ") + error.what());
  }
}

bool isTimelineAction(const std::string &name) {
  return name == "appear" || name == "disappear" || name == "context" || name == "command" ||
         name == "message";
}

}  // namespace

Controller::Controller(Agent &agent, Deliver deliver)
    : agent_(agent), deliver_(std::move(deliver)) {}

std::string Controller::handle(const std::string &line) {
  try {
    deliver_(apply(line));
    return kOk;
  } catch (const std::runtime_error &error) {
    return refusal(error.what());
  } catch (const Json::exception &error) {
    return refusal(error.what());
  }
}

std::vector<Outgoing> Controller::apply(const std::string &line) {
  const Json action = parseLine(line);
  const std::string name = requireString(action, "action");
  if (name == "add") {
    const auto device = action.find("device");
    if (device == action.end()) {
      throw std::runtime_error("field \"device\" is missing");
    }
    SimDevice added = deviceFromJson(*device);
    if (agent_.hasDevice(added.record.address)) {
      throw std::runtime_error("device " + added.record.address + " already exists");
    }
    return agent_.addDevice(std::move(added));
  }
  if (name != "remove" && !isTimelineAction(name)) {
    throw std::runtime_error("unknown action \"" + name + "\" (expected add, remove, " +
                             kTimelineActions + ")");
  }
  // A timeline entry pasted as is keeps its at_ms; actions take effect at once.
  optionalInt(action, "at_ms", 0);
  if (name == "remove") {
    const std::string address = requireString(action, "address");
    checkSimulated(address);
    return agent_.removeDevice(address);
  }
  const TimelineEntry entry = actionFromJson(action);
  checkSimulated(entry.address);
  return agent_.play(entry);
}

// Connected clients are devices too, but their device lives and dies with their connection.
void Controller::checkSimulated(const std::string &address) {
  if (!agent_.hasSimulatedDevice(address)) {
    throw std::runtime_error(agent_.hasDevice(address)
                                 ? address + " is a connected client, not a simulated device"
                                 : "unknown device " + address);
  }
}

}  // namespace oxa_sim
