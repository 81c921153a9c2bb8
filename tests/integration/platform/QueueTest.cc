// A stub's sends are queued per connection and written from its loop: a client that stops reading
// never stalls the others, gets what it was owed once it reads again, and is disconnected when its
// queue passes RPC_PORT_SEND_QUEUE_MAX. A proxy that sends a burst without returning to its loop,
// while the stub writes events to it, never deadlocks, and its requests wait while the stub has
// too much of its events unwritten.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include "MainLoop.h"
#include "PlatformHarness.h"

namespace oxa::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kOwedEvents = 100000;
constexpr auto kLongWait = std::chrono::seconds(20);

class QueueTest : public TransportTest {
 protected:
  ~QueueTest() override { ::unsetenv("RPC_PORT_SEND_QUEUE_MAX"); }

  // Drives the loop until `child` exits; its exit code, or -1.
  int runUntilExit(ChildProcess &child, std::chrono::milliseconds timeout) {
    std::optional<int> status;
    runUntil(
        [&] {
          status = child.waitExit(std::chrono::milliseconds(0));
          return status.has_value();
        },
        timeout);
    return status && WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
  }
};

// A client process: connects, says 'y', then runs its loop until `done` holds for its proxy, and
// exits with `verdict(proxy)`.
ChildProcess spawnClient(ReadyPipe &ready, const std::function<bool(const TestProxy &)> &done,
                         const std::function<int(const TestProxy &)> &verdict) {
  return ChildProcess::spawn([&ready, done, verdict] {
    ScopedMainContext context;
    TestProxy proxy;
    if (proxy.connect() != 0 ||
        !runUntil(
            context.get(), [&] { return proxy.connectedCount == 1; }, kDefaultWait)) {
      return 90;
    }
    ready.signal('y');
    if (!runUntil(
            context.get(), [&] { return done(proxy); }, kLongWait)) {
      return 91;
    }
    return verdict(proxy);
  });
}

// True when `events` is 0, 1, 2, ... `count` - 1.
bool inOrder(const std::vector<int> &events, int count) {
  if (static_cast<int>(events.size()) != count) {
    return false;
  }
  for (int i = 0; i < count; ++i) {
    if (events[static_cast<size_t>(i)] != i) {
      return false;
    }
  }
  return true;
}

// Reads a request (a number and a string) from `port` and answers it: `copies` events on the
// callback port of `instance`, each the number and `eventText` of the string, then the number
// plus one on the main port.
int answerWithEvents(TestStub &served, const std::string &instance, rpc_port_h port, int copies,
                     const std::function<std::string(const std::string &)> &eventText) {
  const ParcelPtr request = receiveParcel(port);
  int value = 0;
  if (!request || rpc_port_parcel_read_int32(request.get(), &value) != 0) {
    return -1;
  }
  ParcelPtr event = parcelWithInt(value);
  rpc_port_parcel_write_string(event.get(), eventText(readString(request.get())).c_str());
  rpc_port_h callback = nullptr;
  rpc_port_stub_get_port(served.get(), RPC_PORT_PORT_CALLBACK, instance.c_str(), &callback);
  for (int copy = 0; copy < copies; ++copy) {
    if (rpc_port_parcel_send(event.get(), callback) != 0) {
      return -1;
    }
  }
  return rpc_port_parcel_send(parcelWithInt(value + 1).get(), port) == 0 ? 0 : -1;
}

TEST_F(QueueTest, StoppedClientStallsNobodyAndGetsEverythingLater) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  ReadyPipe stoppedReady;
  ChildProcess stopped = spawnClient(
      stoppedReady,
      [](const TestProxy &proxy) {
        return static_cast<int>(proxy.events.size()) >= kOwedEvents || proxy.disconnectedCount > 0;
      },
      [](const TestProxy &proxy) { return inOrder(proxy.events, kOwedEvents) ? 0 : 1; });
  ASSERT_TRUE(runUntil([&] { return stub.connected.size() == 1; }));
  ASSERT_EQ('y', stoppedReady.wait(kDefaultWait));
  stopped.kill(SIGSTOP);
  for (int i = 0; i < kOwedEvents; ++i) {
    ASSERT_EQ(0, stub.sendEvent(stub.connected[0], i));
  }

  ReadyPipe otherReady;
  ChildProcess other = ChildProcess::spawn([&otherReady] {
    ScopedMainContext context;
    TestProxy proxy;
    if (proxy.connectSync() != 0) {
      return 90;
    }
    const Clock::time_point start = Clock::now();
    for (int i = 0; i < 100; ++i) {
      int reply = 0;
      if (proxy.sendRequest(i) != 0 || proxy.readReply(&reply) != 0 || reply != i + 1) {
        return 91;
      }
    }
    return Clock::now() - start < std::chrono::milliseconds(500) ? 0 : 92;
  });
  EXPECT_EQ(0, runUntilExit(other, kDefaultWait));
  EXPECT_EQ(100U, stub.requests.size());

  stopped.kill(SIGCONT);
  EXPECT_EQ(0, runUntilExit(stopped, kLongWait));
  EXPECT_TRUE(runUntil([&] { return stub.disconnected.size() == 2; }));
}

