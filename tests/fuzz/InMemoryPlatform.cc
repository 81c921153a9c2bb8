#include "InMemoryPlatform.h"

#include <capi-base-common.h>
#include <dlog.h>
#include <rpc-port.h>

#include <cstdarg>
#include <deque>
#include <memory>

namespace fuzz {
namespace {

struct Proxy {
  rpc_port_proxy_connected_event_cb connected = nullptr;
  void *connectedData = nullptr;
  rpc_port_proxy_disconnected_event_cb disconnected = nullptr;
  void *disconnectedData = nullptr;
  rpc_port_proxy_received_event_cb received = nullptr;
  void *receivedData = nullptr;
};

// Port handles are these two addresses; nothing reads through them.
int mainPortToken;
int callbackPortToken;
rpc_port_h mainPort() {
  return &mainPortToken;
}
rpc_port_h callbackPort() {
  return &callbackPortToken;
}

std::deque<Body> replies;
std::deque<Body> events;
Proxy *latest = nullptr;
thread_local int lastResult = 0;

constexpr char kAgent[] = "agent";
constexpr char kPort[] = "OxaAgentInterface";

}  // namespace

void queueReply(const uint8_t *data, size_t size) {
  replies.emplace_back(data, data + size);
}
void queueEvent(const uint8_t *data, size_t size) {
  events.emplace_back(data, data + size);
}
void clearQueues() {
  replies.clear();
  events.clear();
}

bool fireConnected() {
  if (latest == nullptr || latest->connected == nullptr) {
    return false;
  }
  latest->connected(kAgent, kPort, mainPort(), latest->connectedData);
  return true;
}

bool fireDisconnected() {
  if (latest == nullptr || latest->disconnected == nullptr) {
    return false;
  }
  latest->disconnected(kAgent, kPort, latest->disconnectedData);
  return true;
}

bool fireReceived() {
  if (latest == nullptr || latest->received == nullptr) {
    return false;
  }
  latest->received(kAgent, kPort, latest->receivedData);
  return true;
}

}  // namespace fuzz

using fuzz::Proxy;

extern "C" {

int rpc_port_proxy_create(rpc_port_proxy_h *h) {
  auto *proxy = new Proxy();
  fuzz::latest = proxy;
  *h = reinterpret_cast<rpc_port_proxy_h>(proxy);
  return RPC_PORT_ERROR_NONE;
}

int rpc_port_proxy_destroy(rpc_port_proxy_h h) {
  auto *proxy = reinterpret_cast<Proxy *>(h);
  if (fuzz::latest == proxy) {
    fuzz::latest = nullptr;
  }
  delete proxy;
  return RPC_PORT_ERROR_NONE;
}

int rpc_port_proxy_connect(rpc_port_proxy_h /*h*/, const char * /*appid*/, const char * /*port*/) {
  return RPC_PORT_ERROR_NONE;
}

int rpc_port_proxy_connect_sync(rpc_port_proxy_h /*h*/, const char * /*appid*/,
                                const char * /*port*/) {
  return RPC_PORT_ERROR_NONE;
}

int rpc_port_proxy_add_connected_event_cb(rpc_port_proxy_h h, rpc_port_proxy_connected_event_cb cb,
                                          void *user_data) {
  auto *proxy = reinterpret_cast<Proxy *>(h);
  proxy->connected = cb;
  proxy->connectedData = user_data;
  return RPC_PORT_ERROR_NONE;
}

int rpc_port_proxy_add_disconnected_event_cb(rpc_port_proxy_h h,
                                             rpc_port_proxy_disconnected_event_cb cb,
                                             void *user_data) {
  auto *proxy = reinterpret_cast<Proxy *>(h);
  proxy->disconnected = cb;
  proxy->disconnectedData = user_data;
  return RPC_PORT_ERROR_NONE;
}

int rpc_port_proxy_add_rejected_event_cb(rpc_port_proxy_h /*h*/,
                                         rpc_port_proxy_rejected_event_cb /*cb*/,
                                         void * /*user_data*/) {
  return RPC_PORT_ERROR_NONE;
}

int rpc_port_proxy_add_received_event_cb(rpc_port_proxy_h h, rpc_port_proxy_received_event_cb cb,
                                         void *user_data) {
  auto *proxy = reinterpret_cast<Proxy *>(h);
  proxy->received = cb;
  proxy->receivedData = user_data;
  return RPC_PORT_ERROR_NONE;
}

int rpc_port_proxy_get_port(rpc_port_proxy_h /*h*/, rpc_port_port_type_e type, rpc_port_h *port) {
  *port = type == RPC_PORT_PORT_CALLBACK ? fuzz::callbackPort() : fuzz::mainPort();
  return RPC_PORT_ERROR_NONE;
}

int rpc_port_parcel_create_from_port(rpc_port_parcel_h *h, rpc_port_h port) {
  std::deque<fuzz::Body> &queue = port == fuzz::callbackPort() ? fuzz::events : fuzz::replies;
  if (queue.empty()) {
    return RPC_PORT_ERROR_IO_ERROR;
  }
  rpc_port_parcel_create(h);
  for (uint8_t byte : queue.front()) {
    rpc_port_parcel_write_byte(*h, static_cast<char>(byte));
  }
  queue.pop_front();
  return RPC_PORT_ERROR_NONE;
}

int rpc_port_parcel_send(rpc_port_parcel_h /*h*/, rpc_port_h /*port*/) {
  return RPC_PORT_ERROR_NONE;
}

int dlog_print(log_priority /*prio*/, const char * /*tag*/, const char * /*fmt*/, ...) {
  return 0;
}

int dlog_vprint(log_priority /*prio*/, const char * /*tag*/, const char * /*fmt*/, va_list /*ap*/) {
  return 0;
}

int get_last_result(void) {
  return fuzz::lastResult;
}
void set_last_result(int result) {
  fuzz::lastResult = result;
}

}  // extern "C"
