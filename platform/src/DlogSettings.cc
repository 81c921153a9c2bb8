#include "DlogSettings.h"

#include <cstdlib>
#include <cstring>

namespace platform {

namespace {

constexpr char kLetterOrder[] = "VDIWEFS";
constexpr int kDefaultRank = 2;  // I

int rankOf(char letter) {
  const char *found = std::strchr(kLetterOrder, letter);
  return (letter != '\0' && found != nullptr) ? static_cast<int>(found - kLetterOrder) : -1;
}

}  // namespace

// getenv on every line: a cached view of the environment cannot tell when setenv has moved or
// freed its entries.
DlogSettings currentDlogSettings() {
  DlogSettings settings{kDefaultRank, nullptr};
  const char *level = std::getenv("DLOG_LEVEL");
  if (level != nullptr) {
    const int rank = rankOf(level[0]);
    settings.thresholdRank = rank < 0 ? kDefaultRank : rank;
  }
  const char *file = std::getenv("DLOG_FILE");
  settings.file = (file != nullptr && *file != '\0') ? file : nullptr;
  return settings;
}

}  // namespace platform
