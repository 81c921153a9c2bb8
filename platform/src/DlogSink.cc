#include "DlogSink.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <string>

namespace platform {

namespace {

// Writes `size` bytes to `fd` in one write(); bytes written or a negative errno.
int writeOnce(int fd, const char *line, size_t size) {
  ssize_t written = 0;
  do {
    written = ::write(fd, line, size);
  } while (written < 0 && errno == EINTR);
  return written < 0 ? -errno : static_cast<int>(written);
}

// The file named by $DLOG_FILE, opened once per distinct name and kept open: reopening on every
// line would cost two extra syscalls per log call. Writes hold the lock so a change of
// $DLOG_FILE cannot close the descriptor under a writer.
class LogFile {
 public:
  int write(const char *path, const char *line, size_t size) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (fd_ < 0 || path_ != path) {
      if (fd_ >= 0) {
        ::close(fd_);
      }
      fd_ = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
      path_ = fd_ < 0 ? std::string() : std::string(path);
    }
    return fd_ < 0 ? -errno : writeOnce(fd_, line, size);
  }

 private:
  std::mutex mutex_;
  std::string path_;
  int fd_ = -1;
};

// Never destroyed: objects destroyed at exit may still log.
LogFile &logFile() {
  static auto *file = new LogFile();
  return *file;
}

}  // namespace

int writeLogLine(const char *path, const char *line, size_t size) {
  if (path != nullptr) {
    return logFile().write(path, line, size);
  }
  return writeOnce(STDERR_FILENO, line, size);
}

}  // namespace platform
