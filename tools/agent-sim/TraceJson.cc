#include "TraceJson.h"

#include <nlohmann/json.hpp>

namespace oxa_sim {

namespace {

// Keys keep the order they were written in: the wire order.
using Object = nlohmann::ordered_json;

std::string hexOf(const Bytes &bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string text(2 * bytes.size(), '0');
  for (size_t i = 0; i < bytes.size(); ++i) {
    text[2 * i] = digits[bytes[i] >> 4U];
    text[2 * i + 1] = digits[bytes[i] & 0xFU];
  }
  return text;
}

Object delegateJson(const Delegate &delegate) {
  return {{"id", delegate.id}, {"seq", delegate.seq}, {"once", delegate.once}};
}

Object deviceJson(const DeviceRecord &device) {
  return {{"address", device.address}, {"type", device.type}, {"name", device.name}};
}

Object commandJson(const CommandRecord &command) {
  return {{"address", command.address}, {"handlerId", command.handlerId},    {"id", command.id},
          {"type", command.type},       {"payload", hexOf(command.payload)}, {"seq", command.seq}};
}

// A connection note has no direction.
Object header(const char *direction, const char *kind, const Peer &peer) {
  Object line;
  if (direction != nullptr) {
    line["direction"] = direction;
  }
  line["kind"] = kind;
  line["client"] = {{"address", peer.address}, {"appid", peer.appId}};
  return line;
}

void addField(Object &fields, RequestField field, const Request &request) {
  switch (field) {
    case RequestField::HandlerId:
      fields["handlerId"] = request.handlerId;
      break;
    case RequestField::Address:
      fields["address"] = request.address;
      break;
    case RequestField::ContextType:
      fields["contextType"] = request.contextType;
      break;
    case RequestField::AppId:
      fields["appId"] = request.appId;
      break;
    case RequestField::Bytes:
      fields["data"] = hexOf(request.bytes);
      break;
    case RequestField::Command:
      fields["command"] = commandJson(request.command);
      break;
    case RequestField::Delegate:
      fields["delegate"] = delegateJson(request.delegate);
      break;
  }
}

void addField(Object &fields, ReplyField field, const Reply &reply) {
  switch (field) {
    case ReplyField::State:
      fields["state"] = reply.state;
      break;
    case ReplyField::Device:
      fields["device"] = deviceJson(reply.device);
      break;
    case ReplyField::DeviceList: {
      Object devices = Object::array();
      for (const DeviceRecord &device : reply.devices) {
        devices.push_back(deviceJson(device));
      }
      fields["devices"] = std::move(devices);
      break;
    }
    case ReplyField::Bytes:
      fields["data"] = hexOf(reply.bytes);
      break;
  }
}

void addEventFields(Object &fields, const Event &event) {
  switch (event.kind) {
    case EventKind::ServiceRegistered:
      fields["result"] = event.result;
      break;
    case EventKind::ServiceStateChanged:
      fields["state"] = event.state;
      break;
    case EventKind::CommandSent:
      fields["result"] = event.result;
      fields["command"] = commandJson(event.command);
      break;
    case EventKind::CommandReceived:
      fields["command"] = commandJson(event.command);
      break;
    case EventKind::DeviceFound:
    case EventKind::DeviceLost:
    case EventKind::ContextChanged:
      fields["device"] = deviceJson(event.device);
      break;
  }
}

// Names and data are the clients' own bytes: what is not UTF-8 is replaced, not fatal.
std::string dump(const Object &line) {
  return line.dump(-1, ' ', false, Object::error_handler_t::replace);
}

}  // namespace

std::string requestJson(const Peer &peer, const Request &request) {
  const MethodLayout &layout = layoutOf(request.method);
  Object line = header("received", "request", peer);
  line["method"] = layout.name;
  line["method_id"] = static_cast<int>(request.method);
  Object fields = Object::object();
  for (RequestField field : layout.request) {
    addField(fields, field, request);
  }
  line["fields"] = std::move(fields);
  return dump(line);
}

std::string replyJson(const Peer &peer, const Reply &reply) {
  const MethodLayout &layout = layoutOf(reply.method);
  Object line = header("sent", "reply", peer);
  line["method"] = layout.name;
  Object fields = Object::object();
  for (ReplyField field : layout.reply) {
    addField(fields, field, reply);
  }
  fields["result"] = reply.result;
  line["fields"] = std::move(fields);
  return dump(line);
}

std::string eventJson(const Peer &peer, const Event &event) {
  Object line = header("sent", "event", peer);
  line["event"] = eventName(event.kind);
  Object fields = Object::object();
  fields["delegate"] = delegateJson(event.delegate);
  addEventFields(fields, event);
  line["fields"] = std::move(fields);
  return dump(line);
}

std::string noteJson(const Peer &peer, const std::string &text) {
  Object line = header(nullptr, "connection", peer);
  line["note"] = text;
  return dump(line);
}

}  // namespace oxa_sim
