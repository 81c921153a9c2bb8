#include "RawPeer.h"

#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace oxa::test {

namespace {

void appendInt(Bytes &bytes, int32_t value) {
  for (int shift = 0; shift < 32; shift += 8) {
    bytes.push_back(static_cast<uint8_t>(static_cast<uint32_t>(value) >> shift));
  }
}

void appendString(Bytes &bytes, const std::string &text) {
  appendInt(bytes, static_cast<int32_t>(text.size() + 1));
  bytes.insert(bytes.end(), text.begin(), text.end());
  bytes.push_back(0);
}

sockaddr_un addressOf(const std::string &path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    throw std::runtime_error("socket path too long: " + path);
  }
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

}  // namespace

Bytes frameHeader(uint32_t length) {
  Bytes bytes;
  appendInt(bytes, static_cast<int32_t>(length));
  return bytes;
}

Bytes frame(const Bytes &body) {
  Bytes bytes = frameHeader(static_cast<uint32_t>(body.size()));
  bytes.insert(bytes.end(), body.begin(), body.end());
  return bytes;
}

Bytes helloBody(int32_t kind, const std::string &appId, const std::string &detail) {
  Bytes bytes;
  appendInt(bytes, 0x4f4c4548);
  appendInt(bytes, kind);
  appendString(bytes, appId);
  appendString(bytes, detail);
  return bytes;
}

Bytes ackBody(int32_t status, const std::string &instance) {
  Bytes bytes;
  appendInt(bytes, 0x4b434b41);
  appendInt(bytes, status);
  appendString(bytes, instance);
  return bytes;
}

Bytes intBody(int32_t value) {
  Bytes bytes;
  appendInt(bytes, value);
  return bytes;
}

RawSocket::RawSocket(RawSocket &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

RawSocket &RawSocket::operator=(RawSocket &&other) noexcept {
  if (this != &other) {
    close();
    fd_ = std::exchange(other.fd_, -1);
  }
  return *this;
}

RawSocket::~RawSocket() {
  close();
}

RawSocket RawSocket::connectTo(const std::string &path) {
  const sockaddr_un address = addressOf(path);
  RawSocket socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (::connect(socket.fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
    socket.close();
  }
  return socket;
}

bool RawSocket::writeAll(const Bytes &bytes) const {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t sent = ::send(fd_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) {
      continue;
    }
    if (sent <= 0) {
      return false;
    }
    done += static_cast<size_t>(sent);
  }
  return true;
}

bool RawSocket::readable() const {
  pollfd entry{fd_, POLLIN, 0};
  return ::poll(&entry, 1, 0) == 1;
}

size_t RawSocket::unreadBytes() const {
  int queued = 0;
  if (::ioctl(fd_, SIOCOUTQ, &queued) != 0) {
    throw std::runtime_error(std::string("SIOCOUTQ: ") + std::strerror(errno));
  }
  return static_cast<size_t>(queued);
}

bool RawSocket::readExactly(uint8_t *out, size_t size, std::chrono::milliseconds timeout) const {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  size_t done = 0;
  while (done < size) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd entry{fd_, POLLIN, 0};
    if (left.count() <= 0 || ::poll(&entry, 1, static_cast<int>(left.count())) != 1) {
      return false;
    }
    const ssize_t got = ::recv(fd_, out + done, size - done, 0);
    if (got <= 0) {
      return false;
    }
    done += static_cast<size_t>(got);
  }
  return true;
}

std::optional<Bytes> RawSocket::readFrame(std::chrono::milliseconds timeout) const {
  uint8_t header[4];
  if (!readExactly(header, sizeof header, timeout)) {
    return std::nullopt;
  }
  const uint32_t length =
      header[0] | (header[1] << 8) | (header[2] << 16) | (static_cast<uint32_t>(header[3]) << 24);
  Bytes body(length);
  if (length > 0 && !readExactly(body.data(), length, timeout)) {
    return std::nullopt;
  }
  return body;
}

bool RawSocket::waitClosed(std::chrono::milliseconds timeout) const {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  uint8_t sink[4096];
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd entry{fd_, POLLIN, 0};
    if (left.count() <= 0 || ::poll(&entry, 1, static_cast<int>(left.count())) != 1) {
      return false;
    }
    const ssize_t got = ::recv(fd_, sink, sizeof sink, 0);
    if (got == 0 || (got < 0 && errno == ECONNRESET)) {
      return true;
    }
  }
}

void RawSocket::close() {
  if (fd_ >= 0) {
    ::close(fd_);
    fd_ = -1;
  }
}

RawListener::RawListener(const std::string &path) {
  const sockaddr_un address = addressOf(path);
  const std::string dir = path.substr(0, path.rfind('/'));
  ::mkdir(dir.c_str(), 0700);
  fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd_ < 0 || ::bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
      ::listen(fd_, 16) != 0) {
    throw std::runtime_error("cannot listen at " + path + ": " + std::strerror(errno));
  }
}

RawListener::~RawListener() {
  ::close(fd_);
}

RawSocket RawListener::tryAccept() const {
  const int fd = ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
  return RawSocket(fd);
}

std::string portPath(const std::string &appId, const std::string &portName) {
  const char *dir = std::getenv("RPC_PORT_RUNTIME_DIR");
  return std::string(dir != nullptr ? dir : "") + "/" + appId + "/" + portName;
}

}  // namespace oxa::test
