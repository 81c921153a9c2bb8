#include "Parcel.h"

#include <cstdlib>
#include <cstring>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the wire format is little-endian");

namespace platform {

void appendBytes(Parcel &parcel, const void *data, size_t size) {
  const auto *first = static_cast<const uint8_t *>(data);
  // Single values (byte arrays go one byte at a time) stay on push_back's inlined path; the
  // general range insert costs a call and a memmove per value.
  if (size <= sizeof(uint64_t)) {
    for (size_t i = 0; i < size; ++i) {
      parcel.bytes.push_back(first[i]);
    }
  } else {
    parcel.bytes.insert(parcel.bytes.end(), first, first + size);
  }
}

bool readBytes(Parcel &parcel, void *out, size_t size) {
  if (parcel.bytes.size() - parcel.readOffset < size) {
    return false;
  }
  std::memcpy(out, parcel.bytes.data() + parcel.readOffset, size);
  parcel.readOffset += size;
  return true;
}

void appendString(Parcel &parcel, const char *text) {
  const size_t length = std::strlen(text) + 1;
  appendValue(parcel, static_cast<int32_t>(length));
  appendBytes(parcel, text, length);
}

char *readString(Parcel &parcel) {
  const size_t left = parcel.bytes.size() - parcel.readOffset;
  int32_t count = 0;
  if (left < sizeof count) {
    return nullptr;
  }
  std::memcpy(&count, parcel.bytes.data() + parcel.readOffset, sizeof count);
  if (count <= 0 || static_cast<size_t>(count) > left - sizeof count) {
    return nullptr;
  }
  const uint8_t *first = parcel.bytes.data() + parcel.readOffset + sizeof count;
  if (first[count - 1] != '\0') {
    return nullptr;
  }
  char *copy = static_cast<char *>(std::malloc(count));
  if (copy != nullptr) {
    std::memcpy(copy, first, count);
    parcel.readOffset += sizeof count + count;
  }
  return copy;
}

}  // namespace platform
