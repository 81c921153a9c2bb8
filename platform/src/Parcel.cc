#include "Parcel.h"

#include <cstdlib>
#include <cstring>
#include <new>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the wire format is little-endian");

namespace {

// Freed parcels kept by this thread for its next ones; released when the thread ends.
class ParcelCache {
 public:
  ParcelCache() = default;
  ParcelCache(const ParcelCache &) = delete;
  ParcelCache &operator=(const ParcelCache &) = delete;
  ~ParcelCache() {
    while (count_ > 0) {
      ::operator delete(blocks_[--count_]);
    }
  }

  void *take() { return count_ > 0 ? blocks_[--count_] : nullptr; }
  bool keep(void *block) {
    if (count_ == kCapacity) {
      return false;
    }
    blocks_[count_++] = block;
    return true;
  }

 private:
  static constexpr int kCapacity = 8;
  void *blocks_[kCapacity] = {};
  int count_ = 0;
};

// initial-exec: the library is loaded with the program, so an access is a single load.
thread_local ParcelCache parcelCache __attribute__((tls_model("initial-exec")));

}  // namespace

void *rpc_port_parcel_s::operator new(size_t size) {
  void *block = size == sizeof(rpc_port_parcel_s) ? parcelCache.take() : nullptr;
  return block != nullptr ? block : ::operator new(size);
}

void *rpc_port_parcel_s::operator new(size_t size, const std::nothrow_t &) noexcept {
  void *block = size == sizeof(rpc_port_parcel_s) ? parcelCache.take() : nullptr;
  return block != nullptr ? block : ::operator new(size, std::nothrow);
}

void rpc_port_parcel_s::operator delete(void *block) noexcept {
  if (block != nullptr && !parcelCache.keep(block)) {
    ::operator delete(block);
  }
}

namespace platform {

void appendString(Parcel &parcel, const char *text) {
  const size_t length = std::strlen(text) + 1;
  appendValue(parcel, static_cast<int32_t>(length));
  appendBytes(parcel, text, length);
}

char *readString(Parcel &parcel) {
  const size_t left = bytesLeft(parcel);
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
