#include "Parcel.h"

#include <cstdlib>
#include <cstring>
#include <new>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the wire format is little-endian");

namespace {

constexpr int kCachedParcels = 8;

// Freed parcels kept by this thread for its next ones. Plain data, so that reaching it is one
// load (initial-exec: the library is loaded with the program) with no initialisation guard.
struct ParcelCache {
  void *blocks[kCachedParcels];
  int count;
  // 0 until the cache first keeps a parcel, 1 while it may (its release at thread exit is
  // registered), 2 once released.
  int state;
};

thread_local ParcelCache parcelCache __attribute__((tls_model("initial-exec")));

constexpr int kCacheOpen = 1;
constexpr int kCacheReleased = 2;

// Frees the cached parcels when the thread ends; parcels freed after that go to the heap.
struct CacheRelease {
  CacheRelease() = default;
  CacheRelease(const CacheRelease &) = delete;
  CacheRelease &operator=(const CacheRelease &) = delete;
  ~CacheRelease() {
    while (parcelCache.count > 0) {
      ::operator delete(parcelCache.blocks[--parcelCache.count]);
    }
    parcelCache.state = kCacheReleased;
  }
};

__attribute__((noinline)) bool openCache() {
  if (parcelCache.state == kCacheReleased) {
    return false;
  }
  static thread_local CacheRelease release;
  static_cast<void>(&release);
  parcelCache.state = kCacheOpen;
  return true;
}

void *takeCached() {
  ParcelCache &cache = parcelCache;
  return cache.count > 0 ? cache.blocks[--cache.count] : nullptr;
}

bool keepCached(void *block) {
  ParcelCache &cache = parcelCache;
  if (cache.count == kCachedParcels || (cache.state != kCacheOpen && !openCache())) {
    return false;
  }
  cache.blocks[cache.count++] = block;
  return true;
}

}  // namespace

void *rpc_port_parcel_s::operator new(size_t size) {
  void *block = size == sizeof(rpc_port_parcel_s) ? takeCached() : nullptr;
  return block != nullptr ? block : ::operator new(size);
}

void *rpc_port_parcel_s::operator new(size_t size, const std::nothrow_t &) noexcept {
  void *block = size == sizeof(rpc_port_parcel_s) ? takeCached() : nullptr;
  return block != nullptr ? block : ::operator new(size, std::nothrow);
}

void rpc_port_parcel_s::operator delete(void *block) noexcept {
  if (block != nullptr && !keepCached(block)) {
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
