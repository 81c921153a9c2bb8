#include "DlogSettings.h"

#include <cstdlib>

namespace platform {

namespace {

constexpr int kDefaultRank = 2;  // I

int rankOf(char letter) {
  switch (letter) {
    case 'V':
      return 0;
    case 'D':
      return 1;
    case 'I':
      return 2;
    case 'W':
      return 3;
    case 'E':
      return 4;
    case 'F':
      return 5;
    case 'S':
      return 6;
    default:
      return kDefaultRank;
  }
}

}  // namespace

// getenv on every line: a cached view of the environment cannot tell when setenv has moved or
// freed its entries.
int currentThresholdRank() {
  const char *level = std::getenv("DLOG_LEVEL");
  return level != nullptr ? rankOf(level[0]) : kDefaultRank;
}

const char *currentDlogFile() {
  const char *file = std::getenv("DLOG_FILE");
  return (file != nullptr && *file != '\0') ? file : nullptr;
}

}  // namespace platform
