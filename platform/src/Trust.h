// Who a port may be shared with. Sockets live only in directories that no other unprivileged user
// could have made or can change: the runtime directory and each application's directory in it
// belong to this process's user or to root and are not writable by group or others. Peers must
// run as this process's user, as root, or as a user listed in $RPC_PORT_ALLOWED_UIDS.
#pragma once

#include <string>

namespace platform {

enum class DirectoryUse {
  kCreate,  // a stub: missing directories are made (mode 0700)
  kCheck,   // a proxy: a missing directory is left to connect() to report
};

// Checks (and for kCreate makes) the runtime directory and the directory of `appId`. 0 when they
// are safe to use; otherwise logs one line naming the directory, the fault and its fix, and
// returns -EACCES, or another -errno when a directory cannot be made.
int securePortDirectory(const std::string &appId, DirectoryUse use);
// True when the process at the other end of `fd` runs as a user this process accepts.
bool isAllowedPeer(int fd);

}  // namespace platform
