// Parcels on ports: reading one whole frame, sending one.
#include <memory>
#include <new>

#include "Port.h"

using platform::Port;

extern "C" int rpc_port_parcel_create_from_port(rpc_port_parcel_h *h, rpc_port_h port) {
  if (h == nullptr || port == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  *h = nullptr;
  // Default-initialised: the frame is copied in before anything is read.
  std::unique_ptr<platform::Parcel> parcel(new (std::nothrow) platform::Parcel);
  if (!parcel) {
    return RPC_PORT_ERROR_OUT_OF_MEMORY;
  }
  const int result = static_cast<Port *>(port)->receive(*parcel);
  if (result == RPC_PORT_ERROR_NONE) {
    *h = parcel.release();
  }
  return result;
}

extern "C" int rpc_port_parcel_send(rpc_port_parcel_h h, rpc_port_h port) {
  if (h == nullptr || port == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  return static_cast<Port *>(port)->send(h->bytes.data(), h->bytes.size());
}
