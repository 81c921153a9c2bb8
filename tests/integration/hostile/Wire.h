// Parcel bodies byte by byte, as the agent protocol lays them out: untagged little-endian values,
// strings as an int32 count (NUL included) and the bytes. Nothing checks that the result makes
// sense, which is the point: tests build the malformed parcels a broken agent could send.
#ifndef OXA_TESTS_INTEGRATION_HOSTILE_WIRE_H_
#define OXA_TESTS_INTEGRATION_HOSTILE_WIRE_H_

#include <rpc-port.h>

#include <cstdint>
#include <string>
#include <vector>

#include "DelegateIds.h"

namespace oxa::test {

using Body = std::vector<uint8_t>;

// Command ids that open every parcel the agent sends; the events' delegate ids are DelegateIds.h's.
constexpr int kReplyId = 0;
constexpr int kEventId = 1;
using namespace delegate_ids;

class Wire {
 public:
  Wire &int32(int32_t value);
  Wire &boolean(bool value);
  // A well-formed string: count including the NUL, the bytes, the NUL.
  Wire &string(const std::string &text);
  // A device record: address, type, name.
  Wire &device(const std::string &address, int type, const std::string &name);

  // A reply to a request: command id 0, then the caller's fields.
  static Wire reply() { return Wire().int32(kReplyId); }
  // An event: command id 1 and the delegate header (id, sequence number, once flag cleared).
  static Wire event(int delegateId, int seq) {
    return Wire().int32(kEventId).int32(delegateId).int32(seq).boolean(false);
  }

  const Body &body() const { return body_; }

 private:
  Body body_;
};

// A parcel holding exactly `body`, written a byte at a time; the caller destroys it.
rpc_port_parcel_h parcelOf(const Body &body);

}  // namespace oxa::test

#endif  // OXA_TESTS_INTEGRATION_HOSTILE_WIRE_H_
