#ifndef OXA_TOOLS_AGENT_SIM_FILE_DESCRIPTOR_H_
#define OXA_TOOLS_AGENT_SIM_FILE_DESCRIPTOR_H_

#include <unistd.h>

#include <utility>

namespace oxa_sim {

// Owns a file descriptor and closes it.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() { reset(); }
  FileDescriptor(FileDescriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileDescriptor &operator=(FileDescriptor &&other) noexcept {
    if (this != &other) {
      reset(std::exchange(other.fd_, -1));
    }
    return *this;
  }
  FileDescriptor(const FileDescriptor &) = delete;
  FileDescriptor &operator=(const FileDescriptor &) = delete;

  int get() const { return fd_; }
  void reset(int fd = -1) {
    if (fd_ >= 0) {
      close(fd_);
    }
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

}  // namespace oxa_sim

#endif  // OXA_TOOLS_AGENT_SIM_FILE_DESCRIPTOR_H_
