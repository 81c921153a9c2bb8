// What the load tests share: a world with an echo peer, recognisable payloads, timing.
#ifndef OXA_TESTS_INTEGRATION_LOAD_LOAD_SUPPORT_H_
#define OXA_TESTS_INTEGRATION_LOAD_LOAD_SUPPORT_H_

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>

#include "LibraryEvents.h"

namespace oxa::test {

constexpr char kEchoAddress[] = "A0:00:00:00:00:02";
constexpr char kTvAddress[] = "A0:00:00:00:00:01";
constexpr char kLoadScenario[] = R"({
  "devices": [
    {"address": "A0:00:00:00:00:01", "type": 1, "name": "TV"},
    {"address": "A0:00:00:00:00:02", "type": 3, "name": "Echo", "echo": true}
  ]
})";

// `size` bytes that differ from one index to the next and along the payload.
Bytes payloadFor(int index, size_t size);

using Clock = std::chrono::steady_clock;

inline std::chrono::milliseconds elapsedSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
}

// Waits until process `pid` is stopped by a signal (state T in /proc); false after `timeout`.
bool waitStopped(pid_t pid, std::chrono::milliseconds timeout = std::chrono::seconds(5));

}  // namespace oxa::test

#endif  // OXA_TESTS_INTEGRATION_LOAD_LOAD_SUPPORT_H_
