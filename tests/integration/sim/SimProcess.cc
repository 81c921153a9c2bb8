#include "SimProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>

namespace oxa::test {

namespace {

struct Pipe {
  Pipe() {
    if (pipe2(fds.data(), O_CLOEXEC) != 0) {
      std::abort();
    }
  }
  std::array<int, 2> fds{};
};

ChildProcess spawnSim(const Pipe &out, const std::string &runtimeDir,
                      const std::vector<std::string> &args) {
  std::vector<std::string> words = {OXA_AGENT_SIM_PATH, "--runtime-dir", runtimeDir};
  words.insert(words.end(), args.begin(), args.end());
  return ChildProcess::spawn([&] {
    dup2(out.fds[1], STDOUT_FILENO);
    dup2(out.fds[1], STDERR_FILENO);
    std::vector<char *> argv;
    for (std::string &word : words) {
      argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    return 127;
  });
}

}  // namespace

SimProcess::SimProcess(const std::string &runtimeDir, const std::vector<std::string> &args)
    : child_([&] {
        const Pipe out;
        ChildProcess child = spawnSim(out, runtimeDir, args);
        close(out.fds[1]);
        outputFd_ = out.fds[0];
        return child;
      }()) {}

SimProcess::~SimProcess() {
  child_.kill(SIGKILL);
  child_.waitExit(std::chrono::seconds(5));
  close(outputFd_);
}

bool SimProcess::waitForOutput(const std::string &text, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (output_.find(text) == std::string::npos) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0 || !readSome(left)) {
      return false;
    }
  }
  return true;
}

void SimProcess::drain() {
  while (readSome(std::chrono::milliseconds(0))) {
  }
}

std::optional<int> SimProcess::waitExit(std::chrono::milliseconds timeout) {
  std::optional<int> status = child_.waitExit(timeout);
  drain();
  return status;
}

bool SimProcess::readSome(std::chrono::milliseconds timeout) {
  pollfd poller{outputFd_, POLLIN, 0};
  if (poll(&poller, 1, static_cast<int>(timeout.count())) <= 0) {
    return false;
  }
  std::array<char, 4096> buffer{};
  const ssize_t count = read(outputFd_, buffer.data(), buffer.size());
  if (count <= 0) {
    return false;
  }
  output_.append(buffer.data(), static_cast<size_t>(count));
  return true;
}

}  // namespace oxa::test
