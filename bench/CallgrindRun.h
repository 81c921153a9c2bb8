// Runs a program under callgrind and reads back the instruction count of every dump it made with
// CALLGRIND_DUMP_STATS_AT(name).
#pragma once

#include <map>
#include <string>
#include <vector>

namespace bench {

// Dump name -> instructions counted (Ir) in that dump, over all threads of the process.
using RegionCounts = std::map<std::string, long long>;

// The two repetition counts of one path: its short and its long run.
struct RunLengths {
  int shortRun;
  int longRun;
};

// Runs `argv` under `valgrind --tool=callgrind` with `valgrindOptions`, its dumps in a private
// temporary directory (removed again), and returns the counts; throws std::runtime_error when
// valgrind cannot be run or the program fails. The program runs in a fixed environment (PATH,
// HOME, TMPDIR, LD_LIBRARY_PATH and DLOG_LEVEL as set here, nothing else); its children are not
// traced.
RegionCounts runUnderCallgrind(const std::vector<std::string> &argv,
                               const std::vector<std::string> &valgrindOptions = {});

// Runs this very program with the probe argument under callgrind (see runUnderCallgrind).
RegionCounts runProbeUnderCallgrind(const std::vector<std::string> &valgrindOptions = {});

// Instructions per repetition of `path`: the difference between the dumps of its long and its
// short run (regionName(path, n)), divided by the difference in repetitions, so that set-up and
// framing cancel out. Throws std::runtime_error when a dump is missing.
double perRepetition(const RegionCounts &counts, const std::string &path, RunLengths lengths);

}  // namespace bench
