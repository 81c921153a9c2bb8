#include "ChildProgram.h"

#include <fcntl.h>
#include <glib-unix.h>
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

ChildProcess spawnProgram(const Pipe &out, std::vector<std::string> argv,
                          const ChildProgram::Environment &environment) {
  return ChildProcess::spawn([&] {
    dup2(out.fds[1], STDOUT_FILENO);
    dup2(out.fds[1], STDERR_FILENO);
    for (const auto &[name, value] : environment) {
      setenv(name.c_str(), value.c_str(), 1);
    }
    std::vector<char *> words;
    words.reserve(argv.size() + 1);
    for (std::string &word : argv) {
      words.push_back(word.data());
    }
    words.push_back(nullptr);
    execv(words[0], words.data());
    return 127;
  });
}

}  // namespace

ChildProgram::ChildProgram(const std::vector<std::string> &argv, const Environment &environment)
    : child_([&] {
        const Pipe out;
        ChildProcess child = spawnProgram(out, argv, environment);
        close(out.fds[1]);
        outputFd_ = out.fds[0];
        fcntl(outputFd_, F_SETFL, fcntl(outputFd_, F_GETFL) | O_NONBLOCK);
        return child;
      }()),
      watch_(g_unix_fd_source_new(outputFd_, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP))) {
  g_source_set_callback(watch_, G_SOURCE_FUNC(&ChildProgram::onReadable), this, nullptr);
  g_source_attach(watch_, g_main_context_get_thread_default());
}

ChildProgram::~ChildProgram() {
  g_source_destroy(watch_);
  g_source_unref(watch_);
  child_.kill(SIGKILL);
  child_.waitExit(std::chrono::seconds(5));
  close(outputFd_);
}

bool ChildProgram::waitForOutput(const std::string &text, std::chrono::milliseconds timeout) {
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

void ChildProgram::drain() {
  while (readSome(std::chrono::milliseconds(0))) {
  }
}

std::optional<int> ChildProgram::waitExit(std::chrono::milliseconds timeout) {
  std::optional<int> status = child_.waitExit(timeout);
  drain();
  return status;
}

bool ChildProgram::readSome(std::chrono::milliseconds timeout) {
  pollfd poller{outputFd_, POLLIN, 0};
  if (poll(&poller, 1, static_cast<int>(timeout.count())) <= 0) {
    return false;
  }
  std::array<char, 4096> buffer{};
  const ssize_t count = read(outputFd_, buffer.data(), buffer.size());
  ended_ = ended_ || count == 0;
  if (count <= 0) {
    return false;
  }
  output_.append(buffer.data(), static_cast<size_t>(count));
  return true;
}

gboolean ChildProgram::onReadable(gint /*fd*/, GIOCondition /*condition*/, gpointer self) {
  auto *program = static_cast<ChildProgram *>(self);
  program->drain();
  return program->ended_ ? G_SOURCE_REMOVE : G_SOURCE_CONTINUE;
}

std::vector<std::string> simCommand(const std::string &runtimeDir,
                                    const std::vector<std::string> &args) {
  std::vector<std::string> argv = {OXA_AGENT_SIM_PATH, "--runtime-dir", runtimeDir};
  argv.insert(argv.end(), args.begin(), args.end());
  return argv;
}

}  // namespace oxa::test
