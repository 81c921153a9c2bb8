// Unix stream sockets, all non-blocking and close-on-exec. Failures are negative errno values.
#pragma once

#include <sys/types.h>

#include <string>

#include "UniqueFd.h"

namespace platform {

int connectUnix(const std::string &path, UniqueFd *out);
// Replaces whatever is at `path` with a listening socket.
int listenUnix(const std::string &path, UniqueFd *out);
// Takes the next pending connection on `listener` into `out`; -EAGAIN when there is none.
int acceptConnection(int listener, UniqueFd *out);
// The user id of the process at the other end of `fd` (as it was when it connected or listened).
int peerUid(int fd, uid_t *uid);

}  // namespace platform
