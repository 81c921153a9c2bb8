// Connection outcomes: connected on both sides, rejected for a missing privilege (-13) or when
// nothing listens (-111), refused at once when the socket may not be opened (-13), invalid
// arguments (-22), and the blocking connect_sync.
#include <capi-base-common.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "PlatformHarness.h"
#include "RawPeer.h"

namespace oxa::test {
namespace {

constexpr int kNothingListening = -111;
constexpr const char *kPrivilegeA = "http://oxa.org/privilege/a";
constexpr const char *kPrivilegeB = "http://oxa.org/privilege/b";

class ConnectTest : public TransportTest {};

TEST_F(ConnectTest, ConnectsAndReportsBothEnds) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  TestProxy proxy;
  ASSERT_EQ(0, proxy.connect());
  // Events arrive only from the main loop.
  EXPECT_EQ(0, proxy.connectedCount);
  EXPECT_TRUE(stub.connected.empty());

  ASSERT_TRUE(runUntil([&] { return proxy.connectedCount == 1 && stub.connected.size() == 1; }));
  EXPECT_EQ(std::vector<std::string>{kAppId}, stub.senders);
  const std::string instance = stub.connected[0];
  EXPECT_FALSE(instance.empty());

  rpc_port_h main = nullptr;
  rpc_port_h callback = nullptr;
  ASSERT_EQ(0, rpc_port_proxy_get_port(proxy.get(), RPC_PORT_PORT_MAIN, &main));
  ASSERT_EQ(0, rpc_port_proxy_get_port(proxy.get(), RPC_PORT_PORT_CALLBACK, &callback));
  EXPECT_EQ(proxy.mainPort, main);
  EXPECT_NE(nullptr, callback);
  EXPECT_NE(main, callback);

  rpc_port_h stubMain = nullptr;
  rpc_port_h stubCallback = nullptr;
  ASSERT_EQ(0, rpc_port_stub_get_port(stub.get(), RPC_PORT_PORT_MAIN, instance.c_str(), &stubMain));
  ASSERT_EQ(0, rpc_port_stub_get_port(stub.get(), RPC_PORT_PORT_CALLBACK, instance.c_str(),
                                      &stubCallback));
  EXPECT_NE(nullptr, stubMain);
  EXPECT_NE(stubMain, stubCallback);
  rpc_port_h unknown = nullptr;
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER,
            rpc_port_stub_get_port(stub.get(), RPC_PORT_PORT_MAIN, "nobody@1", &unknown));
  EXPECT_EQ(0, proxy.rejectedCount);
}

TEST_F(ConnectTest, ListensUnderItsOwnAppId) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  struct stat info {};
  ASSERT_EQ(0, ::stat(portPath(kAppId, kPortName).c_str(), &info));
  EXPECT_TRUE(S_ISSOCK(info.st_mode));
}

TEST_F(ConnectTest, EveryConnectionHasItsOwnInstance) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  TestProxy first;
  TestProxy second;
  ASSERT_EQ(0, first.connect());
  ASSERT_EQ(0, second.connect());
  ASSERT_TRUE(runUntil([&] { return stub.connected.size() == 2; }));
  EXPECT_NE(stub.connected[0], stub.connected[1]);
}

TEST_F(ConnectTest, GetPortBeforeConnectingFails) {
  TestProxy proxy;
  rpc_port_h port = nullptr;
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR,
            rpc_port_proxy_get_port(proxy.get(), RPC_PORT_PORT_MAIN, &port));
  EXPECT_EQ(nullptr, port);
}

TEST_F(ConnectTest, MissingPrivilegeIsRejectedWithPermissionDenied) {
  TestStub stub;
  ASSERT_EQ(0, rpc_port_stub_add_privilege(stub.get(), kPrivilegeA));
  ASSERT_EQ(0, stub.listen());
  ::setenv("RPC_PORT_PRIVILEGES", kPrivilegeB, 1);
  TestProxy proxy;
  set_last_result(0);
  ASSERT_EQ(0, proxy.connect());
  ASSERT_TRUE(runUntil([&] { return proxy.rejectedCount == 1; }));
  EXPECT_EQ(RPC_PORT_ERROR_PERMISSION_DENIED, proxy.rejectResult);
  dispatchPending(context());
  EXPECT_EQ(0, proxy.connectedCount);
  EXPECT_EQ(0, proxy.disconnectedCount);
  EXPECT_TRUE(stub.connected.empty());
}

