#include "ControlSocket.h"

#include <glib-unix.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "Limits.h"

namespace oxa_sim {

namespace {

// Bytes read from one client per wake-up, so a flood from one tool cannot starve the rest.
constexpr size_t kReadBudgetBytes = size_t{64} << 10U;
constexpr size_t kReadChunkBytes = 4096;
// Pause before accepting again after the process ran out of descriptors.
constexpr guint kAcceptBackoffMs = 100;
constexpr int kListenBacklog = 8;

[[noreturn]] void fail(const std::string &path, const char *what) {
  throw std::runtime_error("cannot listen on control socket " + path + ": " + what + ": " +
                           std::strerror(errno));
}

sockaddr_un addressOf(const std::string &path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof(address.sun_path)) {
    throw std::runtime_error("cannot listen on control socket " + path +
                             ": the path is empty or too long for a Unix socket");
  }
  std::copy(path.begin(), path.end(), address.sun_path);
  return address;
}

// A socket left behind by an earlier run is replaced; anything else at the path is an error.
void removeStaleSocket(const std::string &path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    return;
  }
  if (!S_ISSOCK(status.st_mode)) {
    throw std::runtime_error("cannot listen on control socket " + path +
                             ": the path exists and is not a socket");
  }
  unlink(path.c_str());
}

}  // namespace

// One connected tool: its unanswered input and its unread answers, both bounded.
class ControlSocket::Connection {
 public:
  Connection(ControlSocket &owner, FileDescriptor fd) : owner_(owner), fd_(std::move(fd)) {
    readWatch_ = g_unix_fd_add(fd_.get(), G_IO_IN, &Connection::onReadable, this);
  }
  ~Connection() {
    for (guint watch : {readWatch_, writeWatch_}) {
      if (watch != 0) {
        g_source_remove(watch);
      }
    }
  }
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;

 private:
  enum class Next { Keep, StopWatch, Close };

  static gboolean onReadable(gint /*fd*/, GIOCondition /*condition*/, gpointer data) {
    auto *connection = static_cast<Connection *>(data);
    return connection->settle(connection->receive(), connection->readWatch_);
  }

  static gboolean onWritable(gint /*fd*/, GIOCondition /*condition*/, gpointer data) {
    auto *connection = static_cast<Connection *>(data);
    return connection->settle(connection->send(), connection->writeWatch_);
  }

  // Ends a watch callback; `watch` is the one being dispatched, which GLib removes itself when
  // the callback returns G_SOURCE_REMOVE.
  gboolean settle(Next next, guint &watch) {
    if (next == Next::Keep) {
      return G_SOURCE_CONTINUE;
    }
    watch = 0;
    if (next == Next::Close) {
      owner_.drop(this);
    }
    return G_SOURCE_REMOVE;
  }

  Next receive() {
    if (!readAvailable() || !answerCompleteLines() || !flush()) {
      return Next::Close;
    }
    if (inputEnded_) {
      return output_.empty() ? Next::Close : Next::StopWatch;
    }
    return Next::Keep;
  }

  Next send() {
    if (!flush()) {
      return Next::Close;
    }
    if (!output_.empty()) {
      return Next::Keep;
    }
    return inputEnded_ ? Next::Close : Next::StopWatch;
  }

  // Reads what is there, up to the budget; false on a socket error.
  bool readAvailable() {
    char chunk[kReadChunkBytes];
    size_t total = 0;
    while (total < kReadBudgetBytes) {
      const ssize_t count = recv(fd_.get(), chunk, sizeof chunk, 0);
      if (count > 0) {
        input_.append(chunk, static_cast<size_t>(count));
        total += static_cast<size_t>(count);
      } else if (count == 0) {
        inputEnded_ = true;
        return true;
      } else if (errno != EINTR) {
        return errno == EAGAIN || errno == EWOULDBLOCK;
      }
    }
    return true;
  }

