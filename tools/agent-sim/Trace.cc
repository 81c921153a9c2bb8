#include "Trace.h"

#include <cstdio>
#include <sstream>
#include <stdexcept>

#include "TraceJson.h"

namespace oxa_sim {

namespace {

std::string hex(const Bytes &bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string text = "[";
  for (unsigned char byte : bytes) {
    if (text.size() > 1) {
      text += ' ';
    }
    text += digits[byte >> 4U];
    text += digits[byte & 0xFU];
  }
  return text + "]";
}

std::ostream &operator<<(std::ostream &out, const Delegate &d) {
  return out << "delegate={id=" << d.id << " seq=" << d.seq << " once=" << (d.once ? 1 : 0) << "}";
}

std::ostream &operator<<(std::ostream &out, const DeviceRecord &d) {
  return out << "{address=" << d.address << " type=" << d.type << " name=\"" << d.name << "\"}";
}

std::ostream &operator<<(std::ostream &out, const CommandRecord &c) {
  return out << "command={address=" << c.address << " handlerId=" << c.handlerId << " id=" << c.id
             << " type=" << c.type << " payload=" << hex(c.payload) << " seq=" << c.seq << "}";
}

void writeField(std::ostream &out, RequestField field, const Request &request) {
  switch (field) {
    case RequestField::HandlerId:
      out << " handlerId=" << request.handlerId;
      break;
    case RequestField::Address:
      out << " address=" << request.address;
      break;
    case RequestField::ContextType:
      out << " contextType=" << request.contextType;
      break;
    case RequestField::AppId:
      out << " appId=" << request.appId;
      break;
    case RequestField::Bytes:
      out << " data=" << hex(request.bytes);
      break;
    case RequestField::Command:
      out << ' ' << request.command;
      break;
    case RequestField::Delegate:
      out << ' ' << request.delegate;
      break;
  }
}

void writeField(std::ostream &out, ReplyField field, const Reply &reply) {
  switch (field) {
    case ReplyField::State:
      out << " state=" << (reply.state ? "true" : "false");
      break;
    case ReplyField::Device:
      out << " device=" << reply.device;
      break;
    case ReplyField::DeviceList:
      out << " devices=[";
      for (size_t i = 0; i < reply.devices.size(); ++i) {
        out << (i > 0 ? " " : "") << reply.devices[i];
      }
      out << "]";
      break;
    case ReplyField::Bytes:
      out << " data=" << hex(reply.bytes);
      break;
  }
}

void writeEventFields(std::ostream &out, const Event &event) {
  switch (event.kind) {
    case EventKind::ServiceRegistered:
      out << " result=" << event.result;
      break;
    case EventKind::ServiceStateChanged:
      out << " state=" << (event.state ? "true" : "false");
      break;
    case EventKind::CommandSent:
      out << " result=" << event.result << ' ' << event.command;
      break;
    case EventKind::CommandReceived:
      out << ' ' << event.command;
      break;
    case EventKind::DeviceFound:
    case EventKind::DeviceLost:
    case EventKind::ContextChanged:
      out << " device=" << event.device;
      break;
  }
}

}  // namespace

std::string formatRequest(const Request &request) {
  std::ostringstream out;
  const MethodLayout &layout = layoutOf(request.method);
  out << layout.name;
  for (RequestField field : layout.request) {
    writeField(out, field, request);
  }
  return out.str();
}

std::string formatReply(const Reply &reply) {
  std::ostringstream out;
  const MethodLayout &layout = layoutOf(reply.method);
  out << layout.name << " reply";
  for (ReplyField field : layout.reply) {
    writeField(out, field, reply);
  }
  out << " result=" << reply.result;
  return out.str();
}

std::string formatEvent(const Event &event) {
  std::ostringstream out;
  out << eventName(event.kind) << " event " << event.delegate;
  writeEventFields(out, event);
  return out.str();
}

Trace::Trace(const Sinks &sinks, Describe describe)
    : text_(sinks.text), describe_(std::move(describe)) {
  if (sinks.jsonPath == "-") {
    json_.reset(stdout);
  } else if (!sinks.jsonPath.empty()) {
    json_.reset(std::fopen(sinks.jsonPath.c_str(), "w"));
    if (!json_) {
      throw std::runtime_error("cannot write the JSON trace to " + sinks.jsonPath);
    }
  }
}

void Trace::FileCloser::operator()(std::FILE *file) const {
  if (file != stdout) {
    std::fclose(file);
  }
}

// Formatting a parcel costs more than handling it (payloads as hex), so nothing is looked up or
// formatted unless tracing is on.
void Trace::received(const std::string &instance, const Request &request) const {
  if (!enabled()) {
    return;
  }
  const Peer peer = describe_(instance);
  if (text_) {
    print("<-", peer, formatRequest(request));
  }
  if (json_) {
    writeJson(requestJson(peer, request));
  }
}

void Trace::replied(const std::string &instance, const Reply &reply) const {
  if (!enabled()) {
    return;
  }
  const Peer peer = describe_(instance);
  if (text_) {
    print("->", peer, formatReply(reply));
  }
  if (json_) {
    writeJson(replyJson(peer, reply));
  }
}

void Trace::sent(const std::string &instance, const Event &event) const {
  if (!enabled()) {
    return;
  }
  const Peer peer = describe_(instance);
  if (text_) {
    print("=>", peer, formatEvent(event));
  }
  if (json_) {
    writeJson(eventJson(peer, event));
  }
}

void Trace::note(const std::string &instance, const std::string &text) const {
  if (!enabled()) {
    return;
  }
  const Peer peer = describe_(instance);
  if (text_) {
    print("--", peer, text);
  }
  if (json_) {
    writeJson(noteJson(peer, text));
  }
}

void Trace::print(const char *direction, const Peer &peer, const std::string &text) const {
  const std::string name = peer.address.empty() ? peer.instance : peer.address + " " + peer.appId;
  std::printf("trace: %s [%s] %s\n", direction, name.c_str(), text.c_str());
  std::fflush(stdout);
}

void Trace::writeJson(const std::string &line) const {
  std::fputs(line.c_str(), json_.get());
  std::fputc('\n', json_.get());
  std::fflush(json_.get());
}

}  // namespace oxa_sim
