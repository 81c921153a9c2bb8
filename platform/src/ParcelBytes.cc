#include "ParcelBytes.h"

#include <new>
#include <utility>

namespace platform {

ParcelBytes::ParcelBytes(ParcelBytes &&other) noexcept : ParcelBytes() {
  *this = std::move(other);
}

ParcelBytes &ParcelBytes::operator=(const ParcelBytes &other) {
  if (this != &other) {
    assign(other.data(), other.end());
  }
  return *this;
}

ParcelBytes &ParcelBytes::operator=(ParcelBytes &&other) noexcept {
  if (this == &other) {
    return *this;
  }
  release();
  if (other.onHeap()) {
    data_ = other.data_;
    capacity_ = other.capacity_;
    other.data_ = other.inline_;
    other.capacity_ = kInlineCapacity;
  } else {
    std::memcpy(inline_, other.inline_, other.size_);
  }
  size_ = other.size_;
  other.size_ = 0;
  return *this;
}

void ParcelBytes::assign(const uint8_t *first, const uint8_t *last) {
  const auto count = static_cast<size_t>(last - first);
  size_ = 0;
  if (count != 0) {
    std::memcpy(extend(count), first, count);
  }
}

void ParcelBytes::grow(size_t count) {
  size_t capacity = capacity_ * 2;
  while (capacity - size_ < count) {
    capacity *= 2;
  }
  auto *grown = new uint8_t[capacity];
  std::memcpy(grown, data_, size_);
  release();
  data_ = grown;
  capacity_ = capacity;
}

void ParcelBytes::pushGrowing(uint8_t byte) {
  grow(1);
  data_[size_++] = byte;
}

void ParcelBytes::release() {
  if (onHeap()) {
    delete[] data_;
    data_ = inline_;
    capacity_ = kInlineCapacity;
  }
}

}  // namespace platform