  // Answers every whole line; false when a line or the unread answers outgrow their bounds.
  bool answerCompleteLines() {
    size_t start = 0;
    for (size_t end = input_.find('\n'); end != std::string::npos; end = input_.find('\n', start)) {
      size_t length = end - start;
      if (length > 0 && input_[end - 1] == '\r') {
        --length;
      }
      output_ += owner_.handler_(input_.substr(start, length));
      output_ += '\n';
      start = end + 1;
      if (output_.size() > kMaxControlPendingBytes) {
        return false;
      }
    }
    input_.erase(0, start);
    return input_.size() <= kMaxControlLineBytes;
  }

  // Writes what the socket takes now and watches for room for the rest; false on an error.
  bool flush() {
    size_t written = 0;
    while (written < output_.size()) {
      const ssize_t count =
          ::send(fd_.get(), output_.data() + written, output_.size() - written, MSG_NOSIGNAL);
      if (count >= 0) {
        written += static_cast<size_t>(count);
      } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
        break;
      } else if (errno != EINTR) {
        return false;
      }
    }
    output_.erase(0, written);
    if (!output_.empty() && writeWatch_ == 0) {
      writeWatch_ = g_unix_fd_add(fd_.get(), G_IO_OUT, &Connection::onWritable, this);
    }
    return true;
  }

  ControlSocket &owner_;
  FileDescriptor fd_;
  std::string input_;
  std::string output_;
  bool inputEnded_ = false;
  guint readWatch_ = 0;
  guint writeWatch_ = 0;
};

ControlSocket::ControlSocket(std::string path, Handler handler)
    : path_(std::move(path)), handler_(std::move(handler)) {}

ControlSocket::~ControlSocket() {
  connections_.clear();
  for (guint source : {watch_, backoff_}) {
    if (source != 0) {
      g_source_remove(source);
    }
  }
  if (listener_.get() >= 0) {
    unlink(path_.c_str());
  }
}

void ControlSocket::listen() {
  const sockaddr_un address = addressOf(path_);
  removeStaleSocket(path_);
  FileDescriptor fd(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (fd.get() < 0) {
    fail(path_, "socket");
  }
  if (bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
    fail(path_, "bind");
  }
  // Whoever can connect can change the world: only this user.
  if (chmod(path_.c_str(), S_IRUSR | S_IWUSR) != 0 || ::listen(fd.get(), kListenBacklog) != 0) {
    const int error = errno;
    unlink(path_.c_str());
    errno = error;
    fail(path_, "listen");
  }
  listener_ = std::move(fd);
  watch_ = g_unix_fd_add(listener_.get(), G_IO_IN, &ControlSocket::onAcceptable, this);
}

gboolean ControlSocket::onAcceptable(gint /*fd*/, GIOCondition /*condition*/, gpointer self) {
  static_cast<ControlSocket *>(self)->accept();
  return static_cast<ControlSocket *>(self)->watch_ != 0 ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
}

void ControlSocket::accept() {
  FileDescriptor fd(accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (fd.get() >= 0) {
    if (connections_.size() < kMaxControlClients) {
      connections_.emplace_back(*this, std::move(fd));
    }
    return;
  }
  // Out of descriptors the socket stays readable: pause instead of waking up again at once.
  if (errno == EMFILE || errno == ENFILE) {
    watch_ = 0;
    backoff_ = g_timeout_add(kAcceptBackoffMs, &ControlSocket::onBackoffElapsed, this);
  }
}

gboolean ControlSocket::onBackoffElapsed(gpointer self) {
  auto *socket = static_cast<ControlSocket *>(self);
  socket->backoff_ = 0;
  socket->watch_ =
      g_unix_fd_add(socket->listener_.get(), G_IO_IN, &ControlSocket::onAcceptable, self);
  return G_SOURCE_REMOVE;
}

void ControlSocket::drop(Connection *connection) {
  connections_.remove_if([connection](const Connection &c) { return &c == connection; });
}

}  // namespace oxa_sim
