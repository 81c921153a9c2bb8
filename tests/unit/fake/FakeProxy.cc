// rpc_port_proxy_* and rpc_port_stub_*: handles and callbacks in memory; nothing connects until a
// test fires an event.

#include <algorithm>

#include "FakeState.h"

using fake::State;

namespace {

template <typename Handle>
auto findHandle(std::vector<std::unique_ptr<Handle>> &handles, Handle *handle) {
  return std::find_if(
      handles.begin(), handles.end(),
      [handle](const std::unique_ptr<Handle> &live) { return live.get() == handle; });
}

// Runs `change` on a live proxy under the fake's lock; an unknown handle is a fault and -22.
template <typename Change>
int withProxy(rpc_port_proxy_h h, const char *operation, Change change) {
  State &current = fake::state();
  std::lock_guard<std::mutex> lock(current.mutex);
  auto found = findHandle(current.proxies, h);
  if (found == current.proxies.end()) {
    current.faults.push_back(std::string(operation) + " on an unknown proxy");
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  return change(current, **found);
}

int connect(rpc_port_proxy_h h, const char *appid, const char *port, bool sync) {
  if (appid == nullptr || port == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  return withProxy(h, "connect", [&](State &current, rpc_port_proxy_s &proxy) {
    current.connectCalls.push_back({sync, appid, port});
    proxy.appId = appid;
    proxy.portName = port;
    return current.results[sync ? fake::Call::ConnectSync : fake::Call::Connect].Next();
  });
}

}  // namespace

extern "C" {

int rpc_port_proxy_create(rpc_port_proxy_h *h) {
  if (h == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  State &current = fake::state();
  std::lock_guard<std::mutex> lock(current.mutex);
  const int result = current.results[fake::Call::ProxyCreate].Next();
  if (result != RPC_PORT_ERROR_NONE) {
    return result;
  }
  current.proxies.push_back(std::make_unique<rpc_port_proxy_s>());
  ++current.proxiesCreated;
  *h = current.proxies.back().get();
  return RPC_PORT_ERROR_NONE;
}

int rpc_port_proxy_destroy(rpc_port_proxy_h h) {
  State &current = fake::state();
  std::lock_guard<std::mutex> lock(current.mutex);
  auto found = findHandle(current.proxies, h);
  if (found == current.proxies.end()) {
    current.faults.push_back("destroy on an unknown proxy");
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  current.proxies.erase(found);
  ++current.proxiesDestroyed;
  return RPC_PORT_ERROR_NONE;
}

int rpc_port_proxy_connect(rpc_port_proxy_h h, const char *appid, const char *port) {
  return connect(h, appid, port, false);
}

int rpc_port_proxy_connect_sync(rpc_port_proxy_h h, const char *appid, const char *port) {
  return connect(h, appid, port, true);
}

int rpc_port_proxy_add_connected_event_cb(rpc_port_proxy_h h, rpc_port_proxy_connected_event_cb cb,
                                          void *user_data) {
  return withProxy(h, "add_connected_event_cb", [&](State &, rpc_port_proxy_s &proxy) {
    proxy.connected = cb;
    proxy.connectedData = user_data;
    return RPC_PORT_ERROR_NONE;
  });
}

int rpc_port_proxy_add_disconnected_event_cb(rpc_port_proxy_h h,
                                             rpc_port_proxy_disconnected_event_cb cb,
                                             void *user_data) {
  return withProxy(h, "add_disconnected_event_cb", [&](State &, rpc_port_proxy_s &proxy) {
    proxy.disconnected = cb;
    proxy.disconnectedData = user_data;
    return RPC_PORT_ERROR_NONE;
  });
}

int rpc_port_proxy_add_rejected_event_cb(rpc_port_proxy_h h, rpc_port_proxy_rejected_event_cb cb,
                                         void *user_data) {
  return withProxy(h, "add_rejected_event_cb", [&](State &, rpc_port_proxy_s &proxy) {
    proxy.rejected = cb;
    proxy.rejectedData = user_data;
    return RPC_PORT_ERROR_NONE;
  });
}

int rpc_port_proxy_add_received_event_cb(rpc_port_proxy_h h, rpc_port_proxy_received_event_cb cb,
                                         void *user_data) {
  return withProxy(h, "add_received_event_cb", [&](State &, rpc_port_proxy_s &proxy) {
    proxy.received = cb;
    proxy.receivedData = user_data;
    return RPC_PORT_ERROR_NONE;
  });
}

int rpc_port_proxy_get_port(rpc_port_proxy_h h, rpc_port_port_type_e type, rpc_port_h *port) {
  return withProxy(h, "get_port", [&](State &current, rpc_port_proxy_s &) {
    current.getPortCalls.push_back(type);
    const int result = current.results[fake::Call::GetPort].Next();
    if (result == RPC_PORT_ERROR_NONE && port != nullptr) {
      *port = type == RPC_PORT_PORT_CALLBACK ? fake::CallbackPort() : fake::MainPort();
    }
    return result;
  });
}

int rpc_port_stub_create(rpc_port_stub_h *h, const char *port_name) {
  if (h == nullptr || port_name == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  State &current = fake::state();
  std::lock_guard<std::mutex> lock(current.mutex);
  current.stubs.push_back(std::make_unique<rpc_port_stub_s>());
  current.stubs.back()->portName = port_name;
  *h = current.stubs.back().get();
  return RPC_PORT_ERROR_NONE;
}

int rpc_port_stub_destroy(rpc_port_stub_h h) {
  State &current = fake::state();
  std::lock_guard<std::mutex> lock(current.mutex);
  auto found = findHandle(current.stubs, h);
  if (found == current.stubs.end()) {
    current.faults.push_back("destroy on an unknown stub");
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  current.stubs.erase(found);
  return RPC_PORT_ERROR_NONE;
}

// The library never acts as a stub; these accept their arguments and do nothing else.
int rpc_port_stub_listen(rpc_port_stub_h h) {
  return h == nullptr ? RPC_PORT_ERROR_INVALID_PARAMETER : RPC_PORT_ERROR_NONE;
}
int rpc_port_stub_add_privilege(rpc_port_stub_h h, const char *privilege) {
  return h == nullptr || privilege == nullptr ? RPC_PORT_ERROR_INVALID_PARAMETER
                                              : RPC_PORT_ERROR_NONE;
}
int rpc_port_stub_add_connected_event_cb(rpc_port_stub_h h, rpc_port_stub_connected_event_cb,
                                         void *) {
  return h == nullptr ? RPC_PORT_ERROR_INVALID_PARAMETER : RPC_PORT_ERROR_NONE;
}
int rpc_port_stub_add_disconnected_event_cb(rpc_port_stub_h h, rpc_port_stub_disconnected_event_cb,
                                            void *) {
  return h == nullptr ? RPC_PORT_ERROR_INVALID_PARAMETER : RPC_PORT_ERROR_NONE;
}
int rpc_port_stub_add_received_event_cb(rpc_port_stub_h h, rpc_port_stub_received_event_cb,
                                        void *) {
  return h == nullptr ? RPC_PORT_ERROR_INVALID_PARAMETER : RPC_PORT_ERROR_NONE;
}
int rpc_port_stub_get_port(rpc_port_stub_h h, rpc_port_port_type_e type, const char *,
                           rpc_port_h *port) {
  if (h == nullptr || port == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  *port = type == RPC_PORT_PORT_CALLBACK ? fake::CallbackPort() : fake::MainPort();
  return RPC_PORT_ERROR_NONE;
}

}  // extern "C"
