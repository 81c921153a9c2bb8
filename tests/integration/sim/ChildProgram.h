#ifndef OXA_TESTS_INTEGRATION_CHILD_PROGRAM_H_
#define OXA_TESTS_INTEGRATION_CHILD_PROGRAM_H_

#include <glib.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ChildProcess.h"

namespace oxa::test {

// A program run as a child process, its stdout and stderr captured; killed and reaped at the
// latest when this object goes away. The output is also read whenever the thread-default main
// context runs, so a chatty child never blocks on a full pipe while the test waits on something
// else.
class ChildProgram {
 public:
  using Environment = std::vector<std::pair<std::string, std::string>>;

  // Runs argv[0] with `argv`, after setting `environment` in the child.
  explicit ChildProgram(const std::vector<std::string> &argv, const Environment &environment = {});
  ChildProgram(const ChildProgram &) = delete;
  ChildProgram &operator=(const ChildProgram &) = delete;
  ~ChildProgram();

  // Waits until the output holds `text`; false at the deadline or when the output ends first.
  bool waitForOutput(const std::string &text,
                     std::chrono::milliseconds timeout = std::chrono::seconds(10));
  // Everything the program printed so far (as far as read by waitForOutput/drain).
  const std::string &output() const { return output_; }
  // Reads whatever output is available now.
  void drain();

  void kill(int signal) const { child_.kill(signal); }
  pid_t pid() const { return child_.pid(); }
  std::optional<int> waitExit(std::chrono::milliseconds timeout = std::chrono::seconds(10));

 private:
  // Reads once, waiting up to `timeout`; false at end of output or when nothing came.
  bool readSome(std::chrono::milliseconds timeout);
  static gboolean onReadable(gint fd, GIOCondition condition, gpointer self);

  int outputFd_ = -1;
  ChildProcess child_;
  GSource *watch_;
  std::string output_;
  bool ended_ = false;
};

// The command line of oxa-agent-sim on `runtimeDir` with `args`, and the line it prints once it
// listens.
std::vector<std::string> simCommand(const std::string &runtimeDir,
                                    const std::vector<std::string> &args);
constexpr char kSimReadyLine[] = "oxa-agent-sim: listening on ";

}  // namespace oxa::test

#endif  // OXA_TESTS_INTEGRATION_CHILD_PROGRAM_H_
