#include "Printer.h"

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "ErrorNames.h"

namespace oxactl {

namespace {

using Json = nlohmann::ordered_json;

// Widths of the event column and, in events, of the name column.
constexpr int kEventWidth = 15;
constexpr int kEventNameWidth = 16;
constexpr int kTypeWidth = 2;
constexpr char kGap[] = "  ";

void emit(const std::string &line) {
  std::cout << line << std::endl;
}

// Names come from the agent and need not be UTF-8: such bytes become U+FFFD, not an exception.
void emit(const Json &object) {
  emit(object.dump(-1, ' ', false, Json::error_handler_t::replace));
}

std::string hexOrDash(const Bytes &bytes) {
  return bytes.empty() ? "-" : toHex(bytes);
}

std::string contextText(const ContextReading &reading) {
  return std::to_string(reading.service) + ":" + std::to_string(reading.context) + "=" +
         (reading.result == OXA_ERROR_NONE ? hexOrDash(reading.data) : errorName(reading.result));
}

// ADDRESS  TYPE  NAME  ADVERTISED [S:C=DATA]...
std::string deviceText(const DeviceInfo &device, size_t nameWidth) {
  std::ostringstream line;
  line << device.address << kGap << std::setw(kTypeWidth) << device.type << kGap << std::left
       << std::setw(static_cast<int>(nameWidth)) << device.name << kGap
       << (device.advData ? hexOrDash(*device.advData) : "-");
  for (const ContextReading &reading : device.contexts) {
    line << kGap << contextText(reading);
  }
  return line.str();
}

Json outcomeJson(int result) {
  return {{"result", result}, {"error", errorName(result)}};
}

Json contextJson(const ContextReading &reading) {
  Json entry{{"service", reading.service}, {"context", reading.context}};
  if (reading.result == OXA_ERROR_NONE) {
    entry["data"] = toHex(reading.data);
  } else {
    entry.update(outcomeJson(reading.result));
  }
  return entry;
}

Json deviceJson(Json object, const DeviceInfo &device) {
  object["address"] = device.address;
  object["type"] = device.type;
  object["name"] = device.name;
  if (device.advData) {
    object["adv_data"] = toHex(*device.advData);
  }
  if (!device.contexts.empty()) {
    Json contexts = Json::array();
    for (const ContextReading &reading : device.contexts) {
      contexts.push_back(contextJson(reading));
    }
    object["context"] = std::move(contexts);
  }
  return object;
}

std::string eventText(const char *event) {
  std::ostringstream column;
  column << std::left << std::setw(kEventWidth) << event << kGap;
  return column.str();
}

}  // namespace

void Printer::devices(const std::vector<DeviceInfo> &devices) const {
  size_t nameWidth = 0;
  for (const DeviceInfo &device : devices) {
    nameWidth = std::max(nameWidth, device.name.size());
  }
  for (const DeviceInfo &device : devices) {
    if (json_) {
      emit(deviceJson(Json::object(), device));
    } else {
      emit(deviceText(device, nameWidth));
    }
  }
}

void Printer::device(const DeviceInfo &device) const {
  devices({device});
}

void Printer::deviceEvent(const char *event, const DeviceInfo &device) const {
  if (json_) {
    emit(deviceJson({{"event", event}}, device));
  } else {
    emit(eventText(event) + deviceText(device, kEventNameWidth));
  }
}

void Printer::state(int state) const {
  if (json_) {
    emit(Json{{"event", "state"}, {"state", state}});
  } else {
    emit(eventText("state") + std::to_string(state));
  }
}

void Printer::command(const CommandInfo &command) const {
  if (json_) {
    emit(Json{{"event", "command"},
              {"address", command.address},
              {"type", command.type},
              {"id", command.id},
              {"payload", toHex(command.payload)}});
  } else {
    emit(eventText("command") + command.address + kGap + "type " + std::to_string(command.type) +
         kGap + "id " + std::to_string(command.id) + kGap + hexOrDash(command.payload));
  }
}

void Printer::message(const std::string &address, const Bytes &data) const {
  if (json_) {
    emit(Json{{"event", "message"}, {"address", address}, {"data", toHex(data)}});
  } else {
    emit(eventText("message") + address + kGap + hexOrDash(data));
  }
}

void Printer::sent(const std::string &address, int result) const {
  if (json_) {
    Json object{{"event", "sent"}, {"address", address}};
    object.update(outcomeJson(result));
    emit(object);
    return;
  }
  emit("sent " + address + ": " + errorName(result));
}

void Printer::published(int contextType, int result) const {
  if (json_) {
    Json object{{"context", contextType}};
    object.update(outcomeJson(result));
    emit(object);
    return;
  }
  emit("published context " + std::to_string(contextType) + ": " + errorName(result));
}

void Printer::failure(const Failure &failure) const {
  std::cout.flush();
  std::istringstream lines(failure.what());
  for (std::string line; std::getline(lines, line);) {
    std::cerr << "oxactl: " << line << '\n';
  }
  std::cerr.flush();
  const auto *operation = dynamic_cast<const OperationFailure *>(&failure);
  if (json_ && operation != nullptr) {
    Json object{{"operation", operation->operation()}};
    object.update(outcomeJson(operation->result()));
    emit(object);
  }
}

}  // namespace oxactl
