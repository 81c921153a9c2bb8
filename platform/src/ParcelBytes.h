// The bytes of a parcel: small bodies (every request and event of the agent protocol) live inside
// the parcel itself, larger ones on the heap. Appending one value is a bounds check and a store.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace platform {

class ParcelBytes {
 public:
  static constexpr size_t kInlineCapacity = 224;

  ParcelBytes() noexcept : data_(inline_) {}
  ParcelBytes(const ParcelBytes &other) : ParcelBytes() { assign(other.data(), other.end()); }
  ParcelBytes(ParcelBytes &&other) noexcept;
  ParcelBytes &operator=(const ParcelBytes &other);
  ParcelBytes &operator=(ParcelBytes &&other) noexcept;
  ~ParcelBytes() {
    if (onHeap()) {
      release();
    }
  }

  const uint8_t *data() const { return data_; }
  const uint8_t *end() const { return data_ + size_; }
  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  // Replaces the contents with [first, last).
  void assign(const uint8_t *first, const uint8_t *last);

  // Room for `count` more bytes at the end, counted as written; returns where they go.
  uint8_t *extend(size_t count) {
    if (capacity_ - size_ < count) {
      grow(count);
    }
    uint8_t *at = data_ + size_;
    size_ += count;
    return at;
  }

  void push(uint8_t byte) {
    if (!tryPush(byte)) {
      pushGrowing(byte);
    }
  }

  // Appends `byte` when there is room; false (and nothing done) when the storage is full.
  bool tryPush(uint8_t byte) {
    if (size_ == capacity_) {
      return false;
    }
    data_[size_++] = byte;
    return true;
  }

  // Grows the storage, then appends `byte`: the rare path of push, kept out of line.
  void pushGrowing(uint8_t byte);

 private:
  // Makes room for `count` more bytes; throws std::bad_alloc when it cannot.
  void grow(size_t count);
  void release();
  bool onHeap() const { return data_ != inline_; }

  uint8_t *data_;
  size_t size_ = 0;
  size_t capacity_ = kInlineCapacity;
  uint8_t inline_[kInlineCapacity];
};

}  // namespace platform
