#ifndef OXA_TOOLS_AGENT_SIM_LIMITS_H_
#define OXA_TOOLS_AGENT_SIM_LIMITS_H_

#include <cstddef>

namespace oxa_sim {

// Bounds on everything the simulator sizes from its input, so that no file, control line or
// parcel can make it allocate more than a small multiple of the bytes that were really there.

// Data of a device or an action (advertised bytes, a context, a payload), from a scenario file or
// a control line. Far above any real advertisement or context, far below a parcel's limit.
constexpr size_t kMaxDataBytes = size_t{64} << 10U;
// A scenario file as a whole.
constexpr size_t kMaxScenarioBytes = size_t{4} << 20U;
// One line on the control socket: a device with data of the largest size written in hex fits.
constexpr size_t kMaxControlLineBytes = 2 * kMaxDataBytes + (size_t{16} << 10U);
// Answers a control client has not read yet; a client over it is dropped.
constexpr size_t kMaxControlPendingBytes = size_t{64} << 10U;
// Control clients connected at once; further ones are closed on accept.
constexpr size_t kMaxControlClients = 16;

}  // namespace oxa_sim

#endif  // OXA_TOOLS_AGENT_SIM_LIMITS_H_
