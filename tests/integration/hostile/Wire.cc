#include "Wire.h"

#include <cstring>

namespace oxa::test {

Wire &Wire::int32(int32_t value) {
  uint8_t bytes[sizeof value];
  std::memcpy(bytes, &value, sizeof value);  // the wire is little-endian, as is every host here
  body_.insert(body_.end(), bytes, bytes + sizeof value);
  return *this;
}

Wire &Wire::boolean(bool value) {
  body_.push_back(value ? 1 : 0);
  return *this;
}

Wire &Wire::string(const std::string &text) {
  int32(static_cast<int32_t>(text.size() + 1));
  body_.insert(body_.end(), text.begin(), text.end());
  body_.push_back(0);
  return *this;
}

Wire &Wire::device(const std::string &address, int type, const std::string &name) {
  return string(address).int32(type).string(name);
}

rpc_port_parcel_h parcelOf(const Body &body) {
  rpc_port_parcel_h parcel = nullptr;
  rpc_port_parcel_create(&parcel);
  for (uint8_t byte : body) {
    rpc_port_parcel_write_byte(parcel, static_cast<char>(byte));
  }
  return parcel;
}

}  // namespace oxa::test
