#include "ByteBuffer.h"

#include <cstring>

namespace platform {

namespace {

// An empty buffer keeps up to this much storage for the next frames; a larger one (grown for a
// big frame) is released so an idle connection does not hold it.
constexpr size_t kKeptCapacity = size_t{1} << 20;

}  // namespace

uint8_t *ByteBuffer::reserveTail(size_t bytes) {
  if (capacity_ - end_ >= bytes) {
    return storage_.get() + end_;
  }
  const size_t used = size();
  if (capacity_ - used >= bytes && begin_ > 0) {
    // Enough room once the consumed head is reclaimed.
    std::memmove(storage_.get(), storage_.get() + begin_, used);
  } else {
    size_t capacity = capacity_ == 0 ? bytes : capacity_;
    while (capacity - used < bytes) {
      capacity *= 2;
    }
    std::unique_ptr<uint8_t[]> grown(new uint8_t[capacity]);
    if (used > 0) {
      std::memcpy(grown.get(), storage_.get() + begin_, used);
    }
    storage_ = std::move(grown);
    capacity_ = capacity;
  }
  begin_ = 0;
  end_ = used;
  return storage_.get() + end_;
}

void ByteBuffer::consume(size_t bytes) {
  begin_ += bytes;
  if (begin_ == end_) {
    begin_ = 0;
    end_ = 0;
    if (capacity_ > kKeptCapacity) {
      storage_.reset();
      capacity_ = 0;
    }
  }
}

}  // namespace platform
