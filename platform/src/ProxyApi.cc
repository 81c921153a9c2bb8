// The proxy half of the C interface.
#include <memory>
#include <new>

#include "Proxy.h"

namespace {

platform::Proxy *proxyOf(rpc_port_proxy_h h) {
  return h != nullptr ? h->proxy.get() : nullptr;
}

}  // namespace

extern "C" int rpc_port_proxy_create(rpc_port_proxy_h *h) {
  if (h == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  *h = new (std::nothrow) rpc_port_proxy_s();
  return *h != nullptr ? RPC_PORT_ERROR_NONE : RPC_PORT_ERROR_OUT_OF_MEMORY;
}

extern "C" int rpc_port_proxy_destroy(rpc_port_proxy_h h) {
  if (h == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  // An event being delivered holds its own reference; the proxy goes when that returns.
  h->proxy->closeFromAnyThread();
  delete h;
  return RPC_PORT_ERROR_NONE;
}

extern "C" int rpc_port_proxy_connect(rpc_port_proxy_h h, const char *appid, const char *port) {
  if (h == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  return h->proxy->connect(appid, port);
}

extern "C" int rpc_port_proxy_connect_sync(rpc_port_proxy_h h, const char *appid,
                                           const char *port) {
  if (h == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  // `connected` runs inside this call and may destroy the handle.
  const std::shared_ptr<platform::Proxy> proxy = h->proxy;
  return proxy->connectSync(appid, port);
}

extern "C" int rpc_port_proxy_add_connected_event_cb(rpc_port_proxy_h h,
                                                     rpc_port_proxy_connected_event_cb cb,
                                                     void *user_data) {
  return platform::registerCallback(proxyOf(h), &platform::Proxy::connected, cb, user_data);
}

extern "C" int rpc_port_proxy_add_disconnected_event_cb(rpc_port_proxy_h h,
                                                        rpc_port_proxy_disconnected_event_cb cb,
                                                        void *user_data) {
  return platform::registerCallback(proxyOf(h), &platform::Proxy::disconnected, cb, user_data);
}

extern "C" int rpc_port_proxy_add_rejected_event_cb(rpc_port_proxy_h h,
                                                    rpc_port_proxy_rejected_event_cb cb,
                                                    void *user_data) {
  return platform::registerCallback(proxyOf(h), &platform::Proxy::rejected, cb, user_data);
}

extern "C" int rpc_port_proxy_add_received_event_cb(rpc_port_proxy_h h,
                                                    rpc_port_proxy_received_event_cb cb,
                                                    void *user_data) {
  return platform::registerCallback(proxyOf(h), &platform::Proxy::received, cb, user_data);
}

extern "C" int rpc_port_proxy_get_port(rpc_port_proxy_h h, rpc_port_port_type_e type,
                                       rpc_port_h *port) {
  if (h == nullptr || port == nullptr ||
      (type != RPC_PORT_PORT_MAIN && type != RPC_PORT_PORT_CALLBACK)) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  *port = h->proxy->port(type);
  return *port != nullptr ? RPC_PORT_ERROR_NONE : RPC_PORT_ERROR_IO_ERROR;
}
