// The stub half of the C interface.
#include <memory>
#include <new>

#include "Runtime.h"
#include "Stub.h"

namespace {

platform::Stub *stubOf(rpc_port_stub_h h) {
  return h != nullptr ? h->stub.get() : nullptr;
}

}  // namespace

extern "C" int rpc_port_stub_create(rpc_port_stub_h *h, const char *port_name) {
  if (h == nullptr || !platform::isValidName(port_name)) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  *h = new (std::nothrow) rpc_port_stub_s{std::make_shared<platform::Stub>(port_name)};
  return *h != nullptr ? RPC_PORT_ERROR_NONE : RPC_PORT_ERROR_OUT_OF_MEMORY;
}

extern "C" int rpc_port_stub_destroy(rpc_port_stub_h h) {
  if (h == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  // An event being delivered holds its own reference; the stub goes when that returns.
  h->stub->close();
  delete h;
  return RPC_PORT_ERROR_NONE;
}

extern "C" int rpc_port_stub_listen(rpc_port_stub_h h) {
  if (h == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  return h->stub->listen();
}

extern "C" int rpc_port_stub_add_privilege(rpc_port_stub_h h, const char *privilege) {
  if (h == nullptr || privilege == nullptr || *privilege == '\0') {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  h->stub->addPrivilege(privilege);
  return RPC_PORT_ERROR_NONE;
}

extern "C" int rpc_port_stub_add_connected_event_cb(rpc_port_stub_h h,
                                                    rpc_port_stub_connected_event_cb cb,
                                                    void *user_data) {
  return platform::registerCallback(stubOf(h), &platform::Stub::connected, cb, user_data);
}

extern "C" int rpc_port_stub_add_disconnected_event_cb(rpc_port_stub_h h,
                                                       rpc_port_stub_disconnected_event_cb cb,
                                                       void *user_data) {
  return platform::registerCallback(stubOf(h), &platform::Stub::disconnected, cb, user_data);
}

extern "C" int rpc_port_stub_add_received_event_cb(rpc_port_stub_h h,
                                                   rpc_port_stub_received_event_cb cb,
                                                   void *user_data) {
  return platform::registerCallback(stubOf(h), &platform::Stub::received, cb, user_data);
}

extern "C" int rpc_port_stub_get_port(rpc_port_stub_h h, rpc_port_port_type_e type,
                                      const char *instance, rpc_port_h *port) {
  if (h == nullptr || instance == nullptr || port == nullptr ||
      (type != RPC_PORT_PORT_MAIN && type != RPC_PORT_PORT_CALLBACK)) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  *port = h->stub->port(type, instance);
  return *port != nullptr ? RPC_PORT_ERROR_NONE : RPC_PORT_ERROR_INVALID_PARAMETER;
}
