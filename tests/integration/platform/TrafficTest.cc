// Traffic on a connection: requests and replies on the main port, events on the callback port,
// one loop wake-up draining every buffered frame, frames nobody takes, large parcels, many
// proxies on one stub, and concurrent senders on one port.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "PlatformHarness.h"

namespace oxa::test {
namespace {

class TrafficTest : public TransportTest {};

TEST_F(TrafficTest, RequestIsAnsweredOnTheMainPort) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  TestProxy proxy;
  connect(stub, proxy);
  ASSERT_EQ(0, proxy.sendRequest(7));
  ASSERT_TRUE(runUntil([&] { return stub.requests.size() == 1; }));
  EXPECT_EQ(std::vector<int>{7}, stub.requests);
  int reply = 0;
  ASSERT_EQ(0, proxy.readReply(&reply));
  EXPECT_EQ(8, reply);
}

TEST_F(TrafficTest, EventsArriveInOrderOnTheCallbackPort) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  TestProxy proxy;
  const std::string instance = connect(stub, proxy);
  for (int value : {1, 2, 3}) {
    ASSERT_EQ(0, stub.sendEvent(instance, value));
  }
  ASSERT_TRUE(runUntil([&] { return proxy.events.size() == 3; }));
  EXPECT_EQ((std::vector<int>{1, 2, 3}), proxy.events);
}

TEST_F(TrafficTest, TheLoopNeverTakesReplies) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  stub.onReceived = [&stub](const std::string &instance, rpc_port_h port) {
    rpc_port_parcel_h request = nullptr;
    rpc_port_parcel_create_from_port(&request, port);
    ParcelPtr owned(request);
    int value = 0;
    rpc_port_parcel_read_int32(request, &value);
    stub.sendEvent(instance, value * 10);
    stub.requests.push_back(value);
    return rpc_port_parcel_send(parcelWithInt(value + 1).get(), port);
  };
  TestProxy proxy;
  connect(stub, proxy);
  ASSERT_EQ(0, proxy.sendRequest(4));
  ASSERT_TRUE(runUntil([&] { return proxy.events.size() == 1; }));
  dispatchPending(context());
  EXPECT_EQ(std::vector<int>{40}, proxy.events);
  int reply = 0;
  ASSERT_EQ(0, proxy.readReply(&reply));
  EXPECT_EQ(5, reply);
}

TEST_F(TrafficTest, OneWakeUpDeliversEveryBufferedEvent) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  TestProxy proxy;
  const std::string instance = connect(stub, proxy);
  for (int value = 0; value < 5; ++value) {
    ASSERT_EQ(0, stub.sendEvent(instance, value));
  }
  ASSERT_TRUE(g_main_context_iteration(context(), FALSE));
  EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 4}), proxy.events);
}

TEST_F(TrafficTest, OneWakeUpServesEveryBufferedRequest) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  TestProxy proxy;
  connect(stub, proxy);
  for (int value = 0; value < 5; ++value) {
    ASSERT_EQ(0, proxy.sendRequest(value));
  }
  ASSERT_TRUE(g_main_context_iteration(context(), FALSE));
  EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 4}), stub.requests);
  for (int value = 0; value < 5; ++value) {
    int reply = 0;
    ASSERT_EQ(0, proxy.readReply(&reply));
    EXPECT_EQ(value + 1, reply);
  }
}

TEST_F(TrafficTest, EventsNobodyReadsAreDropped) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  TestProxy proxy;
  const std::string instance = connect(stub, proxy);
  int ignored = 0;
  proxy.onReceived = [&] { ++ignored; };
  for (int value : {1, 2, 3}) {
    ASSERT_EQ(0, stub.sendEvent(instance, value));
  }
  ASSERT_TRUE(runUntil([&] { return ignored == 3; }));
  dispatchPending(context());
  EXPECT_EQ(3, ignored);
  proxy.onReceived = nullptr;
  ASSERT_EQ(0, stub.sendEvent(instance, 9));
  ASSERT_TRUE(runUntil([&] { return !proxy.events.empty(); }));
  EXPECT_EQ(std::vector<int>{9}, proxy.events);
}

