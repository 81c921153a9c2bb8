#ifndef OXA_TOOLS_AGENT_SIM_PARCEL_IO_H_
#define OXA_TOOLS_AGENT_SIM_PARCEL_IO_H_

#include <rpc-port.h>

#include <memory>
#include <optional>
#include <type_traits>

#include "Protocol.h"

namespace oxa_sim {

struct ParcelDeleter {
  void operator()(rpc_port_parcel_h parcel) const { rpc_port_parcel_destroy(parcel); }
};
using Parcel = std::unique_ptr<std::remove_pointer_t<rpc_port_parcel_h>, ParcelDeleter>;

// Reads one parcel from `port`; empty when the port has none to give.
Parcel receiveParcel(rpc_port_h port);
// Sends `parcel` on `port`; returns the platform's result.
int sendParcel(const Parcel &parcel, rpc_port_h port);

// A request parcel as the library writes it; empty on an unknown method id or a short parcel.
std::optional<Request> readRequest(rpc_port_parcel_h parcel);
Parcel writeReply(const Reply &reply);
Parcel writeEvent(const Event &event);

}  // namespace oxa_sim

#endif  // OXA_TOOLS_AGENT_SIM_PARCEL_IO_H_
