// Unix stream sockets, all non-blocking and close-on-exec. Failures are negative errno values.
#pragma once

#include <string>

#include "UniqueFd.h"

namespace platform {

int connectUnix(const std::string &path, UniqueFd *out);
// Replaces whatever is at `path` with a listening socket.
int listenUnix(const std::string &path, UniqueFd *out);
// The next pending connection on `listener`, or an empty UniqueFd when there is none.
UniqueFd acceptConnection(int listener);

}  // namespace platform
