#include "CallgrindRun.h"

#include <glib.h>
#include <glib/gstdio.h>

#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "CallgrindRegion.h"

namespace bench {

namespace {

constexpr char kDumpPrefix[] = "callgrind.out";
constexpr char kNameLine[] = "desc: Trigger: Client Request: ";
constexpr char kSummaryLine[] = "summary: ";

struct GFreeDeleter {
  void operator()(void *pointer) const { g_free(pointer); }
};

// The only variables the measured program sees, when set here. The host log looks its level up in
// the environment on every line, and that lookup grows with the environment: a fixed one gives
// the same count whatever shell or CI job starts the check.
constexpr const char *kKeptVariables[] = {"PATH", "HOME", "TMPDIR", "LD_LIBRARY_PATH",
                                          "DLOG_LEVEL"};

// "NAME=value" for each kept variable that is set.
std::vector<std::string> fixedEnvironment() {
  std::vector<std::string> kept;
  for (const char *name : kKeptVariables) {
    if (const char *value = g_getenv(name)) {
      kept.push_back(std::string(name) + "=" + value);
    }
  }
  return kept;
}

// The argv-style array of `strings`, pointing into them.
std::vector<char *> pointersTo(std::vector<std::string> &strings) {
  std::vector<char *> pointers;
  pointers.reserve(strings.size() + 1);
  for (std::string &text : strings) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

bool startsWith(const std::string &text, const char *prefix) {
  return text.compare(0, std::char_traits<char>::length(prefix), prefix) == 0;
}

// Reads one region's dump: its name and its instruction count. The dump at exit names no region;
// it is skipped, and its summary is not read (with instrumentation switched off and on, callgrind
// can write a wrapped-around figure there).
void readDump(const std::string &path, RegionCounts &counts) {
  std::ifstream in(path);
  std::string name;
  for (std::string line; std::getline(in, line);) {
    if (startsWith(line, kNameLine)) {
      name = line.substr(std::char_traits<char>::length(kNameLine));
    } else if (startsWith(line, kSummaryLine)) {
      if (!name.empty()) {
        counts[name] = std::stoll(line.substr(std::char_traits<char>::length(kSummaryLine)));
      }
      return;
    }
  }
}

// A temporary directory, removed with the dumps in it.
class DumpDir {
 public:
  DumpDir() : path_(makeDir()) {}
  ~DumpDir() {
    if (GDir *dir = g_dir_open(path_.c_str(), 0, nullptr)) {
      while (const char *entry = g_dir_read_name(dir)) {
        g_remove((path_ + "/" + entry).c_str());
      }
      g_dir_close(dir);
    }
    g_rmdir(path_.c_str());
  }
  DumpDir(const DumpDir &) = delete;
  DumpDir &operator=(const DumpDir &) = delete;

  const std::string &path() const { return path_; }

  RegionCounts counts() const {
    RegionCounts counts;
    GDir *dir = g_dir_open(path_.c_str(), 0, nullptr);
    if (dir == nullptr) {
      return counts;
    }
    while (const char *entry = g_dir_read_name(dir)) {
      if (startsWith(entry, kDumpPrefix)) {
        readDump(path_ + "/" + entry, counts);
      }
    }
    g_dir_close(dir);
    return counts;
  }

 private:
  static std::string makeDir() {
    const std::unique_ptr<char, GFreeDeleter> made(g_dir_make_tmp("oxa-cost-XXXXXX", nullptr));
    if (!made) {
      throw std::runtime_error("cannot create a temporary directory");
    }
    return made.get();
  }

  std::string path_;
};

}  // namespace

RegionCounts runUnderCallgrind(const std::vector<std::string> &argv,
                               const std::vector<std::string> &valgrindOptions) {
  const DumpDir dumps;
  std::vector<std::string> command = {"valgrind", "--tool=callgrind", "--quiet",
                                      "--trace-children=no",
                                      "--callgrind-out-file=" + dumps.path() + "/" + kDumpPrefix};
  command.insert(command.end(), valgrindOptions.begin(), valgrindOptions.end());
  command.insert(command.end(), argv.begin(), argv.end());
  std::vector<char *> args = pointersTo(command);
  std::vector<std::string> environment = fixedEnvironment();
  std::vector<char *> envp = pointersTo(environment);
  int status = 0;
  GError *error = nullptr;
  if (!g_spawn_sync(nullptr, args.data(), envp.data(), G_SPAWN_SEARCH_PATH, nullptr, nullptr,
                    nullptr, nullptr, &status, &error)) {
    const std::string message = error->message;
    g_error_free(error);
    throw std::runtime_error("cannot run valgrind: " + message);
  }
  if (!g_spawn_check_wait_status(status, nullptr)) {
    throw std::runtime_error("the probe failed under callgrind");
  }
  return dumps.counts();
}

RegionCounts runProbeUnderCallgrind(const std::vector<std::string> &valgrindOptions) {
  const std::unique_ptr<char, GFreeDeleter> self(g_file_read_link("/proc/self/exe", nullptr));
  if (!self) {
    throw std::runtime_error("cannot resolve /proc/self/exe");
  }
  return runUnderCallgrind({self.get(), kProbeArgument}, valgrindOptions);
}

double perRepetition(const RegionCounts &counts, const std::string &path, RunLengths lengths) {
  const auto shortRun = counts.find(regionName(path, lengths.shortRun));
  const auto longRun = counts.find(regionName(path, lengths.longRun));
  if (shortRun == counts.end() || longRun == counts.end()) {
    throw std::runtime_error("no callgrind dump for " + path);
  }
  return static_cast<double>(longRun->second - shortRun->second) /
         (lengths.longRun - lengths.shortRun);
}

}  // namespace bench
