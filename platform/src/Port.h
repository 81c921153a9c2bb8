// One end of a connection: a non-blocking Unix stream socket with a read buffer and a send lock.
//
// Each parcel travels as one frame: a 32-bit little-endian body length, then the body. A length
// over kMaxFrameBody, or a stream that ends inside a frame, breaks the connection.
//
// Reads come from two places and share the buffer: the event loop pulls whatever the socket has
// (fillAvailable) and hands each complete frame to the application, and create_from_port takes the
// next frame (receive), from the buffer when one is there, else by polling the socket itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>

#include "ByteBuffer.h"
#include "Parcel.h"
#include "UniqueFd.h"

namespace platform {

constexpr size_t kFrameHeader = 4;
constexpr size_t kMaxFrameBody = size_t{16} << 20;

enum class FrameState { kComplete, kIncomplete, kBroken };

class Port {
 public:
  Port(UniqueFd fd, int timeoutMs);
  Port(const Port &) = delete;
  Port &operator=(const Port &) = delete;
  ~Port() = default;

  int fd() const { return fd_.get(); }

  // Sends `body` as one frame; RPC_PORT_ERROR_NONE or RPC_PORT_ERROR_IO_ERROR.
  int send(const uint8_t *body, size_t size);
  // Blocks until one whole frame is in `out`; RPC_PORT_ERROR_IO_ERROR at end of stream, on a
  // broken frame or after the port's read timeout.
  int receive(Parcel &out);

  // Reads what the socket holds now, without blocking; false once the stream has ended or failed.
  bool fillAvailable();
  FrameState bufferedFrame();
  // Drops the next buffered frame (one nobody took).
  void dropFrame();
  // Counts the frames taken so far, so a dispatcher can tell whether its callback took one.
  uint64_t framesTaken();

  // Ends both directions: the peer sees end of stream, local pollers wake with a hang-up.
  void shutdown();
  // Closes the socket; later sends and reads fail.
  void close();

 private:
  FrameState peekFrame(size_t *bodySize) const;
  void takeFrame(Parcel &out, size_t bodySize);
  // One read() into the buffer: >0 bytes read, 0 end of stream, <0 nothing now (-EAGAIN) or error.
  ssize_t readChunk();
  int sendLocked(const uint8_t *body, size_t size);

  std::mutex sendMutex_;
  std::mutex readMutex_;
  UniqueFd fd_;
  ByteBuffer buffer_;
  uint64_t framesTaken_ = 0;
  bool ended_ = false;
  const int timeoutMs_;
};

}  // namespace platform
