#include "LoadSupport.h"

#include <fstream>
#include <string>
#include <thread>

namespace oxa::test {

Bytes payloadFor(int index, size_t size) {
  Bytes payload(size);
  for (size_t at = 0; at < size; ++at) {
    payload[at] = static_cast<unsigned char>(static_cast<size_t>(index) * 31 + at);
  }
  return payload;
}

namespace {

char processState(pid_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string text;
  std::getline(stat, text);
  // "pid (comm) S ...": the state follows the last parenthesis.
  const size_t close = text.rfind(')');
  return close == std::string::npos || close + 2 >= text.size() ? '?' : text[close + 2];
}

constexpr std::chrono::milliseconds kStatePoll{1};

}  // namespace

bool waitStopped(pid_t pid, std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  while (processState(pid) != 'T') {
    if (Clock::now() >= deadline) {
      return false;
    }
    std::this_thread::sleep_for(kStatePoll);
  }
  return true;
}

}  // namespace oxa::test
