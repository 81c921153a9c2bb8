// $DLOG_LEVEL and $DLOG_FILE as the environment says now.
#pragma once

namespace platform {

struct DlogSettings {
  // Rank of the lowest level logged: V 0, D 1, I 2, W 3, E 4, F 5, S 6 (nothing).
  int thresholdRank;
  // $DLOG_FILE, or nullptr when unset or empty.
  const char *file;
};

// Read on every line, so that a change made through setenv or unsetenv is seen by the next line.
DlogSettings currentDlogSettings();

}  // namespace platform
