// One end of a connection: a non-blocking Unix stream socket with a read buffer and a send lock.
//
// Each parcel travels as one frame: a 32-bit little-endian body length, then the body. A length
// over kMaxFrameBody, or a stream that ends inside a frame, breaks the connection.
//
// Reads come from two places and share the buffer: the event loop pulls whatever the socket has
// (fillAvailable) and hands each complete frame to the application, and create_from_port takes the
// next frame (receive), from the buffer when one is there, else by polling the socket itself. A
// receive that gives up breaks the connection, so a late frame can never answer a later read.
//
// Sends either block until the frame is written (the default) or, after queueSends(), write what
// the socket takes at once and queue the rest for the owner's event loop to flush().
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

#include "ByteBuffer.h"
#include "FutexLock.h"
#include "Parcel.h"
#include "UniqueFd.h"

namespace platform {

constexpr size_t kFrameHeader = 4;
constexpr size_t kMaxFrameBody = size_t{16} << 20;

enum class FrameState { kComplete, kIncomplete, kBroken };
enum class FlushResult { kDone, kPending, kFailed };

class Port {
 public:
  Port(UniqueFd fd, int timeoutMs);
  Port(const Port &) = delete;
  Port &operator=(const Port &) = delete;
  ~Port() = default;

  int fd() const { return fd_.get(); }

  // Sends never block from now on: what the socket does not take at once is queued, and `wake`
  // (called on the sending thread) asks the owner's loop to flush(). A queue that would pass
  // `limit` bytes breaks the connection instead.
  void queueSends(size_t limit, std::function<void()> wake);
  // While a send or receive here waits, whatever `side` can read is pulled into its buffer (so a
  // peer writing to it is never stuck behind this wait); `pulled` is called after each pull.
  void drainWhileBlocked(Port *side, std::function<void()> pulled);

  // With queued sends: while corked, frames are held back, and uncorking writes them all at
  // once (queueing what the socket does not take), so that the frames of one burst leave in one
  // write instead of one each.
  void cork(bool corked);
  // Sends `body` as one frame; RPC_PORT_ERROR_NONE or RPC_PORT_ERROR_IO_ERROR.
  int send(const uint8_t *body, size_t size);
  // Writes queued frames until the queue is empty (kDone) or the socket is full (kPending);
  // kFailed once the connection is broken.
  FlushResult flush();
  // Bytes of queued frames not written yet.
  size_t queuedBytes();
  // Blocks until one whole frame is in `out`; RPC_PORT_ERROR_IO_ERROR at end of stream, on a
  // broken frame or after the port's read timeout, each of which breaks the connection.
  int receive(Parcel &out);

  // Reads what the socket holds now, without blocking; false once the stream has ended or failed.
  // `bounded` stops early once a few MiB are buffered and a frame is complete.
  bool fillAvailable(bool bounded = true);
  FrameState bufferedFrame();
  // Drops the next buffered frame (one nobody took).
  void dropFrame();
  // Counts the frames taken so far, so a dispatcher can tell whether its callback took one. Read
  // without the read lock: it only ever grows, and one frame is counted once it has been taken.
  uint64_t framesTaken() const { return framesTaken_.load(std::memory_order_acquire); }

  // Ends both directions: the peer sees end of stream, local pollers wake with a hang-up.
  void shutdown();
  // Shuts the connection down for good: every later send and read fails.
  void breakConnection();
  bool broken() const { return broken_; }
  // Closes the socket; later sends and reads fail.
  void close();

 private:
  FrameState peekFrame(size_t *bodySize) const;
  void takeFrame(Parcel &out, size_t bodySize);
  // One read() into the buffer: >0 bytes read, 0 end of stream, <0 nothing now (-EAGAIN) or error.
  ssize_t readChunk();
  int sendBlocking(const uint8_t *body, size_t size);
  int sendQueued(const uint8_t *body, size_t size);
  void sendHeld();
  // Breaks the connection of a queue that would pass its limit; RPC_PORT_ERROR_IO_ERROR.
  int refuseOverflow();
  // Waits until the socket is ready for `events` or `deadline` passes, draining the side port;
  // `waitMs` is the time left until `deadline` when called.
  bool waitFor(short events, std::chrono::steady_clock::time_point deadline, int waitMs);
  // The same, with the port's timeout counted from the first wait of a send or read: `deadline`
  // is set then, so that one that never waits reads no clock.
  bool waitFor(short events, std::optional<std::chrono::steady_clock::time_point> &deadline);
  bool pullSide();
  void consumeQueue(size_t bytes);

  FutexLock sendMutex_;
  std::deque<std::vector<uint8_t>> queue_;
  size_t queueHeadSent_ = 0;
  size_t queuedBytes_ = 0;
  size_t queueLimit_ = 0;
  bool corked_ = false;
  // Frames sent while corked, back to back, headers included.
  std::vector<uint8_t> held_;
  std::function<void()> wake_;
  Port *side_ = nullptr;
  std::function<void()> pulled_;
  std::atomic<bool> broken_{false};
  FutexLock readMutex_;
  UniqueFd fd_;
  ByteBuffer buffer_;
  std::atomic<uint64_t> framesTaken_{0};
  bool ended_ = false;
  const int timeoutMs_;
};

}  // namespace platform
