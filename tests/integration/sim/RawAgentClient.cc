#include "RawAgentClient.h"

#include <capi-base-common.h>
#include <gtest/gtest.h>

#include <cstdlib>

namespace raw_agent {

namespace {

Parcel newParcel() {
  rpc_port_parcel_h raw = nullptr;
  EXPECT_EQ(rpc_port_parcel_create(&raw), RPC_PORT_ERROR_NONE);
  return Parcel(raw);
}

Parcel readParcel(rpc_port_h port) {
  rpc_port_parcel_h raw = nullptr;
  if (rpc_port_parcel_create_from_port(&raw, port) != RPC_PORT_ERROR_NONE) {
    return nullptr;
  }
  return Parcel(raw);
}

void expectRead(int result, const char *what) {
  if (result != RPC_PORT_ERROR_NONE) {
    ADD_FAILURE() << "reading " << what << " failed: " << result;
  }
}

}  // namespace

Request::Request(int methodId) : parcel_(newParcel()) {
  i32(methodId);
}

Request &Request::i32(int value) {
  rpc_port_parcel_write_int32(parcel_.get(), value);
  return *this;
}

Request &Request::string(const std::string &value) {
  rpc_port_parcel_write_string(parcel_.get(), value.c_str());
  return *this;
}

Request &Request::bytes(const std::vector<unsigned char> &value) {
  rpc_port_parcel_write_array_count(parcel_.get(), static_cast<int>(value.size()));
  for (unsigned char byte : value) {
    rpc_port_parcel_write_byte(parcel_.get(), static_cast<char>(byte));
  }
  return *this;
}

Request &Request::command(const Command &value) {
  return string(value.address)
      .i32(value.handlerId)
      .i32(value.id)
      .i32(value.type)
      .bytes(value.payload)
      .i32(value.seq);
}

Request &Request::delegate(int id, int seq, bool once) {
  i32(id).i32(seq);
  rpc_port_parcel_write_bool(parcel_.get(), once);
  return *this;
}

int Reply::i32() {
  int value = 0;
  expectRead(rpc_port_parcel_read_int32(parcel_.get(), &value), "int32");
  return value;
}

bool Reply::boolean() {
  bool value = false;
  expectRead(rpc_port_parcel_read_bool(parcel_.get(), &value), "bool");
  return value;
}

std::string Reply::string() {
  char *raw = nullptr;
  expectRead(rpc_port_parcel_read_string(parcel_.get(), &raw), "string");
  std::string value = raw != nullptr ? raw : "";
  std::free(raw);
  return value;
}

std::vector<unsigned char> Reply::bytes() {
  const int count = i32();
  std::vector<unsigned char> value;
  for (int i = 0; i < count; ++i) {
    char byte = 0;
    expectRead(rpc_port_parcel_read_byte(parcel_.get(), &byte), "byte");
    value.push_back(static_cast<unsigned char>(byte));
  }
  return value;
}

Device Reply::device() {
  Device value;
  value.address = string();
  value.type = i32();
  value.name = string();
  return value;
}

std::vector<Device> Reply::devices() {
  const int count = i32();
  std::vector<Device> value;
  value.reserve(count > 0 ? static_cast<size_t>(count) : 0);
  for (int i = 0; i < count; ++i) {
    value.push_back(device());
  }
  return value;
}

bool Reply::exhausted() {
  char byte = 0;
  return rpc_port_parcel_read_byte(parcel_.get(), &byte) != RPC_PORT_ERROR_NONE;
}

Client::Client(GMainContext *context) {
  g_main_context_push_thread_default(context);
  EXPECT_EQ(rpc_port_proxy_create(&proxy_), RPC_PORT_ERROR_NONE);
  g_main_context_pop_thread_default(context);
  rpc_port_proxy_add_connected_event_cb(proxy_, &Client::onConnected, this);
  rpc_port_proxy_add_disconnected_event_cb(proxy_, &Client::onDisconnected, this);
  rpc_port_proxy_add_rejected_event_cb(proxy_, &Client::onRejected, this);
  rpc_port_proxy_add_received_event_cb(proxy_, &Client::onReceived, this);
}

Client::~Client() {
  if (proxy_ != nullptr) {
    rpc_port_proxy_destroy(proxy_);
  }
}

int Client::connect(const std::string &appid) {
  return rpc_port_proxy_connect(proxy_, appid.c_str(), "OxaAgentInterface");
}

int Client::send(const Request &request) {
  return rpc_port_parcel_send(request.get(), port_);
}

Reply Client::call(const Request &request) {
  if (send(request) != RPC_PORT_ERROR_NONE) {
    ADD_FAILURE() << "sending the request failed";
    return Reply(nullptr);
  }
  Reply reply(readParcel(port_));
  if (!reply.valid()) {
    ADD_FAILURE() << "no reply parcel";
    return reply;
  }
  EXPECT_EQ(reply.i32(), 0) << "a reply starts with command id 0";
  return reply;
}

std::vector<Event> Client::eventsOf(int delegateId) const {
  std::vector<Event> result;
  for (const Event &event : events_) {
    if (event.delegateId == delegateId) {
      result.push_back(event);
    }
  }
  return result;
}

void Client::onConnected(const char *, const char *, rpc_port_h port, void *data) {
  auto *client = static_cast<Client *>(data);
  client->port_ = port;
  rpc_port_proxy_get_port(client->proxy_, RPC_PORT_PORT_CALLBACK, &client->callbackPort_);
}

void Client::onDisconnected(const char *, const char *, void *data) {
  static_cast<Client *>(data)->disconnected_ = true;
}

void Client::onRejected(const char *, const char *, void *data) {
  auto *client = static_cast<Client *>(data);
  client->rejected_ = true;
  client->rejectError_ = get_last_result();
}

void Client::onReceived(const char *, const char *, void *data) {
  static_cast<Client *>(data)->readEvent();
}

void Client::readEvent() {
  Reply parcel(readParcel(callbackPort_));
  if (!parcel.valid()) {
    ADD_FAILURE() << "unreadable callback parcel";
    return;
  }
  EXPECT_EQ(parcel.i32(), 1) << "a callback parcel starts with command id 1";
  Event event;
  event.delegateId = parcel.i32();
  event.seq = parcel.i32();
  event.once = parcel.boolean();
  switch (event.delegateId) {
    case kServiceRegistered:
      event.result = parcel.i32();
      break;
    case kServiceStateChanged:
      event.state = parcel.boolean();
      break;
    case kCommandSent:
      event.result = parcel.i32();
      [[fallthrough]];
    case kCommandReceived:
      event.command.address = parcel.string();
      event.command.handlerId = parcel.i32();
      event.command.id = parcel.i32();
      event.command.type = parcel.i32();
      event.command.payload = parcel.bytes();
      event.command.seq = parcel.i32();
      break;
    default:
      event.device = parcel.device();
      break;
  }
  EXPECT_TRUE(parcel.exhausted()) << "callback parcel for delegate " << event.delegateId
                                  << " carries more than its fields";
  events_.push_back(std::move(event));
}

}  // namespace raw_agent