TEST_F(QueueTest, QueueOverTheBoundDisconnectsThatClientOnly) {
  ::setenv("RPC_PORT_SEND_QUEUE_MAX", std::to_string(1 << 20).c_str(), 1);
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  ReadyPipe stoppedReady;
  ChildProcess stopped = spawnClient(
      stoppedReady, [](const TestProxy &proxy) { return proxy.disconnectedCount > 0; },
      [](const TestProxy &proxy) { return proxy.disconnectedCount == 1 ? 0 : 1; });
  ASSERT_TRUE(runUntil([&] { return stub.connected.size() == 1; }));
  ASSERT_EQ('y', stoppedReady.wait(kDefaultWait));
  ReadyPipe otherReady;
  ChildProcess other = spawnClient(
      otherReady, [](const TestProxy &proxy) { return !proxy.events.empty(); },
      [](const TestProxy &proxy) {
        return proxy.events == std::vector<int>{7} && proxy.disconnectedCount == 0 ? 0 : 1;
      });
  ASSERT_TRUE(runUntil([&] { return stub.connected.size() == 2; }));
  ASSERT_EQ('y', otherReady.wait(kDefaultWait));
  const std::string stoppedInstance = stub.connected[0];
  stopped.kill(SIGSTOP);

  // 64 KiB events until the queue passes 1 MiB: the send that would pass it fails.
  ParcelPtr big = parcelWithInt(1);
  const std::string padding(size_t{64} << 10, 'x');
  rpc_port_parcel_write_string(big.get(), padding.c_str());
  rpc_port_h port = nullptr;
  ASSERT_EQ(0, rpc_port_stub_get_port(stub.get(), RPC_PORT_PORT_CALLBACK, stoppedInstance.c_str(),
                                      &port));
  int sent = 0;
  while (sent < 100 && rpc_port_parcel_send(big.get(), port) == 0) {
    ++sent;
  }
  EXPECT_GE(sent, 8);
  EXPECT_LT(sent, 100);
  ASSERT_TRUE(runUntil([&] { return stub.disconnected.size() == 1; }));
  EXPECT_EQ(stoppedInstance, stub.disconnected[0]);
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, stub.sendEvent(stoppedInstance, 2));

  EXPECT_EQ(0, stub.sendEvent(stub.connected[1], 7));
  EXPECT_EQ(0, runUntilExit(other, kDefaultWait));
  stopped.kill(SIGCONT);
  EXPECT_EQ(0, runUntilExit(stopped, kDefaultWait));
}

