// Where dlog lines go: appended to $DLOG_FILE when it is set, else stderr. Each line is handed
// over in one write(), so lines from concurrent threads and processes never mix.
#pragma once

#include <cstddef>

namespace platform {

// Writes `size` bytes of one complete line to the file `path`, or to stderr when `path` is null;
// returns the bytes written or a negative errno.
int writeLogLine(const char *path, const char *line, size_t size);

}  // namespace platform
