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

}  // namespace

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

namespace {

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

std::vector<uid_t> extraAllowedUids() {
  const std::string list = environment("RPC_PORT_ALLOWED_UIDS");
  std::vector<uid_t> uids;
  size_t start = 0;
  while (start < list.size()) {
    size_t end = list.find(',', start);
    if (end == std::string::npos) {
      end = list.size();
    }
    const std::string entry = trimmed(list.substr(start, end - start));
    char *last = nullptr;
    const unsigned long uid = std::strtoul(entry.c_str(), &last, 10);
    if (!entry.empty() && *last == '\0' && uid < UINT32_MAX) {
      uids.push_back(static_cast<uid_t>(uid));
    }
    start = end + 1;
  }
  return uids;
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

}  // namespace platform
