#include "ProcessState.h"

#include <fstream>
#include <string>
#include <thread>

namespace oxa::test {

namespace {

constexpr std::chrono::milliseconds kStatePoll{1};

}  // namespace

char processState(pid_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string text;
  std::getline(stat, text);
  // "pid (comm) S ...": the state follows the last parenthesis.
  const size_t close = text.rfind(')');
  return close == std::string::npos || close + 2 >= text.size() ? '?' : text[close + 2];
}

bool waitProcessState(pid_t pid, char state, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (processState(pid) != state) {
    if (std::chrono::steady_clock::now() >= deadline) {
      return false;
    }
    std::this_thread::sleep_for(kStatePoll);
  }
  return true;
}

}  // namespace oxa::test
