// Runs a program under callgrind and reads back the instruction count of every dump it made with
// CALLGRIND_DUMP_STATS_AT(name).
#pragma once

#include <map>
#include <string>
#include <vector>

namespace bench {

// Dump name -> instructions counted (Ir) in that dump, over all threads of the process.
using RegionCounts = std::map<std::string, long long>;

// Runs `argv` under `valgrind --tool=callgrind` with its dumps in a private temporary directory
// (removed again) and returns the counts; throws std::runtime_error when valgrind cannot be run or
// the program fails. The program runs in a fixed environment (PATH, HOME, TMPDIR, LD_LIBRARY_PATH
// and DLOG_LEVEL as set here, nothing else); its children are not traced.
RegionCounts runUnderCallgrind(const std::vector<std::string> &argv);

}  // namespace bench
