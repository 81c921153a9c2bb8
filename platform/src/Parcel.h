// A parcel: the body of one frame. Values are appended untagged, little-endian and fixed-width;
// reads walk the same bytes in order and never past the end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

#include "Exported.h"
#include "ParcelBytes.h"

struct rpc_port_parcel_s {
  platform::ParcelBytes bytes;
  size_t readOffset = 0;

  // Parcels come and go once per request, reply and event; a few freed ones are kept per thread
  // for the next, so that a small parcel costs no heap allocation at all.
  static void *operator new(size_t size);
  static void *operator new(size_t size, const std::nothrow_t &) noexcept;
  static void operator delete(void *block) noexcept;
};

namespace platform {

using Parcel = rpc_port_parcel_s;

inline void appendBytes(Parcel &parcel, const void *data, size_t size) {
  std::memcpy(parcel.bytes.extend(size), data, size);
}

inline size_t bytesLeft(const Parcel &parcel) {
  return parcel.bytes.size() - parcel.readOffset;
}

// Copies `size` bytes into `out` and advances, or returns false (and copies nothing) when fewer
// than `size` bytes are left.
inline bool readBytes(Parcel &parcel, void *out, size_t size) {
  if (bytesLeft(parcel) < size) {
    return false;
  }
  std::memcpy(out, parcel.bytes.data() + parcel.readOffset, size);
  parcel.readOffset += size;
  return true;
}

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
