// $DLOG_LEVEL and $DLOG_FILE, read from the environment only when it has changed since the last
// look. Most lines are filtered out, so a line must not pay for a walk of the environment.
#pragma once

namespace platform {

struct DlogSettings {
  // Rank of the lowest level logged: V 0, D 1, I 2, W 3, E 4, F 5, S 6 (nothing).
  int thresholdRank;
  // $DLOG_FILE, or nullptr when unset or empty. Points into the environment entry, which
  // setenv/unsetenv never free.
  const char *file;
};

// The settings as the environment says now. A change made through setenv, unsetenv, putenv or
// clearenv is seen by the next call of any thread.
DlogSettings currentDlogSettings();

}  // namespace platform
