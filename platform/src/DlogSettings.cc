#include "DlogSettings.h"

#include <cstddef>
#include <cstring>

extern char *
    *environ;  // NOLINT(readability-redundant-declaration): unistd.h has it only with _GNU_SOURCE

namespace platform {

namespace {

constexpr char kLevelName[] = "DLOG_LEVEL=";
constexpr char kFileName[] = "DLOG_FILE=";
constexpr char kLetterOrder[] = "VDIWEFS";
constexpr int kDefaultRank = 2;  // I

// What this thread last read from the environment, and how to tell whether it still holds:
// setenv and unsetenv change the array (a new array, a moved end) or the entry they touch.
struct EnvironmentView {
  bool taken = false;
  char **environment = nullptr;
  size_t count = 0;
  const char *last = nullptr;
  size_t levelIndex = 0;
  const char *levelEntry = nullptr;
  size_t fileIndex = 0;
  const char *fileEntry = nullptr;
  DlogSettings settings{kDefaultRank, nullptr};
};

// Per thread, so that no line takes a lock; initial-exec keeps an access a single load.
thread_local EnvironmentView view __attribute__((tls_model("initial-exec")));

int rankOf(char letter) {
  const char *found = std::strchr(kLetterOrder, letter);
  return (letter != '\0' && found != nullptr) ? static_cast<int>(found - kLetterOrder) : -1;
}

bool matches(const char *entry, const char *prefix, size_t length) {
  return std::strncmp(entry, prefix, length) == 0;
}

bool unchanged(const EnvironmentView &seen) {
  char **environment = environ;
  if (!seen.taken || environment != seen.environment) {
    return false;
  }
  if (environment == nullptr) {
    return true;
  }
  if (environment[seen.count] != nullptr ||
      (seen.count > 0 && environment[seen.count - 1] != seen.last)) {
    return false;
  }
  return (seen.levelEntry == nullptr || environment[seen.levelIndex] == seen.levelEntry) &&
         (seen.fileEntry == nullptr || environment[seen.fileIndex] == seen.fileEntry);
}

// Walks the environment as getenv would (the first entry of a name counts).
EnvironmentView take() {
  EnvironmentView seen;
  seen.taken = true;
  seen.environment = environ;
  for (size_t index = 0; seen.environment != nullptr && seen.environment[index] != nullptr;
       ++index) {
    const char *entry = seen.environment[index];
    if (seen.levelEntry == nullptr && matches(entry, kLevelName, sizeof kLevelName - 1)) {
      seen.levelIndex = index;
      seen.levelEntry = entry;
    } else if (seen.fileEntry == nullptr && matches(entry, kFileName, sizeof kFileName - 1)) {
      seen.fileIndex = index;
      seen.fileEntry = entry;
    }
    seen.count = index + 1;
    seen.last = entry;
  }
  if (seen.levelEntry != nullptr) {
    const int rank = rankOf(seen.levelEntry[sizeof kLevelName - 1]);
    seen.settings.thresholdRank = rank < 0 ? kDefaultRank : rank;
  }
  const char *file = seen.fileEntry != nullptr ? seen.fileEntry + sizeof kFileName - 1 : nullptr;
  seen.settings.file = (file != nullptr && *file != '\0') ? file : nullptr;
  return seen;
}

// Out of line, so that the check of every line needs no saved registers.
__attribute__((noinline)) void refresh() {
  view = take();
}

}  // namespace

DlogSettings currentDlogSettings() {
  if (!unchanged(view)) {
    refresh();
  }
  return view.settings;
}

}  // namespace platform