TEST_F(QueueTest, BurstFromOneCallbackWhileTheStubSendsEvents) {
  constexpr int kRequests = 100;
  // 100 MiB of requests and 25 MiB of echoes: the echoes stay under the default queue bound
  // whatever the timing, so every one must arrive.
  const std::string mebibyte(size_t{1} << 20, 'b');
  ChildProcess stubProcess = spawnStubProcess([](TestStub &served) {
    // A quarter of the request goes back on the callback port, the answer on the main port.
    served.onReceived = [&served](const std::string &instance, rpc_port_h port) {
      return answerWithEvents(served, instance, port, 1, [](const std::string &body) {
        return body.substr(0, body.size() / 4);
      });
    };
  });
  TestProxy proxy;
  size_t echoedBytes = 0;
  proxy.onReceived = [&] {
    rpc_port_h port = nullptr;
    rpc_port_parcel_h event = nullptr;
    ASSERT_EQ(0, rpc_port_proxy_get_port(proxy.get(), RPC_PORT_PORT_CALLBACK, &port));
    ASSERT_EQ(0, rpc_port_parcel_create_from_port(&event, port));
    ParcelPtr owned(event);
    int value = 0;
    rpc_port_parcel_read_int32(event, &value);
    proxy.events.push_back(value);
    const std::string echoed = readString(event);
    echoedBytes += echoed == mebibyte.substr(0, mebibyte.size() / 4) ? echoed.size() : 0;
  };
  struct Burst {
    const std::string *payload;
    bool done;
  } burst{&mebibyte, false};
  rpc_port_proxy_add_connected_event_cb(
      proxy.get(),
      [](const char *, const char *, rpc_port_h port, void *data) {
        // The whole burst runs inside this callback: the loop does not run meanwhile.
        auto *state = static_cast<Burst *>(data);
        for (int i = 0; i < kRequests; ++i) {
          ParcelPtr request = parcelWithInt(i);
          rpc_port_parcel_write_string(request.get(), state->payload->c_str());
          rpc_port_parcel_h reply = nullptr;
          if (rpc_port_parcel_send(request.get(), port) != 0 ||
              rpc_port_parcel_create_from_port(&reply, port) != 0) {
            return;
          }
          ParcelPtr owned(reply);
          int value = 0;
          if (rpc_port_parcel_read_int32(reply, &value) != 0 || value != i + 1) {
            return;
          }
        }
        state->done = true;
      },
      &burst);
  ASSERT_EQ(0, proxy.connect());
  ASSERT_TRUE(runUntil([&] { return proxy.events.size() == kRequests; }, kLongWait));
  EXPECT_TRUE(burst.done);
  EXPECT_TRUE(inOrder(proxy.events, kRequests));
  EXPECT_EQ(size_t{kRequests} << 18, echoedBytes);
  EXPECT_EQ(0, proxy.disconnectedCount);
}

// Each 1 MiB request makes the stub send three 1 MiB events: 90 MiB owed to a client whose queue
// may hold 8 MiB. The stub reads no more requests of a connection while it has too much unwritten,
// and the client takes its events while it waits on its requests, so nothing is dropped.
TEST_F(QueueTest, RequestsThatOweMoreThanTheBoundWaitForTheirEventsToBeWritten) {
  constexpr int kRequests = 30;
  constexpr int kEventsPerRequest = 3;
  ::setenv("RPC_PORT_SEND_QUEUE_MAX", std::to_string(8 << 20).c_str(), 1);
  const std::string mebibyte(size_t{1} << 20, 'm');
  ChildProcess stubProcess = spawnStubProcess([](TestStub &served) {
    served.onReceived = [&served](const std::string &instance, rpc_port_h port) {
      return answerWithEvents(served, instance, port, kEventsPerRequest,
                              [](const std::string &body) { return body; });
    };
  });
  TestProxy proxy;
  int wholeEvents = 0;
  proxy.onReceived = [&] {
    rpc_port_h port = nullptr;
    ASSERT_EQ(0, rpc_port_proxy_get_port(proxy.get(), RPC_PORT_PORT_CALLBACK, &port));
    const ParcelPtr event = receiveParcel(port);
    ASSERT_TRUE(event);
    int value = 0;
    rpc_port_parcel_read_int32(event.get(), &value);
    proxy.events.push_back(value);
    wholeEvents += readString(event.get()) == mebibyte ? 1 : 0;
  };
  ASSERT_EQ(0, proxy.connectSync());
  for (int i = 0; i < kRequests; ++i) {
    ParcelPtr request = parcelWithInt(i);
    rpc_port_parcel_write_string(request.get(), mebibyte.c_str());
    ASSERT_EQ(0, rpc_port_parcel_send(request.get(), proxy.mainPort)) << i;
    int reply = 0;
    ASSERT_EQ(0, proxy.readReply(&reply)) << i;
    ASSERT_EQ(i + 1, reply);
  }
  ASSERT_TRUE(
      runUntil([&] { return proxy.events.size() == kEventsPerRequest * kRequests; }, kLongWait))
      << proxy.events.size() << " events";
  std::vector<int> expected;
  for (int i = 0; i < kRequests; ++i) {
    expected.insert(expected.end(), kEventsPerRequest, i);
  }
  EXPECT_EQ(expected, proxy.events);
  EXPECT_EQ(kEventsPerRequest * kRequests, wholeEvents);
  EXPECT_EQ(0, proxy.disconnectedCount);
}

}  // namespace
}  // namespace oxa::test
