// Where ports live and who this process is: the socket of port P of application A is
// $RPC_PORT_RUNTIME_DIR/A/P (default $XDG_RUNTIME_DIR/rpc-port, else /tmp/rpc-port-<uid>).
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

namespace platform {

// This process's application id: $RPC_PORT_APPID, else the program name.
std::string ownAppId();
// The privileges this process holds: $RPC_PORT_PRIVILEGES, comma-separated.
std::string ownPrivileges();
// True when `privilege` is one of the comma-separated entries of `list`.
bool holdsPrivilege(const std::string &list, const std::string &privilege);
// Milliseconds a blocking read waits for a frame: $RPC_PORT_READ_TIMEOUT_MS, default 10000.
int readTimeoutMs();
// Bytes a stub connection may hold unsent: $RPC_PORT_SEND_QUEUE_MAX, default 64 MiB.
size_t sendQueueLimit();
// Users besides this process's own and root whose peers are accepted: $RPC_PORT_ALLOWED_UIDS,
// comma-separated.
std::vector<uid_t> extraAllowedUids();

// An application id or port name may name one directory entry, nothing else.
bool isValidName(const char *name);
// The directory holding the application directories.
std::string runtimeDirectory();
// The directory holding the ports of `appId`.
std::string appDirectory(const std::string &appId);
// The socket path of `portName` of `appId`.
std::string socketPath(const std::string &appId, const std::string &portName);

}  // namespace platform
