// A stub bounds what clients can make it hold: closed connections leave nothing behind, running
// out of descriptors makes accept() back off instead of spinning, and a connection that does not
// complete its handshake within the read timeout is closed.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "MainLoop.h"
#include "PlatformHarness.h"
#include "RawPeer.h"

namespace oxa::test {
namespace {

using Clock = std::chrono::steady_clock;

class BoundsTest : public TransportTest {};

// The resident set of process `pid` in KiB (VmRSS), or -1.
long residentKiB(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) {
      return std::stol(line.substr(6));
    }
  }
  return -1;
}

// User plus system CPU time of process `pid`, in clock ticks, or -1.
long cpuTicks(pid_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
  // Fields after the command name, which is in parentheses and may hold spaces.
  std::istringstream fields(text.substr(text.rfind(')') + 2));
  std::string field;
  long ticks = 0;
  for (int index = 3; fields >> field; ++index) {
    if (index == 14 || index == 15) {
      ticks += std::stol(field);
    }
  }
  return text.empty() ? -1 : ticks;
}

// Connects a proxy synchronously, does one request, and destroys it.
bool oneCycle() {
  TestProxy proxy;
  int reply = 0;
  return proxy.connectSync() == 0 && proxy.sendRequest(1) == 0 && proxy.readReply(&reply) == 0 &&
         reply == 2;
}

// A stub process that answers each request and keeps no record of its own.
ChildProcess spawnPlainStub() {
  ReadyPipe ready;
  ChildProcess child = ChildProcess::spawn([&]() -> int {
    ScopedMainContext context;
    rpc_port_stub_h stub = nullptr;
    rpc_port_stub_create(&stub, kPortName);
    rpc_port_stub_add_received_event_cb(
        stub,
        [](const char *, const char *, rpc_port_h port, void *) {
          const ParcelPtr request = receiveParcel(port);
          int value = 0;
          if (!request || rpc_port_parcel_read_int32(request.get(), &value) != 0) {
            return -1;
          }
          return rpc_port_parcel_send(parcelWithInt(value + 1).get(), port);
        },
        nullptr);
    ready.signal(rpc_port_stub_listen(stub) == 0 ? 'y' : 'n');
    for (;;) {
      g_main_context_iteration(context.get(), TRUE);
    }
  });
  EXPECT_EQ('y', ready.wait(kDefaultWait));
  return child;
}

TEST_F(BoundsTest, ClosedConnectionsLeaveNothingBehind) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "AddressSanitizer keeps freed memory in quarantine, so RSS cannot show a leak";
#elif defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "ThreadSanitizer's own per-thread and sync-object memory grows RSS meanwhile";
#endif
  constexpr int kWarmUp = 1000;
  constexpr int kCycles = 10000;
  ChildProcess stub = spawnPlainStub();
  for (int i = 0; i < kWarmUp; ++i) {
    ASSERT_TRUE(oneCycle());
  }
  const long before = residentKiB(stub.pid());
  for (int i = 0; i < kCycles; ++i) {
    ASSERT_TRUE(oneCycle());
  }
  const long after = residentKiB(stub.pid());
  ASSERT_GT(before, 0);
  // A record of even 100 bytes per closed connection would add about 1 MiB.
  EXPECT_LT(after - before, 256) << before << " KiB before, " << after << " KiB after";
}

TEST_F(BoundsTest, AcceptBacksOffWhenDescriptorsRunOut) {
  constexpr int kSilent = 40;
  ::setenv("RPC_PORT_READ_TIMEOUT_MS", "60000", 1);
  ChildProcess stub = spawnStubProcess([](TestStub &) {
    const rlimit limit{24, 24};
    ::setrlimit(RLIMIT_NOFILE, &limit);
  });
  std::vector<RawSocket> silent;
  for (int i = 0; i < kSilent; ++i) {
    silent.push_back(RawSocket::connectTo(portPath(kAppId, kPortName)));
    ASSERT_TRUE(silent.back().valid());
  }
  // The stub takes what it can at once; for the rest of this second it must idle.
  const long startTicks = cpuTicks(stub.pid());
  const Clock::time_point start = Clock::now();
  ::usleep(1000 * 1000);
  const long usedTicks = cpuTicks(stub.pid()) - startTicks;
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  const double share =
      static_cast<double>(usedTicks) / static_cast<double>(sysconf(_SC_CLK_TCK)) / seconds;
  EXPECT_LT(share, 0.05) << usedTicks << " ticks in " << seconds << " s";

  silent.clear();
  const Clock::time_point freed = Clock::now();
  bool served = false;
  while (!served && Clock::now() - freed < kDefaultWait) {
    served = oneCycle();
  }
  EXPECT_TRUE(served);
}

TEST_F(BoundsTest, SilentConnectionIsClosedAfterTheReadTimeout) {
  constexpr int kTimeoutMs = 400;
  ::setenv("RPC_PORT_READ_TIMEOUT_MS", std::to_string(kTimeoutMs).c_str(), 1);
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  const Clock::time_point start = Clock::now();
  RawSocket silent = RawSocket::connectTo(portPath(kAppId, kPortName));
  ASSERT_TRUE(silent.valid());
  ASSERT_TRUE(
      runUntil([&] { return silent.readable(); }, std::chrono::milliseconds(kTimeoutMs + 1000)));
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(kTimeoutMs));
  EXPECT_TRUE(silent.waitClosed(kDefaultWait));
}

TEST_F(BoundsTest, ConnectionWhoseCallbackPortNeverJoinsIsClosed) {
  constexpr int kTimeoutMs = 400;
  ::setenv("RPC_PORT_READ_TIMEOUT_MS", std::to_string(kTimeoutMs).c_str(), 1);
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  RawSocket main = RawSocket::connectTo(portPath(kAppId, kPortName));
  ASSERT_TRUE(main.valid());
  ASSERT_TRUE(main.writeAll(frame(helloBody(1, kAppId, ""))));
  std::optional<Bytes> ack;
  ASSERT_TRUE(runUntil([&] { return main.readable(); }));
  ack = main.readFrame(kDefaultWait);
  ASSERT_TRUE(ack.has_value());
  const Clock::time_point acked = Clock::now();
  ASSERT_TRUE(
      runUntil([&] { return main.readable(); }, std::chrono::milliseconds(kTimeoutMs + 1000)));
  EXPECT_GE(Clock::now() - acked, std::chrono::milliseconds(kTimeoutMs - 50));
  EXPECT_TRUE(main.waitClosed(kDefaultWait));
  EXPECT_TRUE(stub.connected.empty());
  EXPECT_TRUE(stub.disconnected.empty());
}

}  // namespace
}  // namespace oxa::test
