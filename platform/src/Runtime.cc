#include "Runtime.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>

namespace platform {

namespace {

constexpr int kDefaultReadTimeoutMs = 10000;
constexpr size_t kDefaultSendQueueLimit = size_t{64} << 20;

std::string environment(const char *name) {
  const char *value = std::getenv(name);
  return value != nullptr ? std::string(value) : std::string();
}

// A positive decimal number from the environment, or std::nullopt.
std::optional<unsigned long long> positiveNumber(const char *name) {
  const char *text = std::getenv(name);
  if (text == nullptr || *text < '0' || *text > '9') {
    return std::nullopt;
  }
  char *end = nullptr;
  errno = 0;
  const unsigned long long value = std::strtoull(text, &end, 10);
  if (*end != '\0' || errno != 0 || value == 0) {
    return std::nullopt;
  }
  return value;
}

std::string runtimeDirectory() {
  std::string dir = environment("RPC_PORT_RUNTIME_DIR");
  if (!dir.empty()) {
    return dir;
  }
  dir = environment("XDG_RUNTIME_DIR");
  if (!dir.empty()) {
    return dir + "/rpc-port";
  }
  return "/tmp/rpc-port-" + std::to_string(getuid());
}

std::string trimmed(const std::string &text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

}  // namespace

std::string ownAppId() {
  std::string appId = environment("RPC_PORT_APPID");
  return appId.empty() ? std::string(program_invocation_short_name) : appId;
}

std::string ownPrivileges() {
  return environment("RPC_PORT_PRIVILEGES");
}

bool holdsPrivilege(const std::string &list, const std::string &privilege) {
  size_t start = 0;
  while (start <= list.size()) {
    size_t end = list.find(',', start);
    if (end == std::string::npos) {
      end = list.size();
    }
    if (trimmed(list.substr(start, end - start)) == privilege) {
      return true;
    }
    start = end + 1;
  }
  return false;
}

int readTimeoutMs() {
  const std::optional<unsigned long long> value = positiveNumber("RPC_PORT_READ_TIMEOUT_MS");
  return value && *value <= INT32_MAX ? static_cast<int>(*value) : kDefaultReadTimeoutMs;
}

size_t sendQueueLimit() {
  const std::optional<unsigned long long> value = positiveNumber("RPC_PORT_SEND_QUEUE_MAX");
  return value && *value <= SIZE_MAX ? static_cast<size_t>(*value) : kDefaultSendQueueLimit;
}

bool isValidName(const char *name) {
  return name != nullptr && *name != '\0' && std::strchr(name, '/') == nullptr &&
         std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0;
}

std::string appDirectory(const std::string &appId) {
  return runtimeDirectory() + "/" + appId;
}

std::string socketPath(const std::string &appId, const std::string &portName) {
  return appDirectory(appId) + "/" + portName;
}

bool makeDirectories(const std::string &path) {
  for (size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    ::mkdir(path.substr(0, slash).c_str(), 0700);
  }
  if (::mkdir(path.c_str(), 0700) == 0 || errno == EEXIST) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
  }
  return false;
}

}  // namespace platform