TEST_F(TrafficTest, RequestsNobodyReadsAreDropped) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  TestProxy proxy;
  connect(stub, proxy);
  int ignored = 0;
  stub.onReceived = [&](const std::string &, rpc_port_h) { return ++ignored, 0; };
  ASSERT_EQ(0, proxy.sendRequest(1));
  ASSERT_EQ(0, proxy.sendRequest(2));
  ASSERT_TRUE(runUntil([&] { return ignored == 2; }));
  dispatchPending(context());
  EXPECT_EQ(2, ignored);
  stub.onReceived = nullptr;
  ASSERT_EQ(0, proxy.sendRequest(3));
  ASSERT_TRUE(runUntil([&] { return !stub.requests.empty(); }));
  EXPECT_EQ(std::vector<int>{3}, stub.requests);
}

TEST_F(TrafficTest, NonZeroFromTheStubCallbackClosesThatConnection) {
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  TestProxy proxy;
  TestProxy other;
  const std::string instance = connect(stub, proxy);
  const std::string otherInstance = connect(stub, other);
  stub.onReceived = [](const std::string &, rpc_port_h) { return -1; };
  ASSERT_EQ(0, proxy.sendRequest(1));
  ASSERT_TRUE(runUntil([&] { return proxy.disconnectedCount == 1; }));
  dispatchPending(context());
  EXPECT_EQ(std::vector<std::string>{instance}, stub.disconnected);
  EXPECT_EQ(1, proxy.disconnectedCount);
  EXPECT_EQ(0, other.disconnectedCount);
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, proxy.sendRequest(2));
  EXPECT_EQ(0, stub.sendEvent(otherInstance, 3));
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, stub.sendEvent(instance, 3));
}

// A parcel holding `text`, and the text of a parcel.
ParcelPtr parcelWithString(const std::string &text) {
  ParcelPtr parcel = makeParcel();
  rpc_port_parcel_write_string(parcel.get(), text.c_str());
  return parcel;
}

TEST_F(TrafficTest, OneMebibyteParcelsTravelBothWays) {
  const std::string big(size_t{1} << 20, 'r');
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  std::string requestSeen;
  std::thread eventSender;
  stub.onReceived = [&](const std::string &instance, rpc_port_h port) {
    rpc_port_parcel_h request = nullptr;
    rpc_port_parcel_create_from_port(&request, port);
    ParcelPtr owned(request);
    requestSeen = readString(request);
    // Sent from another thread: the proxy reads its events on this very loop.
    rpc_port_h callback = nullptr;
    rpc_port_stub_get_port(stub.get(), RPC_PORT_PORT_CALLBACK, instance.c_str(), &callback);
    eventSender = std::thread([callback, event = requestSeen + "-event"] {
      rpc_port_parcel_send(parcelWithString(event).get(), callback);
    });
    return rpc_port_parcel_send(parcelWithString(requestSeen + "-reply").get(), port);
  };
  TestProxy proxy;
  connect(stub, proxy);
  std::string eventSeen;
  proxy.onReceived = [&] {
    rpc_port_h port = nullptr;
    rpc_port_parcel_h event = nullptr;
    rpc_port_proxy_get_port(proxy.get(), RPC_PORT_PORT_CALLBACK, &port);
    ASSERT_EQ(0, rpc_port_parcel_create_from_port(&event, port));
    ParcelPtr owned(event);
    eventSeen = readString(event);
  };
  std::atomic<bool> replied{false};
  std::string replySeen;
  std::thread client([&] {
    if (rpc_port_parcel_send(parcelWithString(big).get(), proxy.mainPort) == 0) {
      rpc_port_parcel_h reply = nullptr;
      if (rpc_port_parcel_create_from_port(&reply, proxy.mainPort) == 0) {
        ParcelPtr owned(reply);
        replySeen = readString(reply);
      }
    }
    replied = true;
  });
  const bool done = runUntil([&] { return replied && !eventSeen.empty(); });
  client.join();
  if (eventSender.joinable()) {
    eventSender.join();
  }
  ASSERT_TRUE(done);
  EXPECT_EQ(big, requestSeen);
  EXPECT_EQ(big + "-reply", replySeen);
  EXPECT_EQ(big + "-event", eventSeen);
}

