// $DLOG_LEVEL and $DLOG_FILE as the environment says now, each read only when it is needed: a
// line that the level drops never looks for the file.
#pragma once

namespace platform {

// Rank of the lowest level logged: V 0, D 1, I 2, W 3, E 4, F 5, S 6 (nothing).
// Read on every line, so that a change made through setenv or unsetenv is seen by the next line.
int currentThresholdRank();

// $DLOG_FILE, or nullptr when unset or empty.
const char *currentDlogFile();

}  // namespace platform
