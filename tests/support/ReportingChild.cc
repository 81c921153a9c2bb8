#include "ReportingChild.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <stdexcept>

#include "MainLoop.h"

namespace oxa::test {

namespace {

constexpr int kGoWaitMs = 10000;
constexpr char kAppId[] = "org.example.child";

void makePipe(int &readEnd, int &writeEnd) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe failed");
  }
  readEnd = ends[0];
  writeEnd = ends[1];
}

void closeFd(int &fd) {
  if (fd >= 0) {
    ::close(fd);
    fd = -1;
  }
}

bool waitForGo(int fd) {
  pollfd entry{fd, POLLIN, 0};
  char go = 0;
  return ::poll(&entry, 1, kGoWaitMs) == 1 && ::read(fd, &go, 1) == 1;
}

void writeAll(int fd, const std::string &text) {
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t written = ::write(fd, text.data() + done, text.size() - done);
    if (written <= 0) {
      return;
    }
    done += static_cast<size_t>(written);
  }
}

Report parseReport(const std::string &text) {
  Report report;
  size_t at = 0;
  while (at < text.size()) {
    const size_t end = text.find('\n', at);
    const std::string line = text.substr(at, end - at);
    const size_t space = line.find(' ');
    if (space != std::string::npos) {
      report[line.substr(0, space)] = std::strtol(line.c_str() + space + 1, nullptr, 10);
    }
    at = end == std::string::npos ? text.size() : end + 1;
  }
  return report;
}

}  // namespace

long valueOf(const Report &report, const std::string &name) {
  const auto found = report.find(name);
  if (found != report.end()) {
    return found->second;
  }
  std::string text;
  for (const auto &[key, value] : report) {
    text += " " + key + "=" + std::to_string(value);
  }
  ADD_FAILURE() << "the child reported no " << name << ";" << text;
  return LONG_MIN;
}

ReportingChild::ReportingChild(std::function<std::string()> application,
                               const Environment &environment) {
  makePipe(goRead_, goWrite_);
  makePipe(reportRead_, reportWrite_);
  child_.emplace(ChildProcess::spawn([this, &application, &environment] {
    closeFd(goWrite_);
    closeFd(reportRead_);
    if (!waitForGo(goRead_)) {
      return 2;
    }
    setenv("RPC_PORT_APPID", kAppId, 1);
    for (const auto &[name, value] : environment) {
      setenv(name.c_str(), value.c_str(), 1);
    }
    writeAll(reportWrite_, application());
    return 0;
  }));
  closeFd(goRead_);
  closeFd(reportWrite_);
  ::fcntl(reportRead_, F_SETFL, O_NONBLOCK);
}

ReportingChild::~ReportingChild() {
  closeFd(goWrite_);
  closeFd(reportRead_);
}

void ReportingChild::start() const {
  const char go = 'g';
  if (::write(goWrite_, &go, 1) != 1) {
    throw std::runtime_error("the probe is gone");
  }
}

bool ReportingChild::readReport() {
  char chunk[4096];
  for (;;) {
    const ssize_t got = ::read(reportRead_, chunk, sizeof chunk);
    if (got > 0) {
      text_.append(chunk, static_cast<size_t>(got));
    } else {
      ended_ = got == 0;
      return ended_;
    }
  }
}

std::optional<Report> ReportingChild::waitReport(GMainContext *context,
                                                 std::chrono::milliseconds timeout) {
  if (!runUntil(
          context, [this] { return ended_ || readReport(); }, timeout)) {
    return std::nullopt;
  }
  child_->waitExit(std::chrono::seconds(5));
  return parseReport(text_);
}

}  // namespace oxa::test
