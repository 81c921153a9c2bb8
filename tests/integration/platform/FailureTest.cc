// Broken connections: a peer process that dies, a stub that dies mid-request, read timeouts, and
// oversized, short and garbage frames from either side. Each ends in an error return and exactly
// one `disconnected`, never a crash.
#include <capi-base-common.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <thread>

#include "PlatformHarness.h"
#include "RawPeer.h"
#include "RawStub.h"

namespace oxa::test {
namespace {

constexpr uint32_t kMaxFrameBody = 16U * 1024U * 1024U;
constexpr int32_t kHelloMain = 1;
constexpr int32_t kHelloCallback = 2;

using Clock = std::chrono::steady_clock;

class FailureTest : public TransportTest {
 protected:
  void connect(TestProxy &proxy) {
    ASSERT_EQ(0, proxy.connect());
    ASSERT_TRUE(runUntil([&] { return proxy.connectedCount == 1; }));
  }
};

TEST_F(FailureTest, KilledStubProcessDisconnectsOnce) {
  ChildProcess stub = spawnStubProcess();
  TestProxy proxy;
  connect(proxy);
  stub.kill(SIGKILL);
  ASSERT_TRUE(runUntil([&] { return proxy.disconnectedCount == 1; }));
  dispatchPending(context());
  EXPECT_EQ(1, proxy.disconnectedCount);
  // The ports stay usable handles and fail cleanly (no SIGPIPE).
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, proxy.sendRequest(1));
  int reply = 0;
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, proxy.readReply(&reply));
}

TEST_F(FailureTest, ProxyMayBeDestroyedInsideDisconnected) {
  ChildProcess stub = spawnStubProcess();
  TestProxy proxy;
  connect(proxy);
  proxy.onDisconnected = [&] { proxy.destroy(); };
  stub.kill(SIGKILL);
  ASSERT_TRUE(runUntil([&] { return proxy.get() == nullptr; }));
  dispatchPending(context());
  EXPECT_EQ(1, proxy.disconnectedCount);
}

TEST_F(FailureTest, ProxyMayBeDestroyedInsideReceived) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  TestProxy proxy;
  connect(proxy);
  ASSERT_TRUE(runUntil([&] { return stub.connected.size() == 1; }));
  int received = 0;
  proxy.onReceived = [&] {
    ++received;
    proxy.destroy();
  };
  for (int value : {1, 2, 3}) {
    ASSERT_EQ(0, stub.sendEvent(stub.connected[0], value));
  }
  ASSERT_TRUE(runUntil([&] { return stub.disconnected.size() == 1; }));
  dispatchPending(context());
  EXPECT_EQ(1, received);
  EXPECT_EQ(0, proxy.disconnectedCount);
}

TEST_F(FailureTest, StubMayBeDestroyedInsideReceived) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  TestProxy proxy;
  connect(proxy);
  int received = 0;
  stub.onReceived = [&](const std::string &, rpc_port_h) {
    ++received;
    stub.destroy();
    return 0;
  };
  ASSERT_EQ(0, proxy.sendRequest(1));
  ASSERT_EQ(0, proxy.sendRequest(2));
  ASSERT_TRUE(runUntil([&] { return proxy.disconnectedCount == 1; }));
  dispatchPending(context());
  EXPECT_EQ(1, received);
  EXPECT_TRUE(stub.disconnected.empty());
}

TEST_F(FailureTest, KilledProxyProcessDisconnectsOnce) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  ChildProcess client = ChildProcess::spawn([]() -> int {
    ScopedMainContext loop;
    TestProxy proxy;
    proxy.connect();
    for (;;) {
      g_main_context_iteration(loop.get(), TRUE);
    }
  });
  ASSERT_TRUE(runUntil([&] { return stub.connected.size() == 1; }));
  client.kill(SIGKILL);
  ASSERT_TRUE(runUntil([&] { return stub.disconnected.size() == 1; }));
  dispatchPending(context());
  EXPECT_EQ(stub.connected, stub.disconnected);
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, stub.sendEvent(stub.connected[0], 1));
}

