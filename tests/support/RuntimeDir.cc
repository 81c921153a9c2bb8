#include "RuntimeDir.h"

#include <ftw.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace oxa::test {

namespace {

int removeEntry(const char *path, const struct stat * /*info*/, int /*type*/, FTW * /*ftw*/) {
  return ::remove(path);
}

std::string makeTemporaryDirectory() {
  const char *base = std::getenv("TMPDIR");
  std::string pattern =
      std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/rpc-port-test-XXXXXX";
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  if (::mkdtemp(buffer.data()) == nullptr) {
    throw std::runtime_error("mkdtemp failed for " + pattern);
  }
  return {buffer.data()};
}

}  // namespace

ScopedRuntimeDir::ScopedRuntimeDir() : path_(makeTemporaryDirectory()) {
  const char *previous = std::getenv("RPC_PORT_RUNTIME_DIR");
  if (previous != nullptr) {
    previous_ = previous;
  }
  ::setenv("RPC_PORT_RUNTIME_DIR", path_.c_str(), 1);
}

ScopedRuntimeDir::~ScopedRuntimeDir() {
  if (previous_) {
    ::setenv("RPC_PORT_RUNTIME_DIR", previous_->c_str(), 1);
  } else {
    ::unsetenv("RPC_PORT_RUNTIME_DIR");
  }
  ::nftw(path_.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
}

std::string readFile(const std::string &path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace oxa::test
