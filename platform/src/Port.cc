#include "Port.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

namespace platform {

namespace {

constexpr size_t kReadChunk = size_t{64} << 10;
// The event loop stops pulling once this much is buffered and no frame needs more, so a peer
// that never stops sending cannot keep the loop in one wake-up or grow the buffer without end.
constexpr size_t kFillLimit = size_t{4} << 20;

using Clock = std::chrono::steady_clock;

// Rounded up, so a wait never ends before its deadline.
int remainingMs(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

// Polls `fd` for `events` until `deadline`; true when it is ready (or hung up).
bool pollUntil(int fd, short events, Clock::time_point deadline) {
  for (;;) {
    pollfd entry{fd, events, 0};
    const int ready = ::poll(&entry, 1, remainingMs(deadline));
    if (ready > 0) {
      return true;
    }
    if ((ready == 0 && Clock::now() >= deadline) || (ready < 0 && errno != EINTR)) {
      return false;
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

int Port::send(const uint8_t *body, size_t size) {
  std::lock_guard<std::mutex> lock(sendMutex_);
  return sendLocked(body, size);
}

int Port::sendLocked(const uint8_t *body, size_t size) {
  if (fd_.get() < 0 || size > kMaxFrameBody) {
    return RPC_PORT_ERROR_IO_ERROR;
  }
  const auto length = static_cast<uint32_t>(size);
  uint8_t header[kFrameHeader];
  std::memcpy(header, &length, sizeof header);
  iovec parts[2] = {{header, sizeof header}, {const_cast<uint8_t *>(body), size}};
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = 2;
  size_t left = sizeof header + size;
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs_);
  while (left > 0) {
    const ssize_t sent = ::sendmsg(fd_.get(), &message, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) {
      continue;
    }
    if (sent < 0 && errno == EAGAIN && pollUntil(fd_.get(), POLLOUT, deadline)) {
      continue;
    }
    if (sent < 0) {
      // A partly written frame would desynchronise the peer: the connection is over.
      ::shutdown(fd_.get(), SHUT_RDWR);
      return RPC_PORT_ERROR_IO_ERROR;
    }
    left -= static_cast<size_t>(sent);
    skipSent(message, static_cast<size_t>(sent));
  }
  return RPC_PORT_ERROR_NONE;
}

int Port::receive(Parcel &out) {
  std::lock_guard<std::mutex> lock(readMutex_);
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs_);
  for (;;) {
    size_t bodySize = 0;
    const FrameState state = peekFrame(&bodySize);
    if (state == FrameState::kComplete) {
      takeFrame(out, bodySize);
      return RPC_PORT_ERROR_NONE;
    }
    if (state == FrameState::kBroken || ended_ || fd_.get() < 0) {
      shutdown();
      return RPC_PORT_ERROR_IO_ERROR;
    }
    const ssize_t got = readChunk();
    if (got == 0 || (got < 0 && got != -EAGAIN)) {
      ended_ = true;
    } else if (got == -EAGAIN && !pollUntil(fd_.get(), POLLIN, deadline)) {
      return RPC_PORT_ERROR_IO_ERROR;
    }
  }
}

bool Port::fillAvailable() {
  std::lock_guard<std::mutex> lock(readMutex_);
  while (!ended_ && fd_.get() >= 0) {
    size_t bodySize = 0;
    const FrameState state = peekFrame(&bodySize);
    if (state == FrameState::kBroken ||
        (buffer_.size() >= kFillLimit && state == FrameState::kComplete)) {
      break;
    }
    const ssize_t got = readChunk();
    if (got == -EAGAIN) {
      break;
    }
    if (got <= 0) {
      ended_ = true;
    }
  }
  return !ended_ && fd_.get() >= 0;
}

FrameState Port::bufferedFrame() {
  std::lock_guard<std::mutex> lock(readMutex_);
  size_t bodySize = 0;
  return peekFrame(&bodySize);
}

void Port::dropFrame() {
  std::lock_guard<std::mutex> lock(readMutex_);
  size_t bodySize = 0;
  if (peekFrame(&bodySize) == FrameState::kComplete) {
    buffer_.consume(kFrameHeader + bodySize);
  }
}

uint64_t Port::framesTaken() {
  std::lock_guard<std::mutex> lock(readMutex_);
  return framesTaken_;
}

void Port::shutdown() {
  if (fd_.get() >= 0) {
    ::shutdown(fd_.get(), SHUT_RDWR);
  }
}

void Port::close() {
  std::lock_guard<std::mutex> sendLock(sendMutex_);
  std::lock_guard<std::mutex> readLock(readMutex_);
  fd_.reset();
  buffer_ = ByteBuffer();
  ended_ = true;
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
  ++framesTaken_;
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