TEST_F(FailureTest, StubDyingMidRequestEndsTheBlockedRead) {
  constexpr int kTimeoutMs = 4000;
  ::setenv("RPC_PORT_READ_TIMEOUT_MS", std::to_string(kTimeoutMs).c_str(), 1);
  ChildProcess stub = spawnStubProcess([](TestStub &served) {
    served.onReceived = [](const std::string &, rpc_port_h) {
      std::raise(SIGKILL);
      return 0;
    };
  });
  TestProxy proxy;
  connect(proxy);
  ASSERT_EQ(0, proxy.sendRequest(1));
  const Clock::time_point start = Clock::now();
  int reply = 0;
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, proxy.readReply(&reply));
  EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(kTimeoutMs));
  ASSERT_TRUE(runUntil([&] { return proxy.disconnectedCount == 1; }));
  dispatchPending(context());
  EXPECT_EQ(1, proxy.disconnectedCount);
}

TEST_F(FailureTest, ReadTimeoutEndsTheConnectionOnce) {
  constexpr int kTimeoutMs = 300;
  ::setenv("RPC_PORT_READ_TIMEOUT_MS", std::to_string(kTimeoutMs).c_str(), 1);
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  stub.onReceived = [&](const std::string &, rpc_port_h port) {
    rpc_port_parcel_h request = nullptr;
    rpc_port_parcel_create_from_port(&request, port);
    rpc_port_parcel_destroy(request);
    stub.requests.push_back(0);
    return 0;
  };
  TestProxy proxy;
  connect(proxy);
  ASSERT_EQ(0, proxy.sendRequest(1));
  ASSERT_TRUE(runUntil([&] { return stub.requests.size() == 1; }));
  const Clock::time_point start = Clock::now();
  int reply = 0;
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, proxy.readReply(&reply));
  const auto waited = Clock::now() - start;
  EXPECT_GE(waited, std::chrono::milliseconds(kTimeoutMs));
  EXPECT_LT(waited, std::chrono::milliseconds(kTimeoutMs * 5));
  // A late reply must never answer a later read: the timeout ends the connection, and the
  // disconnect is reported from the loop, not inside the read.
  EXPECT_EQ(0, proxy.disconnectedCount);
  ASSERT_TRUE(
      runUntil([&] { return proxy.disconnectedCount == 1 && stub.disconnected.size() == 1; }));
  dispatchPending(context());
  EXPECT_EQ(1, proxy.disconnectedCount);
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, proxy.sendRequest(2));
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, proxy.readReply(&reply));
}

TEST_F(FailureTest, ProxySendsTheDocumentedHello) {
  ::setenv("RPC_PORT_PRIVILEGES", "p1,p2", 1);
  RawStub stub(context());
  TestProxy proxy;
  ASSERT_EQ(0, proxy.connect());
  RawSocket main = stub.acceptOne();
  ASSERT_TRUE(main.valid());
  EXPECT_EQ(helloBody(kHelloMain, kAppId, "p1,p2"), main.readFrame(kDefaultWait));
  ASSERT_TRUE(main.writeAll(frame(ackBody(0, "raw@7"))));
  RawSocket callback = stub.acceptOne();
  ASSERT_TRUE(callback.valid());
  EXPECT_EQ(helloBody(kHelloCallback, kAppId, "raw@7"), callback.readFrame(kDefaultWait));
  ASSERT_TRUE(callback.writeAll(frame(ackBody(0, "raw@7"))));
  ASSERT_TRUE(runUntil([&] { return proxy.connectedCount == 1; }));
  ASSERT_EQ(0, proxy.sendRequest(0x01020304));
  EXPECT_EQ(intBody(0x01020304), main.readFrame(kDefaultWait));
}

TEST_F(FailureTest, GarbageAckIsRejected) {
  RawStub stub(context());
  TestProxy proxy;
  ASSERT_EQ(0, proxy.connect());
  RawSocket main = stub.acceptOne();
  ASSERT_TRUE(main.readFrame(kDefaultWait));
  ASSERT_TRUE(main.writeAll(frame({'n', 'o', 'p', 'e'})));
  ASSERT_TRUE(runUntil([&] { return proxy.rejectedCount == 1; }));
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, proxy.rejectResult);
  EXPECT_EQ(0, proxy.connectedCount);
}

TEST_F(FailureTest, OversizedEventBreaksTheProxyConnection) {
  RawStub stub(context());
  TestProxy proxy;
  ASSERT_EQ(0, proxy.connect());
  ASSERT_TRUE(stub.acceptProxy());
  ASSERT_TRUE(runUntil([&] { return proxy.connectedCount == 1; }));
  ASSERT_TRUE(stub.callback.writeAll(frame(intBody(1))));
  ASSERT_TRUE(stub.callback.writeAll(frameHeader(kMaxFrameBody + 1)));
  ASSERT_TRUE(runUntil([&] { return proxy.disconnectedCount == 1; }));
  dispatchPending(context());
  EXPECT_EQ(1, proxy.disconnectedCount);
  EXPECT_EQ(std::vector<int>{1}, proxy.events);
  EXPECT_TRUE(stub.main.waitClosed(kDefaultWait));
  EXPECT_TRUE(stub.callback.waitClosed(kDefaultWait));
}

