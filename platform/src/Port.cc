#include "Port.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <optional>

namespace platform {

namespace {

constexpr size_t kReadChunk = size_t{64} << 10;
// The event loop stops pulling once this much is buffered and no frame needs more, so a peer
// that never stops sending cannot keep the loop in one wake-up or grow the buffer without end.
constexpr size_t kFillLimit = size_t{4} << 20;
// Queued frames written by one sendmsg at most.
constexpr size_t kFlushParts = 64;

using Clock = std::chrono::steady_clock;

// Rounded up, so a wait never ends before its deadline.
int remainingMs(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

// One non-blocking sendmsg: bytes written, or -EAGAIN when the socket is full, or another -errno.
ssize_t sendSome(int fd, const msghdr &message) {
  for (;;) {
    const ssize_t sent = ::sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent >= 0) {
      return sent;
    }
    if (errno != EINTR) {
      return errno == EWOULDBLOCK ? -EAGAIN : -errno;
    }
  }
}

// Moves the message past `sent` bytes, dropping the parts written completely.
void skipSent(msghdr &message, size_t sent) {
  while (sent > 0) {
    iovec &part = message.msg_iov[0];
    const size_t step = std::min(sent, part.iov_len);
    part.iov_base = static_cast<uint8_t *>(part.iov_base) + step;
    part.iov_len -= step;
    sent -= step;
    if (part.iov_len == 0 && message.msg_iovlen > 1) {
      ++message.msg_iov;
      --message.msg_iovlen;
    }
  }
}

}  // namespace

Port::Port(UniqueFd fd, int timeoutMs) : fd_(std::move(fd)), timeoutMs_(timeoutMs) {}

void Port::queueSends(size_t limit, std::function<void()> wake) {
  std::lock_guard<FutexLock> lock(sendMutex_);
  queueLimit_ = limit;
  wake_ = std::move(wake);
}

void Port::drainWhileBlocked(Port *side, std::function<void()> pulled) {
  side_ = side;
  pulled_ = std::move(pulled);
}

void Port::cork(bool corked) {
  std::lock_guard<FutexLock> lock(sendMutex_);
  corked_ = corked;
  if (!corked && !held_.empty()) {
    sendHeld();
  }
}

// The held frames in one write when nothing is queued before them; what is left joins the queue.
void Port::sendHeld() {
  size_t sent = 0;
  if (queue_.empty() && fd_.get() >= 0 && !broken_) {
    iovec part = {held_.data(), held_.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    const ssize_t written = sendSome(fd_.get(), message);
    if (written < 0 && written != -EAGAIN) {
      breakConnection();
    }
    sent = written > 0 ? static_cast<size_t>(written) : 0;
  }
  queuedBytes_ -= sent;
  if (sent < held_.size()) {
    queue_.emplace_back(held_.begin() + static_cast<std::ptrdiff_t>(sent), held_.end());
  }
  // Cleared, not released: the next burst reuses the room.
  held_.clear();
}

int Port::refuseOverflow() {
  // The peer does not keep up: holding more would only grow this process.
  breakConnection();
  wake_();
  return RPC_PORT_ERROR_IO_ERROR;
}

int Port::send(const uint8_t *body, size_t size) {
  std::lock_guard<FutexLock> lock(sendMutex_);
  if (fd_.get() < 0 || broken_ || size > kMaxFrameBody) {
    return RPC_PORT_ERROR_IO_ERROR;
  }
  return wake_ ? sendQueued(body, size) : sendBlocking(body, size);
}

int Port::sendBlocking(const uint8_t *body, size_t size) {
  const auto length = static_cast<uint32_t>(size);
  uint8_t header[kFrameHeader];
  std::memcpy(header, &length, sizeof header);
  iovec parts[2] = {{header, sizeof header}, {const_cast<uint8_t *>(body), size}};
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = 2;
  size_t left = sizeof header + size;
  std::optional<Clock::time_point> deadline;
  while (left > 0) {
    const ssize_t sent = ::sendmsg(fd_.get(), &message, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) {
      continue;
    }
    if (sent < 0 && errno == EAGAIN && waitFor(POLLOUT, deadline)) {
      continue;
    }
    if (sent < 0) {
      // A partly written frame would desynchronise the peer: the connection is over.
      breakConnection();
      return RPC_PORT_ERROR_IO_ERROR;
    }
    left -= static_cast<size_t>(sent);
    if (left > 0) {
      skipSent(message, static_cast<size_t>(sent));
    }
  }
  return RPC_PORT_ERROR_NONE;
}

// Writes at once only when nothing is queued, so frames keep their order; a corked port holds the
// frame instead.
int Port::sendQueued(const uint8_t *body, size_t size) {
  const auto length = static_cast<uint32_t>(size);
  uint8_t header[kFrameHeader];
  std::memcpy(header, &length, sizeof header);
  const size_t total = kFrameHeader + size;
  if (corked_) {
    if (queuedBytes_ + total > queueLimit_) {
      return refuseOverflow();
    }
    held_.insert(held_.end(), header, header + kFrameHeader);
    held_.insert(held_.end(), body, body + size);
    queuedBytes_ += total;
    return RPC_PORT_ERROR_NONE;
  }
  size_t sent = 0;
  if (queue_.empty()) {
    iovec parts[2] = {{header, sizeof header}, {const_cast<uint8_t *>(body), size}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    const ssize_t written = sendSome(fd_.get(), message);
    if (written < 0 && written != -EAGAIN) {
      breakConnection();
      return RPC_PORT_ERROR_IO_ERROR;
    }
    sent = written > 0 ? static_cast<size_t>(written) : 0;
  }
  if (sent == total) {
    return RPC_PORT_ERROR_NONE;
  }
  if (queuedBytes_ + total - sent > queueLimit_) {
    return refuseOverflow();
  }
  std::vector<uint8_t> rest;
  rest.reserve(total - sent);
  if (sent < kFrameHeader) {
    rest.insert(rest.end(), header + sent, header + kFrameHeader);
    rest.insert(rest.end(), body, body + size);
  } else {
    rest.insert(rest.end(), body + (sent - kFrameHeader), body + size);
  }
  queuedBytes_ += rest.size();
  const bool first = queue_.empty();
  queue_.push_back(std::move(rest));
  if (first) {
    wake_();
  }
  return RPC_PORT_ERROR_NONE;
}

FlushResult Port::flush() {
  std::lock_guard<FutexLock> lock(sendMutex_);
  if (fd_.get() < 0 || broken_) {
    queue_.clear();
    queuedBytes_ = 0;
    return FlushResult::kFailed;
  }
  while (!queue_.empty()) {
    iovec parts[kFlushParts];
    size_t count = 0;
    for (auto frame = queue_.begin(); frame != queue_.end() && count < kFlushParts; ++frame) {
      const size_t skip = count == 0 ? queueHeadSent_ : 0;
      parts[count++] = {frame->data() + skip, frame->size() - skip};
    }
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = count;
    const ssize_t written = sendSome(fd_.get(), message);
    if (written == -EAGAIN) {
      return FlushResult::kPending;
    }
    if (written < 0) {
      breakConnection();
      return FlushResult::kFailed;
    }
    consumeQueue(static_cast<size_t>(written));
  }
  return FlushResult::kDone;
}

size_t Port::queuedBytes() {
  std::lock_guard<FutexLock> lock(sendMutex_);
  return queuedBytes_;
}

void Port::consumeQueue(size_t bytes) {
  queuedBytes_ -= bytes;
  while (bytes > 0) {
    const size_t left = queue_.front().size() - queueHeadSent_;
    if (bytes < left) {
      queueHeadSent_ += bytes;
      return;
    }
    bytes -= left;
    queue_.pop_front();
    queueHeadSent_ = 0;
  }
}

bool Port::waitFor(short events, Clock::time_point deadline, int waitMs) {
  bool sideOpen = side_ != nullptr;
  for (;; waitMs = remainingMs(deadline)) {
    pollfd entries[2] = {{fd_.get(), events, 0}, {sideOpen ? side_->fd() : -1, POLLIN, 0}};
    const int ready = ::poll(entries, sideOpen ? 2 : 1, waitMs);
    if (ready > 0 && entries[1].revents != 0) {
      sideOpen = pullSide();
    }
    if (ready > 0 && entries[0].revents != 0) {
      return true;
    }
    if (ready > 0) {
      continue;
    }
    if ((ready == 0 && Clock::now() >= deadline) || (ready < 0 && errno != EINTR)) {
      return false;
    }
  }
}

bool Port::waitFor(short events, std::optional<Clock::time_point> &deadline) {
  if (!deadline) {
    // The whole timeout is left: the first wait needs no second look at the clock.
    deadline = Clock::now() + std::chrono::milliseconds(timeoutMs_);
    return waitFor(events, *deadline, timeoutMs_);
  }
  return waitFor(events, *deadline, remainingMs(*deadline));
}

// False once the side port has nothing more to give (ended or broken).
bool Port::pullSide() {
  const bool open = side_->fillAvailable(false);
  pulled_();
  return open;
}

int Port::receive(Parcel &out) {
  std::lock_guard<FutexLock> lock(readMutex_);
  std::optional<Clock::time_point> deadline;
  for (;;) {
    size_t bodySize = 0;
    const FrameState state = peekFrame(&bodySize);
    if (state == FrameState::kComplete && !broken_) {
      takeFrame(out, bodySize);
      return RPC_PORT_ERROR_NONE;
    }
    if (state == FrameState::kBroken || ended_ || broken_ || fd_.get() < 0) {
      breakConnection();
      return RPC_PORT_ERROR_IO_ERROR;
    }
    // The frame asked for is a reply still on its way: waiting first saves a read that would
    // find nothing.
    if (!waitFor(POLLIN, deadline)) {
      // Whatever comes later belongs to this read, not to the next one.
      breakConnection();
      return RPC_PORT_ERROR_IO_ERROR;
    }
    const ssize_t got = readChunk();
    if (got == 0 || (got < 0 && got != -EAGAIN)) {
      ended_ = true;
    }
  }
}

bool Port::fillAvailable(bool bounded) {
  std::lock_guard<FutexLock> lock(readMutex_);
  while (!ended_ && fd_.get() >= 0) {
    size_t bodySize = 0;
    const FrameState state = peekFrame(&bodySize);
    if (state == FrameState::kBroken ||
        (bounded && buffer_.size() >= kFillLimit && state == FrameState::kComplete)) {
      break;
    }
    const ssize_t got = readChunk();
    // A read that left room in the buffer found the socket empty: reading on would only get
    // -EAGAIN, one system call per wake-up for nothing.
    if (got == -EAGAIN || (got > 0 && buffer_.tailRoom() > 0)) {
      break;
    }
    if (got <= 0) {
      ended_ = true;
    }
  }
  return !ended_ && fd_.get() >= 0;
}

FrameState Port::bufferedFrame() {
  std::lock_guard<FutexLock> lock(readMutex_);
  size_t bodySize = 0;
  return peekFrame(&bodySize);
}

void Port::dropFrame() {
  std::lock_guard<FutexLock> lock(readMutex_);
  size_t bodySize = 0;
  if (peekFrame(&bodySize) == FrameState::kComplete) {
    buffer_.consume(kFrameHeader + bodySize);
  }
}

void Port::shutdown() {
  if (fd_.get() >= 0) {
    ::shutdown(fd_.get(), SHUT_RDWR);
  }
}

void Port::breakConnection() {
  broken_ = true;
  shutdown();
}

void Port::close() {
  std::lock_guard<FutexLock> sendLock(sendMutex_);
  std::lock_guard<FutexLock> readLock(readMutex_);
  fd_.reset();
  buffer_ = ByteBuffer();
  ended_ = true;
  queue_.clear();
  held_.clear();
  queuedBytes_ = 0;
}

FrameState Port::peekFrame(size_t *bodySize) const {
  if (buffer_.size() < kFrameHeader) {
    return FrameState::kIncomplete;
  }
  uint32_t length = 0;
  std::memcpy(&length, buffer_.data(), sizeof length);
  if (length > kMaxFrameBody) {
    return FrameState::kBroken;
  }
  *bodySize = length;
  return buffer_.size() - kFrameHeader >= length ? FrameState::kComplete : FrameState::kIncomplete;
}

void Port::takeFrame(Parcel &out, size_t bodySize) {
  const uint8_t *body = buffer_.data() + kFrameHeader;
  out.bytes.assign(body, body + bodySize);
  out.readOffset = 0;
  buffer_.consume(kFrameHeader + bodySize);
  framesTaken_.fetch_add(1, std::memory_order_release);
}

ssize_t Port::readChunk() {
  size_t want = kReadChunk;
  size_t bodySize = 0;
  if (peekFrame(&bodySize) == FrameState::kIncomplete && buffer_.size() >= kFrameHeader) {
    // Room for the rest of the current frame in one go.
    const size_t missing = kFrameHeader + bodySize - buffer_.size();
    want = missing > want ? missing : want;
  }
  uint8_t *tail = buffer_.reserveTail(want);
  for (;;) {
    const ssize_t got = ::recv(fd_.get(), tail, buffer_.tailRoom(), MSG_DONTWAIT);
    if (got > 0) {
      buffer_.commitTail(static_cast<size_t>(got));
    }
    if (got >= 0) {
      return got;
    }
    if (errno != EINTR) {
      return errno == EWOULDBLOCK ? -EAGAIN : -errno;
    }
  }
}

}  // namespace platform