TEST_F(ConnectTest, HeldPrivilegesAreAccepted) {
  TestStub stub;
  ASSERT_EQ(0, rpc_port_stub_add_privilege(stub.get(), kPrivilegeA));
  ASSERT_EQ(0, rpc_port_stub_add_privilege(stub.get(), kPrivilegeB));
  ASSERT_EQ(0, stub.listen());
  ::setenv("RPC_PORT_PRIVILEGES", (std::string(kPrivilegeB) + ", " + kPrivilegeA).c_str(), 1);
  TestProxy proxy;
  ASSERT_EQ(0, proxy.connect());
  ASSERT_TRUE(runUntil([&] { return proxy.connectedCount == 1 && stub.connected.size() == 1; }));
  EXPECT_EQ(0, proxy.rejectedCount);
}

TEST_F(ConnectTest, NothingListeningIsRejectedWithConnectionRefused) {
  TestProxy proxy;
  ASSERT_EQ(0, proxy.connect());
  EXPECT_EQ(0, proxy.rejectedCount);
  ASSERT_TRUE(runUntil([&] { return proxy.rejectedCount == 1; }));
  EXPECT_EQ(kNothingListening, proxy.rejectResult);
  EXPECT_EQ(0, proxy.connectedCount);
}

TEST_F(ConnectTest, StaleSocketFileIsRejectedWithConnectionRefused) {
  { RawListener gone(portPath(kAppId, kPortName)); }
  TestProxy proxy;
  ASSERT_EQ(0, proxy.connect());
  ASSERT_TRUE(runUntil([&] { return proxy.rejectedCount == 1; }));
  EXPECT_EQ(kNothingListening, proxy.rejectResult);
}

TEST_F(ConnectTest, RejectedProxyMayConnectAgain) {
  TestProxy proxy;
  ASSERT_EQ(0, proxy.connect());
  ASSERT_TRUE(runUntil([&] { return proxy.rejectedCount == 1; }));
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  ASSERT_EQ(0, proxy.connect());
  ASSERT_TRUE(runUntil([&] { return proxy.connectedCount == 1; }));
  EXPECT_EQ(1, proxy.rejectedCount);
}

TEST_F(ConnectTest, InvalidArgumentsAreRefused) {
  TestProxy proxy;
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, rpc_port_proxy_connect(nullptr, kAppId, kPortName));
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, proxy.connect(nullptr, kPortName));
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, proxy.connect(kAppId, nullptr));
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, proxy.connect("", kPortName));
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, proxy.connect("../escape", kPortName));
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, proxy.connect(kAppId, ".."));
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, proxy.connectSync(nullptr, kPortName));
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, rpc_port_proxy_create(nullptr));
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, rpc_port_proxy_destroy(nullptr));
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER,
            rpc_port_proxy_add_connected_event_cb(proxy.get(), nullptr, nullptr));
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER,
            rpc_port_proxy_get_port(proxy.get(), RPC_PORT_PORT_MAIN, nullptr));

  rpc_port_stub_h stub = nullptr;
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, rpc_port_stub_create(&stub, nullptr));
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, rpc_port_stub_create(nullptr, kPortName));
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, rpc_port_stub_listen(nullptr));
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, rpc_port_stub_destroy(nullptr));
  TestStub real;
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, rpc_port_stub_add_privilege(real.get(), nullptr));
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER,
            rpc_port_stub_add_received_event_cb(real.get(), nullptr, nullptr));
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER,
            rpc_port_stub_get_port(real.get(), RPC_PORT_PORT_MAIN, nullptr, nullptr));
  dispatchPending(context());
  EXPECT_EQ(0, proxy.rejectedCount);
}