TEST_F(FailureTest, ShortEventBreaksTheProxyConnection) {
  RawStub stub(context());
  TestProxy proxy;
  ASSERT_EQ(0, proxy.connect());
  ASSERT_TRUE(stub.acceptProxy());
  ASSERT_TRUE(runUntil([&] { return proxy.connectedCount == 1; }));
  Bytes partial = frameHeader(100);
  partial.resize(partial.size() + 10, 0xab);
  ASSERT_TRUE(stub.callback.writeAll(partial));
  stub.callback.close();
  ASSERT_TRUE(runUntil([&] { return proxy.disconnectedCount == 1; }));
  dispatchPending(context());
  EXPECT_EQ(1, proxy.disconnectedCount);
  EXPECT_TRUE(proxy.events.empty());
}

TEST_F(FailureTest, OversizedReplyFailsTheReadAndDisconnects) {
  RawStub stub(context());
  TestProxy proxy;
  ASSERT_EQ(0, proxy.connect());
  ASSERT_TRUE(stub.acceptProxy());
  ASSERT_TRUE(runUntil([&] { return proxy.connectedCount == 1; }));
  ASSERT_TRUE(stub.main.writeAll(frameHeader(0xffffffffU)));
  int reply = 0;
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, proxy.readReply(&reply));
  ASSERT_TRUE(runUntil([&] { return proxy.disconnectedCount == 1; }));
  dispatchPending(context());
  EXPECT_EQ(1, proxy.disconnectedCount);
}

TEST_F(FailureTest, ShortReplyFailsTheRead) {
  RawStub stub(context());
  TestProxy proxy;
  ASSERT_EQ(0, proxy.connect());
  ASSERT_TRUE(stub.acceptProxy());
  ASSERT_TRUE(runUntil([&] { return proxy.connectedCount == 1; }));
  Bytes partial = frameHeader(8);
  partial.push_back(1);
  ASSERT_TRUE(stub.main.writeAll(partial));
  stub.main.close();
  int reply = 0;
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, proxy.readReply(&reply));
  ASSERT_TRUE(runUntil([&] { return proxy.disconnectedCount == 1; }));
}

// A proxy played by hand against a real stub.
class RawProxy {
 public:
  // Runs the handshake; true when both connections were acknowledged.
  bool connect(GMainContext *context) {
    main = RawSocket::connectTo(portPath(kAppId, kPortName));
    std::optional<Bytes> ack;
    if (!main.valid() || !main.writeAll(frame(helloBody(kHelloMain, "org.raw", ""))) ||
        !readOnLoop(context, main, &ack)) {
      return false;
    }
    mainAck = *ack;
    callback = RawSocket::connectTo(portPath(kAppId, kPortName));
    return callback.valid() &&
           callback.writeAll(frame(helloBody(kHelloCallback, "org.raw", "org.raw@1"))) &&
           readOnLoop(context, callback, &ack) && *ack == ackBody(0, "org.raw@1");
  }

  // Runs `context` (where the stub lives) until `socket` has a frame, then reads it.
  static bool readOnLoop(GMainContext *context, const RawSocket &socket,
                         std::optional<Bytes> *out) {
    if (!runUntil(context, [&] { return socket.readable(); })) {
      return false;
    }
    *out = socket.readFrame(kDefaultWait);
    return out->has_value();
  }

  RawSocket main;
  RawSocket callback;
  Bytes mainAck;
};

TEST_F(FailureTest, StubAcknowledgesTheDocumentedWay) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  RawProxy proxy;
  ASSERT_TRUE(proxy.connect(context()));
  EXPECT_EQ(ackBody(0, "org.raw@1"), proxy.mainAck);
  ASSERT_TRUE(runUntil([&] { return stub.connected.size() == 1; }));
  EXPECT_EQ(std::vector<std::string>{"org.raw@1"}, stub.connected);
  EXPECT_EQ(std::vector<std::string>{"org.raw"}, stub.senders);
  ASSERT_TRUE(proxy.main.writeAll(frame(intBody(41))));
  std::optional<Bytes> reply;
  ASSERT_TRUE(RawProxy::readOnLoop(context(), proxy.main, &reply));
  EXPECT_EQ(intBody(42), *reply);
  ASSERT_EQ(0, stub.sendEvent("org.raw@1", 7));
  EXPECT_EQ(intBody(7), proxy.callback.readFrame(kDefaultWait));
}

