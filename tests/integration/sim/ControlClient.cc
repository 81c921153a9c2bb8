#include "ControlClient.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace oxa::test {

namespace {

int connectTo(const std::string &path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) {
    return -1;
  }
  std::copy(path.begin(), path.end(), address.sun_path);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd >= 0 && connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

bool waitFor(int fd, short events, std::chrono::milliseconds timeout) {
  pollfd entry{fd, events, 0};
  return poll(&entry, 1, static_cast<int>(timeout.count())) == 1;
}

}  // namespace

ControlClient::ControlClient(const std::string &path) : fd_(connectTo(path)) {}

ControlClient::~ControlClient() {
  if (fd_ >= 0) {
    close(fd_);
  }
}

bool ControlClient::write(const std::string &text, std::chrono::milliseconds timeout) const {
  size_t written = 0;
  while (written < text.size()) {
    const ssize_t count = send(fd_, text.data() + written, text.size() - written, MSG_NOSIGNAL);
    if (count >= 0) {
      written += static_cast<size_t>(count);
    } else if (errno != EAGAIN || !waitFor(fd_, POLLOUT, timeout)) {
      return false;
    }
  }
  return true;
}

bool ControlClient::fill(std::chrono::milliseconds timeout) {
  if (!waitFor(fd_, POLLIN, timeout)) {
    return false;
  }
  char chunk[4096];
  const ssize_t count = recv(fd_, chunk, sizeof chunk, 0);
  if (count <= 0) {
    return false;
  }
  buffer_.append(chunk, static_cast<size_t>(count));
  return true;
}

std::optional<std::string> ControlClient::readLine(std::chrono::milliseconds timeout) {
  size_t end = buffer_.find('\n');
  while (end == std::string::npos) {
    if (!fill(timeout)) {
      return std::nullopt;
    }
    end = buffer_.find('\n');
  }
  std::string line = buffer_.substr(0, end);
  buffer_.erase(0, end + 1);
  return line;
}

std::optional<std::string> ControlClient::ask(const std::string &line) {
  if (!write(line + "\n")) {
    return std::nullopt;
  }
  return readLine();
}

bool ControlClient::closedBySimulator(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (std::chrono::steady_clock::now() < deadline) {
    if (!waitFor(fd_, POLLIN, timeout)) {
      return false;
    }
    char chunk[4096];
    const ssize_t count = recv(fd_, chunk, sizeof chunk, 0);
    if (count == 0 || (count < 0 && errno == ECONNRESET)) {
      return true;
    }
  }
  return false;
}

}  // namespace oxa::test
