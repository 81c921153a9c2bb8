// A growable byte queue: bytes are appended at the tail and consumed from the head. Used as a
// socket's read buffer, so it never zero-fills what a read() is about to overwrite.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace platform {

class ByteBuffer {
 public:
  const uint8_t *data() const { return storage_.get() + begin_; }
  size_t size() const { return end_ - begin_; }

  // Makes room for at least `bytes` more at the tail and returns where they go.
  uint8_t *reserveTail(size_t bytes);
  // Marks `bytes` written at the tail (after reserveTail).
  void commitTail(size_t bytes) { end_ += bytes; }
  // Drops `bytes` from the head.
  void consume(size_t bytes);
  size_t tailRoom() const { return capacity_ - end_; }

 private:
  std::unique_ptr<uint8_t[]> storage_;
  size_t capacity_ = 0;
  size_t begin_ = 0;
  size_t end_ = 0;
};

}  // namespace platform
