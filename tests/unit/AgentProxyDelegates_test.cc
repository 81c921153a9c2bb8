// Delegates: numbering, tags, their wire form, and the dispatch of callback parcels to them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <stdexcept>
#include <thread>

#include "NullStringError.h"
#include "ProxyTestSupport.h"

namespace proxytest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using CallbackBase = OxaAgentInterface::CallbackBase;

class AgentProxyDelegatesTest : public ProxyTest {
 protected:
  void SetUp() override {
    ProxyTest::SetUp();
    ConnectProxy();
  }

  // Fires a device-found event for (delegateId, seqId) carrying `name`.
  static void FireDeviceFound(int delegateId, int seqId, const std::string &name,
                              bool once = false) {
    ASSERT_TRUE(fake::FireReceived(
        Callback(delegateId, seqId, once, DeviceValues({"AA:BB:CC:DD:EE:FF", 1, name}))));
  }

  // The names of the devices that reached delegates, in order, with the receiver's sequence.
  std::vector<std::pair<int, std::string>> Reached() const {
    std::vector<std::pair<int, std::string>> reached;
    for (const Event &event : observed.events) {
      reached.emplace_back(event.seqId, event.device.name);
    }
    return reached;
  }

  static void ExpectEverythingConsumed() {
    EXPECT_EQ(fake::PendingCallbacks(), 0U);
    EXPECT_EQ(fake::LiveParcels(), 0U);
  }
};

// ---- Numbering, tags, wire form ------------------------------------------------------------

TEST_F(AgentProxyDelegatesTest, SequenceNumbersFollowEachOtherAcrossKinds) {
  auto first = MakeProbe<ServiceRegisteredProbe>(1);
  auto second = MakeProbe<CommandSentProbe>(3);
  auto third = MakeProbe<ContextChangedProbe>(7);
  const int viaProxy = RegisterDeviceFound();
  auto fifth = MakeProbe<ServiceStateChangedProbe>(2);
  EXPECT_EQ(second->GetSeqId(), first->GetSeqId() + 1);
  EXPECT_EQ(third->GetSeqId(), first->GetSeqId() + 2);
  EXPECT_EQ(viaProxy, first->GetSeqId() + 3);
  EXPECT_EQ(fifth->GetSeqId(), first->GetSeqId() + 4);
}

