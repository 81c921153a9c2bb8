// A forked child running a function, with bounded waits and guaranteed clean-up.
//
//   auto child = oxa::test::ChildProcess::spawn([] { ...serve...; return 0; });
//   child.kill(SIGKILL);
//   ASSERT_TRUE(child.waitExit(std::chrono::seconds(5)));
//
// The child gets SIGKILL if the test process dies, and the destructor kills and reaps a child
// still running, so no test leaves one behind.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>

namespace oxa::test {

class ChildProcess {
 public:
  // Forks; the child runs `body` and exits with its result (never returns into the test).
  static ChildProcess spawn(const std::function<int()> &body);

  ChildProcess(ChildProcess &&other) noexcept;
  ChildProcess &operator=(ChildProcess &&other) = delete;
  ChildProcess(const ChildProcess &) = delete;
  ChildProcess &operator=(const ChildProcess &) = delete;
  ~ChildProcess();

  pid_t pid() const { return pid_; }
  void kill(int signal) const;
  // Waits up to `timeout` for the child to end; its wait status, or nullopt if it is still running.
  std::optional<int> waitExit(std::chrono::milliseconds timeout);

 private:
  explicit ChildProcess(pid_t pid) : pid_(pid) {}

  pid_t pid_;
  std::optional<int> status_;
};

// A one-byte message from a child to its parent, typically "ready" once the child listens:
//   ReadyPipe ready;
//   auto child = ChildProcess::spawn([&] { ...listen...; ready.signal('y'); ...serve... });
//   ASSERT_EQ('y', ready.wait(kDefaultWait));
class ReadyPipe {
 public:
  ReadyPipe();
  ReadyPipe(const ReadyPipe &) = delete;
  ReadyPipe &operator=(const ReadyPipe &) = delete;
  ~ReadyPipe();

  // Child side: sends `status`.
  void signal(char status) const;
  // Parent side: the byte sent, or nullopt when the child ended or `timeout` passed first.
  std::optional<char> wait(std::chrono::milliseconds timeout);

 private:
  int readEnd_ = -1;
  int writeEnd_ = -1;
};

}  // namespace oxa::test
