// The platform log: line format, level letters, the $DLOG_LEVEL filter, $DLOG_FILE, stderr, long
// lines and concurrent writers.
#include <dlog.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "RuntimeDir.h"

namespace oxa::test {
namespace {

std::vector<std::string> linesOf(const std::string &text) {
  std::vector<std::string> lines;
  std::stringstream in(text);
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

// Each test logs to its own file under a private directory; DLOG_LEVEL starts unset.
class DlogTest : public ::testing::Test {
 protected:
  DlogTest() : file_(dir_.path() + "/dlog.txt") {
    ::setenv("DLOG_FILE", file_.c_str(), 1);
    ::unsetenv("DLOG_LEVEL");
  }
  ~DlogTest() override {
    ::unsetenv("DLOG_FILE");
    ::unsetenv("DLOG_LEVEL");
  }

  std::string logged() const { return readFile(file_); }
  std::string prefix(char letter, const char *tag) const {
    return std::string(1, letter) + "/" + tag + "(" + std::to_string(getpid()) + "): ";
  }

  ScopedRuntimeDir dir_;
  std::string file_;
};

TEST_F(DlogTest, WritesOneFormattedLine) {
  const std::string expected = prefix('I', "OXA_API") + "value 5 of five\n";
  EXPECT_EQ(static_cast<int>(expected.size()),
            dlog_print(DLOG_INFO, "OXA_API", "value %d of %s", 5, "five"));
  EXPECT_EQ(expected, logged());
}

TEST_F(DlogTest, LevelLetters) {
  ::setenv("DLOG_LEVEL", "V", 1);
  dlog_print(DLOG_VERBOSE, "T", "v");
  dlog_print(DLOG_DEBUG, "T", "d");
  dlog_print(DLOG_INFO, "T", "i");
  dlog_print(DLOG_WARN, "T", "w");
  dlog_print(DLOG_ERROR, "T", "e");
  dlog_print(DLOG_FATAL, "T", "f");
  EXPECT_EQ(prefix('V', "T") + "v\n" + prefix('D', "T") + "d\n" + prefix('I', "T") + "i\n" +
                prefix('W', "T") + "w\n" + prefix('E', "T") + "e\n" + prefix('F', "T") + "f\n",
            logged());
}

TEST_F(DlogTest, DefaultLevelDropsVerboseAndDebug) {
  EXPECT_EQ(0, dlog_print(DLOG_VERBOSE, "T", "v"));
  EXPECT_EQ(0, dlog_print(DLOG_DEBUG, "T", "d"));
  dlog_print(DLOG_INFO, "T", "i");
  dlog_print(DLOG_ERROR, "T", "e");
  EXPECT_EQ(prefix('I', "T") + "i\n" + prefix('E', "T") + "e\n", logged());
}

TEST_F(DlogTest, LevelFilterDropsLinesBelowIt) {
  ::setenv("DLOG_LEVEL", "W", 1);
  dlog_print(DLOG_INFO, "T", "i");
  dlog_print(DLOG_WARN, "T", "w");
  dlog_print(DLOG_FATAL, "T", "f");
  EXPECT_EQ(prefix('W', "T") + "w\n" + prefix('F', "T") + "f\n", logged());
  ::setenv("DLOG_LEVEL", "D", 1);
  dlog_print(DLOG_DEBUG, "T", "d");
  EXPECT_EQ(prefix('W', "T") + "w\n" + prefix('F', "T") + "f\n" + prefix('D', "T") + "d\n",
            logged());
}

TEST_F(DlogTest, AppendsToAnExistingFile) {
  {
    std::ofstream out(file_);
    out << "earlier\n";
  }
  dlog_print(DLOG_WARN, "T", "later");
  EXPECT_EQ("earlier\n" + prefix('W', "T") + "later\n", logged());
}

TEST_F(DlogTest, VprintFormatsLikePrint) {
  auto viaVprint = [](const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const int written = dlog_vprint(DLOG_ERROR, "V", fmt, args);
    va_end(args);
    return written;
  };
  EXPECT_GT(viaVprint("%s=%05.1f", "x", 2.5), 0);
  EXPECT_EQ(prefix('E', "V") + "x=002.5\n", logged());
}

TEST_F(DlogTest, LongMessagesStayWhole) {
  const std::string message(5000, 'm');
  dlog_print(DLOG_INFO, "LONG", "%s|end", message.c_str());
  EXPECT_EQ(prefix('I', "LONG") + message + "|end\n", logged());
}

TEST_F(DlogTest, WritesToStderrWithoutDlogFile) {
  ::unsetenv("DLOG_FILE");
  const std::string capture = dir_.path() + "/stderr.txt";
  std::fflush(stderr);
  const int saved = ::dup(STDERR_FILENO);
  const int fd = ::open(capture.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  ASSERT_GE(fd, 0);
  ::dup2(fd, STDERR_FILENO);
  ::close(fd);
  dlog_print(DLOG_ERROR, "ERR", "to stderr %d", 1);
  ::dup2(saved, STDERR_FILENO);
  ::close(saved);
  EXPECT_EQ(prefix('E', "ERR") + "to stderr 1\n", readFile(capture));
}

TEST_F(DlogTest, ConcurrentLinesNeverMix) {
  constexpr int kThreads = 8;
  constexpr int kLines = 250;
  std::vector<std::thread> writers;
  writers.reserve(kThreads);
  for (int thread = 0; thread < kThreads; ++thread) {
    writers.emplace_back([thread] {
      const std::string filler(200, static_cast<char>('a' + thread));
      for (int line = 0; line < kLines; ++line) {
        dlog_print(DLOG_INFO, "MT", "%d:%d:%s", thread, line, filler.c_str());
      }
    });
  }
  for (std::thread &writer : writers) {
    writer.join();
  }
  const std::vector<std::string> lines = linesOf(logged());
  ASSERT_EQ(static_cast<size_t>(kThreads * kLines), lines.size());
  const std::string head = prefix('I', "MT");
  std::vector<int> next(kThreads, 0);
  for (const std::string &line : lines) {
    // "<head><thread>:<line>:<200 times the thread's letter>"
    ASSERT_EQ(head, line.substr(0, head.size())) << line;
    const size_t firstColon = line.find(':', head.size());
    const size_t secondColon = line.find(':', firstColon + 1);
    ASSERT_NE(std::string::npos, secondColon) << line;
    const int thread = std::stoi(line.substr(head.size(), firstColon - head.size()));
    ASSERT_TRUE(thread >= 0 && thread < kThreads) << line;
    EXPECT_EQ(next[thread]++, std::stoi(line.substr(firstColon + 1)));
    EXPECT_EQ(std::string(200, static_cast<char>('a' + thread)), line.substr(secondColon + 1));
  }
}

}  // namespace
}  // namespace oxa::test
