// A parcel: the body of one frame. Values are appended untagged, little-endian and fixed-width;
// reads walk the same bytes in order and never past the end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Exported.h"

struct rpc_port_parcel_s {
  std::vector<uint8_t> bytes;
  size_t readOffset = 0;
};

namespace platform {

using Parcel = rpc_port_parcel_s;

void appendBytes(Parcel &parcel, const void *data, size_t size);
// Copies `size` bytes into `out` and advances, or returns false (and copies nothing) when fewer
// than `size` bytes are left.
bool readBytes(Parcel &parcel, void *out, size_t size);

// Fixed-width little-endian values. Every host this runs on is little-endian (checked at compile
// time), so the bytes are the value's own.
template <typename T>
void appendValue(Parcel &parcel, T value) {
  appendBytes(parcel, &value, sizeof value);
}

template <typename T>
bool readValue(Parcel &parcel, T *out) {
  if (!readBytes(parcel, out, sizeof *out)) {
    *out = T();
    return false;
  }
  return true;
}

void appendString(Parcel &parcel, const char *text);
// A freshly malloc'ed copy of the next string, or nullptr (consuming nothing) when its count or
// terminator is wrong.
char *readString(Parcel &parcel);

}  // namespace platform