TEST_F(FailureTest, StubRefusesAMissingPrivilegeOnTheWire) {
  TestStub stub;
  ASSERT_EQ(0, rpc_port_stub_add_privilege(stub.get(), "needed"));
  ASSERT_EQ(0, stub.listen());
  RawSocket main = RawSocket::connectTo(portPath(kAppId, kPortName));
  ASSERT_TRUE(main.writeAll(frame(helloBody(kHelloMain, "org.raw", "other,unneeded"))));
  std::optional<Bytes> ack;
  ASSERT_TRUE(RawProxy::readOnLoop(context(), main, &ack));
  EXPECT_EQ(ackBody(-13, ""), *ack);
  EXPECT_TRUE(main.waitClosed(kDefaultWait));
}

// Connects a raw socket, sends `bytes`, and expects the stub to close it without an event.
void expectDropped(TestStub &stub, GMainContext *context, const Bytes &bytes) {
  RawSocket socket = RawSocket::connectTo(portPath(kAppId, kPortName));
  ASSERT_TRUE(socket.valid());
  ASSERT_TRUE(socket.writeAll(bytes));
  ASSERT_TRUE(runUntil(context, [&] { return socket.readable(); }));
  EXPECT_TRUE(socket.waitClosed(kDefaultWait));
  EXPECT_TRUE(stub.connected.empty());
}

TEST_F(FailureTest, StubDropsGarbageHandshakes) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  expectDropped(stub, context(), frame({1, 2, 3, 4, 5, 6, 7, 8}));
  expectDropped(stub, context(), frameHeader(kMaxFrameBody + 1));
  expectDropped(stub, context(), frame(helloBody(3, "org.raw", "")));
  expectDropped(stub, context(), frame(helloBody(kHelloCallback, "org.raw", "org.raw@9")));
  // The stub still serves real proxies.
  TestProxy proxy;
  connect(proxy);
  EXPECT_EQ(1u, stub.connected.size());
}

TEST_F(FailureTest, OversizedRequestBreaksTheStubConnection) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  RawProxy proxy;
  ASSERT_TRUE(proxy.connect(context()));
  ASSERT_TRUE(runUntil([&] { return stub.connected.size() == 1; }));
  ASSERT_TRUE(proxy.main.writeAll(frame(intBody(5))));
  ASSERT_TRUE(proxy.main.writeAll(frameHeader(kMaxFrameBody + 1)));
  ASSERT_TRUE(runUntil([&] { return stub.disconnected.size() == 1; }));
  dispatchPending(context());
  EXPECT_EQ(stub.connected, stub.disconnected);
  EXPECT_EQ(std::vector<int>{5}, stub.requests);
  EXPECT_TRUE(proxy.callback.waitClosed(kDefaultWait));
}

TEST_F(FailureTest, ShortRequestBreaksTheStubConnection) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  RawProxy proxy;
  ASSERT_TRUE(proxy.connect(context()));
  ASSERT_TRUE(runUntil([&] { return stub.connected.size() == 1; }));
  Bytes partial = frameHeader(64);
  partial.resize(partial.size() + 3, 0);
  ASSERT_TRUE(proxy.main.writeAll(partial));
  proxy.main.close();
  ASSERT_TRUE(runUntil([&] { return stub.disconnected.size() == 1; }));
  dispatchPending(context());
  EXPECT_EQ(1u, stub.disconnected.size());
  EXPECT_TRUE(stub.requests.empty());
}

TEST_F(FailureTest, LargestFrameIsAccepted) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  RawProxy proxy;
  ASSERT_TRUE(proxy.connect(context()));
  Bytes body = intBody(77);
  body.resize(kMaxFrameBody, 0);
  std::thread writer([&] { proxy.main.writeAll(frame(body)); });
  const bool served = runUntil([&] { return !stub.requests.empty(); }, std::chrono::seconds(20));
  writer.join();
  ASSERT_TRUE(served);
  EXPECT_EQ(std::vector<int>{77}, stub.requests);
  EXPECT_TRUE(stub.disconnected.empty());
}

}  // namespace
}  // namespace oxa::test
