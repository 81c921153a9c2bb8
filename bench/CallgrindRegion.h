// The measured program's side of a callgrind count: regions framed by client requests, so that
// only a region's own instructions land in its dump. Outside valgrind the requests do nothing.
#pragma once

#include <valgrind/callgrind.h>
#include <valgrind/valgrind.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

namespace bench {

// The argument that makes a check run as the measured program instead of as the checker.
constexpr char kProbeArgument[] = "--probe";

// Region names: "<path>-<repetitions>".
inline std::string regionName(const std::string &path, int repetitions) {
  return path + "-" + std::to_string(repetitions);
}

// True when this process is the probe of `program`; says so on stderr when it is not run by
// callgrind, since its counts then go nowhere.
inline bool isProbe(int argc, char **argv, const char *program) {
  if (argc < 2 || std::strcmp(argv[1], kProbeArgument) != 0) {
    return false;
  }
  if (RUNNING_ON_VALGRIND == 0) {
    std::fprintf(stderr, "%s: %s runs under callgrind (started by %s)\n", program, kProbeArgument,
                 program);
  }
  return true;
}

// Frames one measured region: counters zeroed on entry, dumped under `name` on exit.
class Region {
 public:
  explicit Region(std::string name) : name_(std::move(name)) { CALLGRIND_ZERO_STATS; }
  ~Region() { CALLGRIND_DUMP_STATS_AT(name_.c_str()); }
  Region(const Region &) = delete;
  Region &operator=(const Region &) = delete;

 private:
  std::string name_;
};

}  // namespace bench