TEST_F(ConnectTest, ConnectingTwiceIsRefused) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  TestProxy proxy;
  ASSERT_EQ(0, proxy.connect());
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, proxy.connect());
  ASSERT_TRUE(runUntil([&] { return proxy.connectedCount == 1; }));
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, proxy.connect());
}

// Runs `attempt` in a child that cannot open the stub's socket: as root it drops to an
// unprivileged uid (root is never refused by file modes); otherwise the socket file has no
// permissions at all. Expects the child's result to be 0.
void expectInaccessible(const std::function<int()> &attempt) {
  const std::string socket = portPath(kAppId, kPortName);
  const std::string appDir = socket.substr(0, socket.rfind('/'));
  ASSERT_EQ(0, ::chmod(appDir.c_str(), 0700));
  ASSERT_EQ(0, ::chmod(socket.c_str(), geteuid() == 0 ? 0600 : 0000));
  ChildProcess child = ChildProcess::spawn([&] {
    if (geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) {
      return 90;
    }
    return attempt();
  });
  const std::optional<int> status = child.waitExit(kDefaultWait);
  ASSERT_TRUE(status.has_value());
  ASSERT_TRUE(WIFEXITED(*status));
  EXPECT_EQ(0, WEXITSTATUS(*status));
}

TEST_F(ConnectTest, InaccessibleSocketIsRefusedAtOnce) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  expectInaccessible([] {
    ScopedMainContext context;
    TestProxy proxy;
    if (proxy.connect() != RPC_PORT_ERROR_PERMISSION_DENIED) {
      return 1;
    }
    dispatchPending(context.get());
    return proxy.rejectedCount == 0 && proxy.connectedCount == 0 ? 0 : 2;
  });
}

TEST_F(ConnectTest, InaccessibleSocketIsRefusedBySyncConnect) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  expectInaccessible([] {
    ScopedMainContext context;
    TestProxy proxy;
    return proxy.connectSync() == RPC_PORT_ERROR_PERMISSION_DENIED ? 0 : 1;
  });
}

TEST_F(ConnectTest, SyncConnectIsConnectedOnReturn) {
  ChildProcess stub = spawnStubProcess();
  TestProxy proxy;
  ASSERT_EQ(0, proxy.connectSync());
  EXPECT_EQ(1, proxy.connectedCount);
  ASSERT_NE(nullptr, proxy.mainPort);
  ASSERT_EQ(0, proxy.sendRequest(41));
  int reply = 0;
  ASSERT_EQ(0, proxy.readReply(&reply));
  EXPECT_EQ(42, reply);
  dispatchPending(context());
  EXPECT_EQ(1, proxy.connectedCount);
  EXPECT_EQ(0, proxy.rejectedCount);
}

TEST_F(ConnectTest, SyncConnectDeliversEventsSentWithTheHandshake) {
  ChildProcess stub = spawnStubProcess([](TestStub &served) {
    served.onConnected = [&served](const std::string &instance) {
      served.sendEvent(instance, 5);
      served.sendEvent(instance, 6);
    };
  });
  TestProxy proxy;
  ASSERT_EQ(0, proxy.connectSync());
  ASSERT_TRUE(runUntil([&] { return proxy.events.size() == 2; }));
  EXPECT_EQ((std::vector<int>{5, 6}), proxy.events);
}

TEST_F(ConnectTest, SyncConnectReportsMissingPrivilege) {
  ChildProcess stub = spawnStubProcess(
      [](TestStub &served) { rpc_port_stub_add_privilege(served.get(), kPrivilegeA); });
  TestProxy proxy;
  EXPECT_EQ(RPC_PORT_ERROR_PERMISSION_DENIED, proxy.connectSync());
  dispatchPending(context());
  EXPECT_EQ(0, proxy.connectedCount);
  EXPECT_EQ(0, proxy.rejectedCount);
}

TEST_F(ConnectTest, SyncConnectWithNothingListeningIsIoError) {
  TestProxy proxy;
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, proxy.connectSync());
  dispatchPending(context());
  EXPECT_EQ(0, proxy.rejectedCount);
}

}  // namespace
}  // namespace oxa::test
