// Arbitrary request parcels into the simulator's request decoder.
#include <rpc-port.h>

#include <cstddef>
#include <cstdint>

#include "ParcelIo.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  rpc_port_parcel_h parcel = nullptr;
  if (rpc_port_parcel_create(&parcel) != RPC_PORT_ERROR_NONE) {
    return 0;
  }
  oxa_sim::Parcel owned(parcel);
  for (size_t at = 0; at < size; ++at) {
    rpc_port_parcel_write_byte(parcel, static_cast<char>(data[at]));
  }
  oxa_sim::readRequest(parcel);
  return 0;
}
