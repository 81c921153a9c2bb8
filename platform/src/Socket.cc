#include "Socket.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>

namespace platform {

namespace {

int makeAddress(const std::string &path, sockaddr_un *address) {
  if (path.size() >= sizeof address->sun_path) {
    return -ENAMETOOLONG;
  }
  *address = sockaddr_un{};
  address->sun_family = AF_UNIX;
  std::memcpy(address->sun_path, path.c_str(), path.size() + 1);
  return 0;
}

// The address of `path` and a fresh non-blocking stream socket for it.
int openSocket(const std::string &path, sockaddr_un *address, UniqueFd *out) {
  const int error = makeAddress(path, address);
  if (error != 0) {
    return error;
  }
  out->reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  return out->get() < 0 ? -errno : 0;
}

}  // namespace

int connectUnix(const std::string &path, UniqueFd *out) {
  sockaddr_un address{};
  int error = openSocket(path, &address, out);
  if (error != 0) {
    return error;
  }
  int result = 0;
  do {
    result = ::connect(out->get(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
  } while (result < 0 && errno == EINTR);
  if (result < 0) {
    error = -errno;
    out->reset();
  }
  return error;
}

int listenUnix(const std::string &path, UniqueFd *out) {
  sockaddr_un address{};
  int error = openSocket(path, &address, out);
  if (error != 0) {
    return error;
  }
  // A socket file left by a stub that is gone would make bind() fail.
  if ((::unlink(path.c_str()) < 0 && errno != ENOENT) ||
      ::bind(out->get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) < 0 ||
      ::listen(out->get(), SOMAXCONN) < 0) {
    error = -errno;
  }
  if (error != 0) {
    out->reset();
  }
  return error;
}

int acceptConnection(int listener, UniqueFd *out) {
  for (;;) {
    const int fd = ::accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd >= 0) {
      out->reset(fd);
      return 0;
    }
    if (errno != EINTR) {
      return errno == EWOULDBLOCK ? -EAGAIN : -errno;
    }
  }
}

int peerUid(int fd, uid_t *uid) {
  ucred credentials{};
  socklen_t size = sizeof credentials;
  if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) < 0) {
    return -errno;
  }
  *uid = credentials.uid;
  return 0;
}

}  // namespace platform