TEST_F(AgentProxyDelegatesTest, ConcurrentConstructionsGetDistinctNumbers) {
  constexpr int kThreads = 4;
  constexpr int kEach = 500;
  std::vector<std::vector<int>> numbers(kThreads);
  std::vector<std::thread> threads;
  for (int index = 0; index < kThreads; ++index) {
    threads.emplace_back([&numbers, index] {
      Observed local;
      for (int count = 0; count < kEach; ++count) {
        numbers[index].push_back(DeviceFoundProbe(5, false, local).GetSeqId());
      }
    });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  std::set<int> distinct;
  for (const std::vector<int> &some : numbers) {
    distinct.insert(some.begin(), some.end());
  }
  ASSERT_EQ(distinct.size(), static_cast<size_t>(kThreads * kEach));
  EXPECT_EQ(*distinct.rbegin() - *distinct.begin(), kThreads * kEach - 1);
}

TEST_F(AgentProxyDelegatesTest, ConstructorKeepsIdAndOnceFlag) {
  auto once = MakeProbe<DeviceLostProbe>(6, true);
  auto kept = MakeProbe<DeviceLostProbe>(42, false);
  EXPECT_EQ(once->GetId(), 6);
  EXPECT_TRUE(once->IsOnce());
  EXPECT_EQ(kept->GetId(), 42);
  EXPECT_FALSE(kept->IsOnce());
}

TEST_F(AgentProxyDelegatesTest, TagIsIdThenTwoColonsThenSequence) {
  auto probe = MakeProbe<CommandReceivedProbe>(4);
  EXPECT_EQ(probe->GetTag(), "4::" + std::to_string(probe->GetSeqId()));
  auto negative = MakeProbe<CommandReceivedProbe>(-3);
  EXPECT_EQ(negative->GetTag(), "-3::" + std::to_string(negative->GetSeqId()));
}

TEST_F(AgentProxyDelegatesTest, WriterWritesIdSequenceOnceAsInt32Int32Bool) {
  auto probe = MakeProbe<DeviceFoundProbe>(5, true);
  rpc_port_parcel_h parcel = nullptr;
  ASSERT_EQ(rpc_port_parcel_create(&parcel), 0);
  CallbackBase::WriteDelegate(parcel, *probe);
  rpc_port_parcel_send(parcel, fake::MainPort());
  rpc_port_parcel_destroy(parcel);
  EXPECT_THAT(
      fake::SentParcels(),
      ElementsAre(fake::SentParcel{
          fake::Port::Main, {fake::Int32(5), fake::Int32(probe->GetSeqId()), fake::Bool(true)}}));
}

TEST_F(AgentProxyDelegatesTest, ReaderReadsIdSequenceOnce) {
  fake::QueueReply({fake::Int32(7), fake::Int32(99), fake::Bool(true)});
  rpc_port_parcel_h parcel = nullptr;
  ASSERT_EQ(rpc_port_parcel_create_from_port(&parcel, fake::MainPort()), 0);
  int id = 0;
  int seqId = 0;
  bool once = false;
  CallbackBase::ReadDelegate(parcel, id, seqId, once);
  rpc_port_parcel_destroy(parcel);
  EXPECT_EQ(id, 7);
  EXPECT_EQ(seqId, 99);
  EXPECT_TRUE(once);
}

// ---- Dispatch --------------------------------------------------------------------------------

TEST_F(AgentProxyDelegatesTest, SameIdDelegatesAreToldApartBySequence) {
  const int first = RegisterDeviceFound();
  const int second = RegisterDeviceFound();
  FireDeviceFound(5, second, "to-second");
  FireDeviceFound(5, first, "to-first");
  EXPECT_THAT(Reached(), ElementsAre(std::pair{second, std::string("to-second")},
                                     std::pair{first, std::string("to-first")}));
  ExpectEverythingConsumed();
}

TEST_F(AgentProxyDelegatesTest, UnknownSequenceIsDroppedWithTheRestUnread) {
  const int seqId = RegisterDeviceFound();
  ASSERT_TRUE(fake::FireReceived(Callback(5, seqId + 1000, false, {fake::String("unread")})));
  EXPECT_THAT(observed.events, IsEmpty());
  ExpectEverythingConsumed();
  EXPECT_THAT(fake::Logs(), IsEmpty());
}

TEST_F(AgentProxyDelegatesTest, RightSequenceWithAnotherIdIsDropped) {
  const int seqId = RegisterDeviceFound();
  FireDeviceFound(6, seqId, "wrong-id");
  EXPECT_THAT(observed.events, IsEmpty());
  ExpectEverythingConsumed();
}

TEST_F(AgentProxyDelegatesTest, ParcelsWhoseCommandIdIsNotOneAreDropped) {
  const int seqId = RegisterDeviceFound();
  for (int commandId : {0, 2, -1}) {
    fake::Values values = Callback(5, seqId, false, DeviceValues({"a", 1, "n"}));
    values[0] = fake::Int32(commandId);
    ASSERT_TRUE(fake::FireReceived(values));
  }
  EXPECT_THAT(observed.events, IsEmpty());
  ExpectEverythingConsumed();
  EXPECT_THAT(fake::Logs(), IsEmpty());
}

TEST_F(AgentProxyDelegatesTest, FailedReadFromTheCallbackPortIsLoggedAndDropped) {
  const int seqId = RegisterDeviceFound();
  fake::QueueCallback(Callback(5, seqId, false, DeviceValues({"a", 1, "n"})));
  fake::SetResult(fake::Call::CreateFromPort, -5, fake::Mode::Once);
  ASSERT_TRUE(fake::FireReceived());
  EXPECT_THAT(observed.events, IsEmpty());
  EXPECT_THAT(fake::Logs(),
              ElementsAre(ProxyLog("OnReceivedCB", "Failed to create parcel from port")));
  EXPECT_EQ(fake::PendingCallbacks(), 1U);
}

TEST_F(AgentProxyDelegatesTest, OnceDelegateReceivesOneEventAndIsDestroyed) {
  const int seqId = RegisterDeviceFound(5, true);
  FireDeviceFound(5, seqId, "first");
  EXPECT_THAT(observed.destroyedSeqIds, ElementsAre(seqId));
  FireDeviceFound(5, seqId, "second");
  EXPECT_THAT(Reached(), ElementsAre(std::pair{seqId, std::string("first")}));
  ExpectEverythingConsumed();
}

TEST_F(AgentProxyDelegatesTest, TheParcelsOnceFlagDoesNotRemoveADelegate) {
  const int seqId = RegisterDeviceFound(5, false);
  FireDeviceFound(5, seqId, "first", true);
  FireDeviceFound(5, seqId, "second", true);
  EXPECT_EQ(observed.events.size(), 2U);
  EXPECT_THAT(observed.destroyedSeqIds, IsEmpty());
}

TEST_F(AgentProxyDelegatesTest, RemovalByTagDestroysOnlyThatDelegate) {
  const int first = RegisterDeviceFound();
  const int second = RegisterDeviceFound();
  const int third = RegisterDeviceFound();
  proxy->DisposeCallback("5::" + std::to_string(second));
  EXPECT_THAT(observed.destroyedSeqIds, ElementsAre(second));
  FireDeviceFound(5, second, "gone");
  FireDeviceFound(5, first, "one");
  FireDeviceFound(5, third, "three");
  EXPECT_THAT(Reached(), ElementsAre(std::pair{first, std::string("one")},
                                     std::pair{third, std::string("three")}));
}

TEST_F(AgentProxyDelegatesTest, RemovalByTagNeedsTheWholeTag) {
  const int seqId = RegisterDeviceFound();
  const std::string tag = "5::" + std::to_string(seqId);
  proxy->DisposeCallback(tag.substr(0, tag.size() - 1));
  proxy->DisposeCallback(tag + "0");
  proxy->DisposeCallback("6::" + std::to_string(seqId));
  proxy->DisposeCallback("");
  EXPECT_THAT(observed.destroyedSeqIds, IsEmpty());
  FireDeviceFound(5, seqId, "still-there");
  EXPECT_EQ(observed.events.size(), 1U);
}

// ---- Event decoders --------------------------------------------------------------------------

TEST_F(AgentProxyDelegatesTest, ServiceRegisteredCarriesAnInt32Result) {
  auto probe = MakeProbe<ServiceRegisteredProbe>(1);
  const int seqId = probe->GetSeqId();
  proxy->RegisterService(1, std::move(probe));
  ASSERT_TRUE(fake::FireReceived(Callback(1, seqId, false, {fake::Int32(-13)})));
  ASSERT_EQ(observed.events.size(), 1U);
  EXPECT_EQ(observed.events[0].result, -13);
  ExpectEverythingConsumed();
}

TEST_F(AgentProxyDelegatesTest, ServiceStateChangedCarriesABool) {
  auto probe = MakeProbe<ServiceStateChangedProbe>(2);
  const int seqId = probe->GetSeqId();
  fake::QueueReply(Reply({fake::Int32(0)}));
  proxy->RegisterServiceStateChangedEvent(1, std::move(probe));
  ASSERT_TRUE(fake::FireReceived(Callback(2, seqId, false, {fake::Bool(true)})));
  ASSERT_EQ(observed.events.size(), 1U);
  EXPECT_TRUE(observed.events[0].state);
  ExpectEverythingConsumed();
}

TEST_F(AgentProxyDelegatesTest, ServiceStateChangedWithAnInt32IsAFault) {
  expectFaults = true;
  auto probe = MakeProbe<ServiceStateChangedProbe>(2);
  const int seqId = probe->GetSeqId();
  fake::QueueReply(Reply({fake::Int32(0)}));
  proxy->RegisterServiceStateChangedEvent(1, std::move(probe));
  ASSERT_TRUE(fake::FireReceived(Callback(2, seqId, false, {fake::Int32(1)})));
  EXPECT_THAT(fake::Faults(), ElementsAre("read Bool at index 4, found Int32(1)"));
  ASSERT_EQ(observed.events.size(), 1U) << "OnReceived is called whatever the reads returned";
  EXPECT_FALSE(observed.events[0].state);
}

TEST_F(AgentProxyDelegatesTest, CommandSentCarriesTheResultBeforeTheRecord) {
  const CommandRecord command{"AA:BB:CC:DD:EE:FF", 3, 9, 2, {0x00, 0x01, 0xff}, 41};
  auto probe = MakeProbe<CommandSentProbe>(3);
  const int seqId = probe->GetSeqId();
  fake::QueueReply(Reply({fake::Int32(0)}));
  proxy->SendCommand(3, command, std::move(probe));
  ASSERT_TRUE(fake::FireReceived(
      Callback(3, seqId, false, Concat({fake::Int32(-5)}, CommandValues(command)))));
  ASSERT_EQ(observed.events.size(), 1U);
  EXPECT_EQ(observed.events[0].result, -5);
  EXPECT_EQ(observed.events[0].command, command);
  ExpectEverythingConsumed();
}

TEST_F(AgentProxyDelegatesTest, CommandReceivedCarriesTheRecord) {
  const CommandRecord command{"11:22:33:44:55:66", 1, 2, 3, {'h', 'i'}, -8};
  auto probe = MakeProbe<CommandReceivedProbe>(4);
  const int seqId = probe->GetSeqId();
  fake::QueueReply(Reply({fake::Int32(0)}));
  proxy->RegisterCommandReceivedEvent(1, std::move(probe));
  ASSERT_TRUE(fake::FireReceived(Callback(4, seqId, false, CommandValues(command))));
  ASSERT_EQ(observed.events.size(), 1U);
  EXPECT_EQ(observed.events[0].command, command);
  ExpectEverythingConsumed();
}

TEST_F(AgentProxyDelegatesTest, CommandRecordWithEmptyPayload) {
  const CommandRecord command{"11:22:33:44:55:66", 6, 0, 1, {}, 0};
  auto probe = MakeProbe<CommandReceivedProbe>(4);
  const int seqId = probe->GetSeqId();
  fake::QueueReply(Reply({fake::Int32(0)}));
  proxy->RegisterCommandReceivedEvent(6, std::move(probe));
  ASSERT_TRUE(fake::FireReceived(Callback(4, seqId, false, CommandValues(command))));
  ASSERT_EQ(observed.events.size(), 1U);
  EXPECT_EQ(observed.events[0].command, command);
}

TEST_F(AgentProxyDelegatesTest, DeviceFoundCarriesTheDeviceRecord) {
  const int seqId = RegisterDeviceFound();
  ASSERT_TRUE(fake::FireReceived(Callback(5, seqId, false, DeviceValues({"addr", 99, "name"}))));
  ASSERT_EQ(observed.events.size(), 1U);
  EXPECT_EQ(observed.events[0].device, (DeviceRecord{"addr", 99, "name"}));
  ExpectEverythingConsumed();
}

TEST_F(AgentProxyDelegatesTest, DeviceLostCarriesTheDeviceRecord) {
  auto probe = MakeProbe<DeviceLostProbe>(6);
  const int seqId = probe->GetSeqId();
  fake::QueueReply(Reply({fake::Int32(0)}));
  proxy->RegisterDeviceLostEvent(1, std::move(probe));
  ASSERT_TRUE(fake::FireReceived(Callback(6, seqId, false, DeviceValues({"lost", 2, "gone"}))));
  ASSERT_EQ(observed.events.size(), 1U);
  EXPECT_EQ(observed.events[0].device, (DeviceRecord{"lost", 2, "gone"}));
  ExpectEverythingConsumed();
}

TEST_F(AgentProxyDelegatesTest, ContextChangedCarriesTheDeviceRecord) {
  auto probe = MakeProbe<ContextChangedProbe>(7);
  const int seqId = probe->GetSeqId();
  fake::QueueReply(Reply({fake::Int32(0)}));
  proxy->RegisterContextChangedEvent(1, std::move(probe));
  ASSERT_TRUE(fake::FireReceived(Callback(7, seqId, false, DeviceValues({"ctx", 5, "dev"}))));
  ASSERT_EQ(observed.events.size(), 1U);
  EXPECT_EQ(observed.events[0].device, (DeviceRecord{"ctx", 5, "dev"}));
  ExpectEverythingConsumed();
}

TEST_F(AgentProxyDelegatesTest, TheEventClassesThemselvesDecodeAndIgnoreTheEvent) {
  auto plain = std::make_unique<OxaAgentInterface::OnCommandSentEvent>(3, false);
  const int seqId = plain->GetSeqId();
  fake::QueueReply(Reply({fake::Int32(0)}));
  proxy->SendCommand(1, CommandRecord{}, std::move(plain));
  ASSERT_TRUE(fake::FireReceived(
      Callback(3, seqId, false, Concat({fake::Int32(0)}, CommandValues({"a", 1, 2, 3, {9}, 4})))));
  ExpectEverythingConsumed();
}

TEST_F(AgentProxyDelegatesTest, NullStringInARecordThrowsTheStandardLogicError) {
  const int seqId = RegisterDeviceFound();
  fake::Values values =
      Callback(5, seqId, false, {fake::NullString(), fake::Int32(1), fake::String("n")});
  try {
    fake::FireReceived(values);
    ADD_FAILURE() << "no exception";
  } catch (const std::logic_error &error) {
    EXPECT_STREQ(error.what(), oxa::test::nullStringError().c_str());
  }
  EXPECT_THAT(observed.events, IsEmpty());
  ExpectEverythingConsumed();
}

TEST_F(AgentProxyDelegatesTest, NullStringInAReplyThrowsTheStandardLogicError) {
  fake::QueueReply(Reply({fake::NullString(), fake::Int32(1), fake::String("n"), fake::Int32(0)}));
  DeviceRecord device;
  EXPECT_THROW(proxy->GetMyDevice(1, "a", device), std::logic_error);
  EXPECT_EQ(fake::LiveParcels(), 0U);
}

// ---- The index behind the dispatch -----------------------------------------------------------

// Many delegates of several kinds, some once, some removed by tag, then a disconnect: every
// event must reach exactly the delegate a front-to-back walk of the list would find.
TEST_F(AgentProxyDelegatesTest, DispatchStaysExactThroughRemovalsWithManyDelegates) {
  constexpr int kCount = 3000;
  struct Registered {
    int delegateId;
    int seqId;
    bool once;
  };
  std::vector<Registered> registered;
  for (int index = 0; index < kCount; ++index) {
    const bool once = index % 10 == 3;
    const int delegateId = index % 2 == 0 ? 5 : 7;
    if (delegateId == 5) {
      registered.push_back({delegateId, RegisterDeviceFound(5, once), once});
    } else {
      auto probe = MakeProbe<ContextChangedProbe>(7, once);
      registered.push_back({delegateId, probe->GetSeqId(), once});
      fake::QueueReply(Reply({fake::Int32(0)}));
      proxy->RegisterContextChangedEvent(1, std::move(probe));
    }
  }
  std::set<int> disposed;
  for (int index = 0; index < kCount; index += 7) {
    proxy->DisposeCallback(std::to_string(registered[index].delegateId) +
                           "::" + std::to_string(registered[index].seqId));
    disposed.insert(registered[index].seqId);
  }
  std::vector<int> order(kCount);
  for (int index = 0; index < kCount; ++index) {
    order[index] = index;
  }
  std::shuffle(order.begin(), order.end(), std::mt19937(20261121));

  std::vector<int> expected;
  std::set<int> spent;
  for (int round = 0; round < 2; ++round) {
    for (int index : order) {
      const Registered &target = registered[index];
      FireDeviceFound(target.delegateId, target.seqId, "event");
      // The wrong kind for this sequence number must not reach it.
      FireDeviceFound(target.delegateId == 5 ? 7 : 5, target.seqId, "event");
      if (disposed.count(target.seqId) == 0 && spent.count(target.seqId) == 0) {
        expected.push_back(target.seqId);
        if (target.once) {
          spent.insert(target.seqId);
        }
      }
    }
  }
  std::vector<int> reached;
  for (const Event &event : observed.events) {
    reached.push_back(event.seqId);
  }
  EXPECT_EQ(reached, expected);
  EXPECT_EQ(observed.destroyedSeqIds.size(), disposed.size() + spent.size());

  ASSERT_TRUE(fake::FireDisconnected());
  EXPECT_EQ(observed.destroyedSeqIds.size(), static_cast<size_t>(kCount));
  observed.events.clear();
  for (const Registered &target : registered) {
    FireDeviceFound(target.delegateId, target.seqId, "after-disconnect");
  }
  EXPECT_THAT(observed.events, IsEmpty());

  const int fresh = RegisterDeviceFound();
  FireDeviceFound(5, fresh, "fresh");
  EXPECT_THAT(Reached(), ElementsAre(std::pair{fresh, std::string("fresh")}));
  ExpectEverythingConsumed();
}

}  // namespace
}  // namespace proxytest
