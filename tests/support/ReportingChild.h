// An application in a child process (its memory, its signals and its library singleton its own)
// that starts when the test says so and reports what it saw as named numbers, one "name value"
// per line of the text its function returns.
//
//   ReportingChild client(runMyApplication);   // forks before the test starts threads or agents
//   ...start the agent...
//   client.start();
//   auto report = client.waitReport(context());
//   EXPECT_EQ(report->at("received"), 100);
#pragma once

#include <glib.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ChildProcess.h"

namespace oxa::test {

using Report = std::map<std::string, long>;

// The value named `name`; when the report lacks it, the test fails (showing the whole report)
// and the result is LONG_MIN.
long valueOf(const Report &report, const std::string &name);

class ReportingChild {
 public:
  using Environment = std::vector<std::pair<std::string, std::string>>;

  // Forks a child that waits for start(), sets `environment` (RPC_PORT_APPID defaults to
  // "org.example.child"), runs `application` and reports the text it returns.
  explicit ReportingChild(std::function<std::string()> application,
                          const Environment &environment = {});
  ReportingChild(const ReportingChild &) = delete;
  ReportingChild &operator=(const ReportingChild &) = delete;
  ~ReportingChild();

  pid_t pid() const { return child_->pid(); }
  void kill(int signal) const { child_->kill(signal); }

  // Lets the child connect (the agent listens by now).
  void start() const;
  // Runs `context` (the agent's) until the child has reported and ended; nullopt at `timeout`.
  std::optional<Report> waitReport(GMainContext *context,
                                   std::chrono::milliseconds timeout = std::chrono::seconds(20));

 private:
  bool readReport();

  int goRead_ = -1;
  int goWrite_ = -1;
  int reportRead_ = -1;
  int reportWrite_ = -1;
  std::optional<ChildProcess> child_;
  std::string text_;
  bool ended_ = false;
};

}  // namespace oxa::test
