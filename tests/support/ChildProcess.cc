#include "ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <thread>
#include <utility>

namespace oxa::test {

namespace {

constexpr std::chrono::milliseconds kReapPoll{2};

}  // namespace

ChildProcess ChildProcess::spawn(const std::function<int()> &body) {
  std::fflush(nullptr);
  const pid_t parent = ::getpid();
  const pid_t pid = ::fork();
  if (pid < 0) {
    throw std::runtime_error("fork failed");
  }
  if (pid == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) {
      ::_exit(127);
    }
    const int result = body();
    std::fflush(nullptr);
    ::_exit(result);
  }
  return ChildProcess(pid);
}

ChildProcess::ChildProcess(ChildProcess &&other) noexcept
    : pid_(std::exchange(other.pid_, -1)), status_(other.status_) {}

ChildProcess::~ChildProcess() {
  if (pid_ > 0 && !status_) {
    kill(SIGKILL);
    int status = 0;
    ::waitpid(pid_, &status, 0);
  }
}

void ChildProcess::kill(int signal) const {
  if (pid_ > 0 && !status_) {
    ::kill(pid_, signal);
  }
}

std::optional<int> ChildProcess::waitExit(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!status_) {
    int status = 0;
    const pid_t done = ::waitpid(pid_, &status, WNOHANG);
    if (done == pid_) {
      status_ = status;
    } else if (done < 0 || std::chrono::steady_clock::now() >= deadline) {
      break;
    } else {
      // Polling waitpid keeps this free of SIGCHLD handlers the code under test might own.
      std::this_thread::sleep_for(kReapPoll);
    }
  }
  return status_;
}

ReadyPipe::ReadyPipe() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe failed");
  }
  readEnd_ = ends[0];
  writeEnd_ = ends[1];
}

ReadyPipe::~ReadyPipe() {
  for (int fd : {readEnd_, writeEnd_}) {
    if (fd >= 0) {
      ::close(fd);
    }
  }
}

void ReadyPipe::signal(char status) const {
  if (::write(writeEnd_, &status, 1) != 1) {
    std::perror("ReadyPipe::signal");
  }
}

std::optional<char> ReadyPipe::wait(std::chrono::milliseconds timeout) {
  // Without our own write end open, a child that dies early shows up as end of file.
  if (writeEnd_ >= 0) {
    ::close(writeEnd_);
    writeEnd_ = -1;
  }
  pollfd entry{readEnd_, POLLIN, 0};
  char status = 0;
  if (::poll(&entry, 1, static_cast<int>(timeout.count())) == 1 &&
      ::read(readEnd_, &status, 1) == 1) {
    return status;
  }
  return std::nullopt;
}

}  // namespace oxa::test