TEST_F(TrafficTest, FiftyProxiesShareOneStub) {
  constexpr int kProxies = 50;
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  std::vector<std::unique_ptr<TestProxy>> proxies;
  for (int i = 0; i < kProxies; ++i) {
    proxies.push_back(std::make_unique<TestProxy>());
    ASSERT_EQ(0, proxies.back()->connect());
  }
  auto all = [&](const std::function<bool(const TestProxy &)> &holds) {
    for (const auto &proxy : proxies) {
      if (!holds(*proxy)) {
        return false;
      }
    }
    return true;
  };
  ASSERT_TRUE(runUntil([&] {
    return stub.connected.size() == kProxies &&
           all([](const TestProxy &proxy) { return proxy.connectedCount == 1; });
  }));

  for (int i = 0; i < kProxies; ++i) {
    ASSERT_EQ(0, proxies[i]->sendRequest(i * 100));
  }
  ASSERT_TRUE(runUntil([&] { return stub.requests.size() == kProxies; }));
  for (int i = 0; i < kProxies; ++i) {
    int reply = 0;
    ASSERT_EQ(0, proxies[i]->readReply(&reply));
    EXPECT_EQ(i * 100 + 1, reply);
  }

  // One event per connection: every value reaches exactly one proxy.
  for (size_t i = 0; i < stub.connected.size(); ++i) {
    ASSERT_EQ(0, stub.sendEvent(stub.connected[i], static_cast<int>(i)));
  }
  ASSERT_TRUE(
      runUntil([&] { return all([](const TestProxy &p) { return p.events.size() == 1; }); }));
  std::vector<int> seen;
  seen.reserve(proxies.size());
  for (const auto &proxy : proxies) {
    seen.push_back(proxy->events[0]);
  }
  std::sort(seen.begin(), seen.end());
  for (int i = 0; i < kProxies; ++i) {
    EXPECT_EQ(i, seen[i]);
  }

  proxies.clear();
  ASSERT_TRUE(runUntil([&] { return stub.disconnected.size() == kProxies; }));
}

// Payload of parcel `sequence` of sender `thread`: 64 to 256 KiB, large enough that the kernel
// splits each frame and writes it in parts while the other senders are writing theirs.
std::string payloadOf(int thread, int sequence) {
  return std::string((size_t{64} << 10) * (1 + sequence % 4) + sequence,
                     static_cast<char>('a' + thread));
}

TEST_F(TrafficTest, ConcurrentSendsNeverInterleave) {
  constexpr int kThreads = 4;
  constexpr int kParcelsPerThread = 40;
  TestStub stub;
  ASSERT_EQ(0, stub.listen());
  int intact = 0;
  int broken = 0;
  std::vector<int> nextSequence(kThreads, 0);
  stub.onReceived = [&](const std::string &, rpc_port_h port) {
    rpc_port_parcel_h parcel = nullptr;
    rpc_port_parcel_create_from_port(&parcel, port);
    ParcelPtr owned(parcel);
    int thread = -1;
    int sequence = -1;
    rpc_port_parcel_read_int32(parcel, &thread);
    rpc_port_parcel_read_int32(parcel, &sequence);
    const std::string payload = readString(parcel);
    const bool ok = thread >= 0 && thread < kThreads && sequence == nextSequence[thread] &&
                    payload == payloadOf(thread, sequence);
    if (ok) {
      ++nextSequence[thread];
    }
    ++(ok ? intact : broken);
    return 0;
  };
  TestProxy proxy;
  ASSERT_EQ(0, proxy.connect());
  ASSERT_TRUE(runUntil([&] { return proxy.connectedCount == 1; }));

  std::atomic<int> failures{0};
  std::atomic<int> finished{0};
  std::vector<std::thread> senders;
  senders.reserve(kThreads);
  for (int thread = 0; thread < kThreads; ++thread) {
    senders.emplace_back([&, thread] {
      for (int sequence = 0; sequence < kParcelsPerThread; ++sequence) {
        ParcelPtr parcel = makeParcel();
        rpc_port_parcel_write_int32(parcel.get(), thread);
        rpc_port_parcel_write_int32(parcel.get(), sequence);
        rpc_port_parcel_write_string(parcel.get(), payloadOf(thread, sequence).c_str());
        if (rpc_port_parcel_send(parcel.get(), proxy.mainPort) != 0) {
          ++failures;
        }
      }
      ++finished;
    });
  }
  const bool allSeen = runUntil(
      [&] { return finished == kThreads && intact + broken == kThreads * kParcelsPerThread; },
      std::chrono::seconds(20));
  for (std::thread &sender : senders) {
    sender.join();
  }
  ASSERT_TRUE(allSeen);
  EXPECT_EQ(0, failures);
  EXPECT_EQ(0, broken);
  EXPECT_EQ(kThreads * kParcelsPerThread, intact);
}

}  // namespace
}  // namespace oxa::test
