// The platform's proxy side without sockets, for fuzzing the library: parcels are the host
// platform's own (same encoding, same reads), but a proxy's two ports are queues that the fuzz
// target fills, and its port events fire when the target says so, on the calling thread.
// Sends succeed and go nowhere; the platform log is dropped.
#ifndef OXA_TESTS_FUZZ_IN_MEMORY_PLATFORM_H_
#define OXA_TESTS_FUZZ_IN_MEMORY_PLATFORM_H_

#include <cstddef>
#include <cstdint>
#include <vector>

namespace fuzz {

using Body = std::vector<uint8_t>;

// The next parcel that rpc_port_parcel_create_from_port reads from the main port (a reply) or
// from the callback port (an event); an empty queue reads as a failure (-5).
void queueReply(const uint8_t *data, size_t size);
void queueEvent(const uint8_t *data, size_t size);
void clearQueues();

// Port events of the most recently created proxy; false when there is none or no callback.
bool fireConnected();
bool fireDisconnected();
bool fireReceived();

}  // namespace fuzz

#endif  // OXA_TESTS_FUZZ_IN_MEMORY_PLATFORM_H_
