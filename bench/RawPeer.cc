#include "RawPeer.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace bench {

namespace {

constexpr char kRequestKind = 'r';
constexpr char kRoundKind = 'd';

// Moves exactly `size` bytes with `transfer` (read or write), retrying after a signal; false at
// end of stream or on an error.
template <typename Byte, typename Transfer>
bool transferAll(int fd, Byte *data, size_t size, Transfer transfer) {
  while (size > 0) {
    const ssize_t done = transfer(fd, data, size);
    if (done < 0 && errno == EINTR) {
      continue;
    }
    if (done <= 0) {
      return false;
    }
    data += done;
    size -= static_cast<size_t>(done);
  }
  return true;
}

bool writeAll(int fd, const uint8_t *data, size_t size) {
  return transferAll(fd, data, size, ::write);
}

// Reads exactly `size` bytes into `buffer` (blocking).
bool readAll(int fd, uint8_t *buffer, size_t size) {
  return transferAll(fd, buffer, size, ::read);
}

// A frame of `size` bytes: its body length, then `kind` and filler.
std::vector<uint8_t> frame(size_t size, char kind) {
  std::vector<uint8_t> bytes(size, 0x5a);
  const auto body = static_cast<uint32_t>(size - 4);
  std::memcpy(bytes.data(), &body, sizeof body);
  bytes[4] = static_cast<uint8_t>(kind);
  return bytes;
}

// The child: answers every request frame, with `events` event frames after a round's reply.
[[noreturn]] void serve(int fd, int events) {
  const std::vector<uint8_t> reply = frame(kReplyFrame, 0);
  const std::vector<uint8_t> event = frame(kEventFrame, 1);
  uint8_t request[kRequestFrame];
  while (readAll(fd, request, sizeof request)) {
    bool ok = writeAll(fd, reply.data(), reply.size());
    for (int index = 0; ok && request[4] == kRoundKind && index < events; ++index) {
      ok = writeAll(fd, event.data(), event.size());
    }
    if (!ok) {
      break;
    }
  }
  ::_exit(0);
}

}  // namespace

RawPeer::RawPeer(int events) : events_(events) {
  int fds[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) {
    throw std::runtime_error("socketpair failed");
  }
  child_ = ::fork();
  if (child_ == 0) {
    ::close(fds[0]);
    serve(fds[1], events);
  }
  ::close(fds[1]);
  fd_ = fds[0];
  if (child_ < 0) {
    ::close(fd_);
    throw std::runtime_error("fork failed");
  }
}

RawPeer::~RawPeer() {
  ::close(fd_);
  ::kill(child_, SIGTERM);
  ::waitpid(child_, nullptr, 0);
}

void RawPeer::request() {
  exchange(kRequestKind, kReplyFrame);
}

void RawPeer::discoveryRound() {
  exchange(kRoundKind, kReplyFrame + static_cast<size_t>(events_) * kEventFrame);
}

// Sends one request frame and reads back `expected` bytes as they come, walking the frames the
// way a receiver must (length, then body).
void RawPeer::exchange(char kind, size_t expected) {
  static const std::vector<uint8_t> requestFrame = frame(kRequestFrame, 0);
  std::vector<uint8_t> request = requestFrame;
  request[4] = static_cast<uint8_t>(kind);
  if (!writeAll(fd_, request.data(), request.size())) {
    throw std::runtime_error("raw peer: write failed");
  }
  uint8_t buffer[64 << 10];
  size_t frames = 0;
  size_t pending = 0;
  for (size_t received = 0; received < expected;) {
    const ssize_t got = ::read(fd_, buffer + pending, sizeof buffer - pending);
    if (got <= 0) {
      throw std::runtime_error("raw peer: read failed");
    }
    received += static_cast<size_t>(got);
    pending += static_cast<size_t>(got);
    size_t offset = 0;
    uint32_t body = 0;
    while (pending - offset >= 4 &&
           (std::memcpy(&body, buffer + offset, sizeof body), pending - offset >= 4 + body)) {
      offset += 4 + body;
      ++frames;
    }
    std::memmove(buffer, buffer + offset, pending - offset);
    pending -= offset;
  }
  if (frames != 1 + (kind == kRoundKind ? static_cast<size_t>(events_) : 0)) {
    throw std::runtime_error("raw peer: wrong number of frames");
  }
}

}  // namespace bench
