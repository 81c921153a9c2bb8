#include "DlogSink.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <string>

namespace platform {

namespace {

// The file named by $DLOG_FILE, opened once per distinct name and kept open: reopening on every
// line would cost two extra syscalls per log call.
class LogFile {
 public:
  LogFile() = default;
  LogFile(const LogFile &) = delete;
  LogFile &operator=(const LogFile &) = delete;
  ~LogFile() { closeFile(); }

  // The descriptor for `path`, or -1 with errno set when it cannot be opened.
  int descriptorFor(const char *path) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (fd_ < 0 || path_ != path) {
      closeFile();
      fd_ = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
      path_ = fd_ < 0 ? std::string() : std::string(path);
    }
    return fd_;
  }

 private:
  void closeFile() {
    if (fd_ >= 0) {
      ::close(fd_);
    }
    fd_ = -1;
  }

  std::mutex mutex_;
  std::string path_;
  int fd_ = -1;
};

LogFile &logFile() {
  static LogFile file;
  return file;
}

}  // namespace

int writeLogLine(const char *line, size_t size) {
  const char *path = std::getenv("DLOG_FILE");
  const int fd = (path != nullptr && *path != '\0') ? logFile().descriptorFor(path) : STDERR_FILENO;
  if (fd < 0) {
    return -errno;
  }
  ssize_t written = 0;
  do {
    written = ::write(fd, line, size);
  } while (written < 0 && errno == EINTR);
  return written < 0 ? -errno : static_cast<int>(written);
}

}  // namespace platform
