// Only the right peers connect: directories that another user made or may change are refused on
// both sides with one log line, and peers of another user are refused unless
// RPC_PORT_ALLOWED_UIDS lists them.
#include <capi-base-common.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "MainLoop.h"
#include "PlatformHarness.h"
#include "RawPeer.h"

namespace oxa::test {
namespace {

constexpr uid_t kNobody = 65534;

class TrustTest : public TransportTest {
 protected:
  TrustTest() : logFile_(runtimeDir() + ".log") { ::setenv("DLOG_FILE", logFile_.c_str(), 1); }
  ~TrustTest() override {
    ::unsetenv("DLOG_FILE");
    ::unsetenv("RPC_PORT_ALLOWED_UIDS");
    std::remove(logFile_.c_str());
  }

  std::string appDir() const { return runtimeDir() + "/" + kAppId; }

  // The lines logged so far, and forgets them.
  std::vector<std::string> takeLog() {
    std::ifstream in(logFile_);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
      lines.push_back(line);
    }
    std::ofstream(logFile_, std::ios::trunc);
    return lines;
  }

  // Expects that the stub does not listen and the proxy's connect fails at once, each with the
  // one line `expected`.
  void expectRefusedBothWays(const std::string &expected) {
    TestStub stub;
    EXPECT_EQ(RPC_PORT_ERROR_PERMISSION_DENIED, stub.listen());
    EXPECT_EQ(std::vector<std::string>{expected}, takeLog());
    TestProxy proxy;
    EXPECT_EQ(RPC_PORT_ERROR_PERMISSION_DENIED, proxy.connect());
    EXPECT_EQ(std::vector<std::string>{expected}, takeLog());
    dispatchPending(context());
    EXPECT_EQ(0, proxy.rejectedCount + proxy.connectedCount);
  }

  std::string line(const std::string &dir, const std::string &fault, const std::string &fix) {
    return "E/RPC_PORT(" + std::to_string(::getpid()) + "): Refusing directory " + dir + ": " +
           fault + "; " + fix;
  }

 private:
  std::string logFile_;
};

TEST_F(TrustTest, PrivateDirectoriesAreMadeAndUsed) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  struct stat info {};
  ASSERT_EQ(0, ::lstat(appDir().c_str(), &info));
  EXPECT_TRUE(S_ISDIR(info.st_mode));
  EXPECT_EQ(0700U, info.st_mode & 0777U);
  EXPECT_EQ(::geteuid(), info.st_uid);
  TestProxy proxy;
  ASSERT_EQ(0, proxy.connect());
  EXPECT_TRUE(runUntil([&] { return proxy.connectedCount == 1; }));
  EXPECT_TRUE(takeLog().empty());
}

TEST_F(TrustTest, RuntimeDirectoryWritableByOthersIsRefused) {
  ASSERT_EQ(0, ::chmod(runtimeDir().c_str(), 0777));
  expectRefusedBothWays(line(runtimeDir(), "it is writable by group or others",
                             "remove their write permission (chmod go-w) or remove it"));
}

TEST_F(TrustTest, AppDirectoryWritableByGroupIsRefused) {
  ASSERT_EQ(0, ::mkdir(appDir().c_str(), 0700));
  ASSERT_EQ(0, ::chmod(appDir().c_str(), 0770));
  expectRefusedBothWays(line(appDir(), "it is writable by group or others",
                             "remove their write permission (chmod go-w) or remove it"));
}

TEST_F(TrustTest, SymbolicLinkInPlaceOfTheDirectoryIsRefused) {
  const std::string elsewhere = runtimeDir() + "/elsewhere";
  ASSERT_EQ(0, ::mkdir(elsewhere.c_str(), 0700));
  ASSERT_EQ(0, ::symlink(elsewhere.c_str(), appDir().c_str()));
  expectRefusedBothWays(line(appDir(), "it is a symbolic link or not a directory",
                             "remove it so that it is made again as a private directory"));
}

TEST_F(TrustTest, DirectoryOfAnotherUserIsRefused) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can give a directory to another user";
  }
  ASSERT_EQ(0, ::mkdir(appDir().c_str(), 0700));
  ASSERT_EQ(0, ::chown(appDir().c_str(), kNobody, kNobody));
  expectRefusedBothWays(line(appDir(), "it belongs to uid 65534, not to uid 0 or root",
                             "remove it, or give it to this user (chown)"));
}

// Opens the stub's directories and socket to everyone but writers, so that a child running as
// `nobody` gets as far as the handshake.
void openToOthers(const std::string &runtime, const std::string &app) {
  ASSERT_EQ(0, ::chmod(runtime.c_str(), 0755));
  ASSERT_EQ(0, ::chmod(app.c_str(), 0755));
  ASSERT_EQ(0, ::chmod(portPath(kAppId, kPortName).c_str(), 0777));
}

// Connects as `nobody` in a child; its exit code is 0 when connected, 13 when rejected with
// get_last_result() -13, other values otherwise.
int connectAsNobody(GMainContext *context) {
  ChildProcess child = ChildProcess::spawn([]() -> int {
    if (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0) {
      return 90;
    }
    ScopedMainContext loop;
    TestProxy proxy;
    if (proxy.connect() != 0) {
      return 91;
    }
    runUntil(
        loop.get(), [&] { return proxy.connectedCount + proxy.rejectedCount > 0; }, kDefaultWait);
    if (proxy.connectedCount == 1) {
      return 0;
    }
    return proxy.rejectedCount == 1 && proxy.rejectResult == RPC_PORT_ERROR_PERMISSION_DENIED ? 13
                                                                                              : 92;
  });
  std::optional<int> status;
  runUntil(
      context,
      [&] {
        status = child.waitExit(std::chrono::milliseconds(0));
        return status.has_value();
      },
      kDefaultWait);
  return status && WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
}

TEST_F(TrustTest, PeerOfAnotherUserIsRefused) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can run a peer as another user";
  }
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  openToOthers(runtimeDir(), appDir());
  EXPECT_EQ(13, connectAsNobody(context()));
  EXPECT_TRUE(stub.connected.empty());
  const std::vector<std::string> lines = takeLog();
  ASSERT_EQ(1U, lines.size());
  EXPECT_EQ("E/RPC_PORT(" + std::to_string(::getpid()) +
                "): Refusing a peer of uid 65534: only uid 0, root and RPC_PORT_ALLOWED_UIDS may "
                "connect",
            lines[0]);
}

TEST_F(TrustTest, AllowedUidsLetAnotherUserIn) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can run a peer as another user";
  }
  ::setenv("RPC_PORT_ALLOWED_UIDS", "1234, 65534", 1);
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  openToOthers(runtimeDir(), appDir());
  EXPECT_EQ(0, connectAsNobody(context()));
  EXPECT_EQ(1U, stub.connected.size());
}

}  // namespace
}  // namespace oxa::test
