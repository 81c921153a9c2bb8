#include "Trust.h"

#include <dlog.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "Runtime.h"
#include "Socket.h"
#include "UniqueFd.h"

namespace platform {

namespace {

constexpr const char *kLogTag = "RPC_PORT";

bool trustedOwner(uid_t uid) {
  return uid == ::geteuid() || uid == 0;
}

// Opens `path` itself, never what a symbolic link there points to.
int openDirectory(const std::string &path, UniqueFd *out) {
  out->reset(::open(path.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  return out->get() < 0 ? -errno : 0;
}

int refuse(const std::string &path, const char *fault, const char *fix) {
  dlog_print(DLOG_ERROR, kLogTag, "Refusing directory %s: %s; %s", path.c_str(), fault, fix);
  return -EACCES;
}

int checkOpenFailure(const std::string &path, int error) {
  if (error == -ELOOP || error == -ENOTDIR) {
    return refuse(path, "it is a symbolic link or not a directory",
                  "remove it so that it is made again as a private directory");
  }
  if (error == -EACCES || error == -EPERM) {
    return refuse(path, "it cannot be opened by this user",
                  "let this user search it, or use a runtime directory of its own");
  }
  return error;
}

int checkOwnerAndMode(const std::string &path, int fd) {
  struct stat info {};
  if (::fstat(fd, &info) < 0) {
    return -errno;
  }
  if (!trustedOwner(info.st_uid)) {
    return refuse(path,
                  ("it belongs to uid " + std::to_string(info.st_uid) + ", not to uid " +
                   std::to_string(::geteuid()) + " or root")
                      .c_str(),
                  "remove it, or give it to this user (chown)");
  }
  if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    return refuse(path, "it is writable by group or others",
                  "remove their write permission (chmod go-w) or remove it");
  }
  return 0;
}

// Checks `path`; with `create`, makes it first when it is missing. -ENOENT when it is missing and
// not to be made.
int secureDirectory(const std::string &path, bool create) {
  if (create && ::mkdir(path.c_str(), 0700) < 0 && errno != EEXIST) {
    return -errno;
  }
  UniqueFd fd;
  const int error = openDirectory(path, &fd);
  if (error != 0) {
    return checkOpenFailure(path, error);
  }
  return checkOwnerAndMode(path, fd.get());
}

// Makes the missing ancestors of `path` (mode 0700), which are not checked: only the runtime
// directory and what is inside it hold sockets.
void makeAncestors(const std::string &path) {
  for (size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    ::mkdir(path.substr(0, slash).c_str(), 0700);
  }
}

}  // namespace

int securePortDirectory(const std::string &appId, DirectoryUse use) {
  const bool create = use == DirectoryUse::kCreate;
  const std::string runtime = runtimeDirectory();
  if (create) {
    makeAncestors(runtime);
  }
  for (const std::string &path : {runtime, appDirectory(appId)}) {
    const int error = secureDirectory(path, create);
    if (error == -ENOENT && !create) {
      return 0;
    }
    if (error != 0) {
      return error;
    }
  }
  return 0;
}

bool isAllowedPeer(int fd) {
  uid_t uid = 0;
  if (peerUid(fd, &uid) != 0) {
    return false;
  }
  if (trustedOwner(uid)) {
    return true;
  }
  const std::vector<uid_t> extra = extraAllowedUids();
  if (std::find(extra.begin(), extra.end(), uid) != extra.end()) {
    return true;
  }
  dlog_print(DLOG_ERROR, kLogTag,
             "Refusing a peer of uid %u: only uid %u, root and RPC_PORT_ALLOWED_UIDS may connect",
             static_cast<unsigned>(uid), static_cast<unsigned>(::geteuid()));
  return false;
}

}  // namespace platform
