// A private RPC_PORT_RUNTIME_DIR for one test, so tests running in parallel never share sockets.
//
//   class MyTest : public oxa::test::PlatformTest {};   // runtime dir + main context per test
//   TEST_F(MyTest, Connects) { ... runUntil([&] { ... }); }
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "MainLoop.h"

namespace oxa::test {

// Creates a fresh directory (mkdtemp under $TMPDIR, else /tmp), points RPC_PORT_RUNTIME_DIR at
// it, and on destruction removes it with everything inside and restores the previous value.
class ScopedRuntimeDir {
 public:
  ScopedRuntimeDir();
  ScopedRuntimeDir(const ScopedRuntimeDir &) = delete;
  ScopedRuntimeDir &operator=(const ScopedRuntimeDir &) = delete;
  ~ScopedRuntimeDir();

  const std::string &path() const { return path_; }

 private:
  std::string path_;
  std::optional<std::string> previous_;
};

// The whole content of the file at `path`, such as a log written in a runtime dir ("" when it
// cannot be read).
std::string readFile(const std::string &path);

// Test fixture: each test gets its own runtime dir and its own thread-default main context.
class PlatformTest : public ::testing::Test {
 protected:
  bool runUntil(const std::function<bool()> &done,
                std::chrono::milliseconds timeout = kDefaultWait) {
    return oxa::test::runUntil(context_.get(), done, timeout);
  }
  GMainContext *context() const { return context_.get(); }
  const std::string &runtimeDir() const { return runtimeDir_.path(); }

 private:
  ScopedRuntimeDir runtimeDir_;
  ScopedMainContext context_;
};

}  // namespace oxa::test
