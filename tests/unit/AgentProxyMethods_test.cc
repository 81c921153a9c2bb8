// Each agent method: the request it writes, field by field, and how it reads its reply.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ProxyTestSupport.h"

namespace proxytest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class AgentProxyMethodsTest : public ProxyTest {
 protected:
  void SetUp() override {
    ProxyTest::SetUp();
    ConnectProxy();
  }

  // The one request sent, on the main port; every parcel consumed and destroyed.
  static void ExpectRequest(const fake::Values &values) {
    EXPECT_THAT(fake::SentParcels(), ElementsAre(fake::SentParcel{fake::Port::Main, values}));
    EXPECT_EQ(fake::PendingReplies(), 0U);
    EXPECT_EQ(fake::LiveParcels(), 0U);
    EXPECT_THAT(fake::Logs(), IsEmpty());
  }
};

TEST_F(AgentProxyMethodsTest, RegisterServiceSendsAndReturnsWithoutWaiting) {
  auto probe = MakeProbe<ServiceRegisteredProbe>(1);
  const fake::Values delegate = DelegateValues(*probe);
  fake::QueueReply(Reply({fake::Int32(0)}));
  proxy->RegisterService(6, std::move(probe));
  EXPECT_THAT(fake::SentParcels(),
              ElementsAre(fake::SentParcel{fake::Port::Main,
                                           Concat({fake::Int32(2), fake::Int32(6)}, delegate)}));
  EXPECT_EQ(fake::PendingReplies(), 1U);
  EXPECT_EQ(fake::LiveParcels(), 0U);
}

TEST_F(AgentProxyMethodsTest, UnregisterService) {
  fake::QueueReply(Reply({fake::Int32(-7)}));
  EXPECT_EQ(proxy->UnregisterService(3), -7);
  ExpectRequest({fake::Int32(3), fake::Int32(3)});
}

TEST_F(AgentProxyMethodsTest, GetServiceStateReadsTheStateThenTheResult) {
  fake::QueueReply(Reply({fake::Bool(true), fake::Int32(9)}));
  bool state = false;
  EXPECT_EQ(proxy->GetServiceState(1, state), 9);
  EXPECT_TRUE(state);
  ExpectRequest({fake::Int32(4), fake::Int32(1)});
}

TEST_F(AgentProxyMethodsTest, RegisterServiceStateChangedEvent) {
  auto probe = MakeProbe<ServiceStateChangedProbe>(2);
  const fake::Values delegate = DelegateValues(*probe);
  fake::QueueReply(Reply({fake::Int32(4)}));
  EXPECT_EQ(proxy->RegisterServiceStateChangedEvent(6, std::move(probe)), 4);
  ExpectRequest(Concat({fake::Int32(5), fake::Int32(6)}, delegate));
}

TEST_F(AgentProxyMethodsTest, UnregisterServiceStateChangedEvent) {
  fake::QueueReply(Reply({fake::Int32(1)}));
  EXPECT_EQ(proxy->UnregisterServiceStateChangedEvent(6), 1);
  ExpectRequest({fake::Int32(6), fake::Int32(6)});
}

TEST_F(AgentProxyMethodsTest, SendCommandWritesTheRecordBeforeTheDelegate) {
  const CommandRecord command{"AA:BB:CC:DD:EE:FF", 3, 11, 2, {0x01, 0xfe, 0x41}, 77};
  auto probe = MakeProbe<CommandSentProbe>(3);
  const fake::Values delegate = DelegateValues(*probe);
  fake::QueueReply(Reply({fake::Int32(0)}));
  EXPECT_EQ(proxy->SendCommand(3, command, std::move(probe)), 0);
  ExpectRequest({fake::Int32(7), fake::Int32(3), fake::String("AA:BB:CC:DD:EE:FF"), fake::Int32(3),
                 fake::Int32(11), fake::Int32(2), fake::Count(3), fake::Byte('\x01'),
                 fake::Byte('\xfe'), fake::Byte('A'), fake::Int32(77), delegate[0], delegate[1],
                 delegate[2]});
}

TEST_F(AgentProxyMethodsTest, SendCommandWithEmptyPayloadWritesCountZero) {
  const CommandRecord command{"11:22:33:44:55:66", 1, 0, 1, {}, 0};
  auto probe = MakeProbe<CommandSentProbe>(3);
  const fake::Values delegate = DelegateValues(*probe);
  fake::QueueReply(Reply({fake::Int32(-5)}));
  EXPECT_EQ(proxy->SendCommand(1, command, std::move(probe)), -5);
  ExpectRequest(
      Concat({fake::Int32(7), fake::Int32(1), fake::String("11:22:33:44:55:66"), fake::Int32(1),
              fake::Int32(0), fake::Int32(1), fake::Count(0), fake::Int32(0)},
             delegate));
}

TEST_F(AgentProxyMethodsTest, RegisterCommandReceivedEvent) {
  auto probe = MakeProbe<CommandReceivedProbe>(4);
  const fake::Values delegate = DelegateValues(*probe);
  fake::QueueReply(Reply({fake::Int32(2)}));
  EXPECT_EQ(proxy->RegisterCommandReceivedEvent(1, std::move(probe)), 2);
  ExpectRequest(Concat({fake::Int32(8), fake::Int32(1)}, delegate));
}

TEST_F(AgentProxyMethodsTest, UnregisterCommandReceivedEvent) {
  fake::QueueReply(Reply({fake::Int32(0)}));
  EXPECT_EQ(proxy->UnregisterCommandReceivedEvent(1), 0);
  ExpectRequest({fake::Int32(9), fake::Int32(1)});
}

TEST_F(AgentProxyMethodsTest, RegisterDeviceFoundEvent) {
  auto probe = MakeProbe<DeviceFoundProbe>(5);
  const fake::Values delegate = DelegateValues(*probe);
  fake::QueueReply(Reply({fake::Int32(0)}));
  EXPECT_EQ(proxy->RegisterDeviceFoundEvent(3, std::move(probe)), 0);
  ExpectRequest(Concat({fake::Int32(10), fake::Int32(3)}, delegate));
}

TEST_F(AgentProxyMethodsTest, UnregisterDeviceFoundEvent) {
  fake::QueueReply(Reply({fake::Int32(0)}));
  EXPECT_EQ(proxy->UnregisterDeviceFoundEvent(3), 0);
  ExpectRequest({fake::Int32(11), fake::Int32(3)});
}

TEST_F(AgentProxyMethodsTest, RegisterDeviceLostEvent) {
  auto probe = MakeProbe<DeviceLostProbe>(6);
  const fake::Values delegate = DelegateValues(*probe);
  fake::QueueReply(Reply({fake::Int32(0)}));
  EXPECT_EQ(proxy->RegisterDeviceLostEvent(6, std::move(probe)), 0);
  ExpectRequest(Concat({fake::Int32(12), fake::Int32(6)}, delegate));
}

TEST_F(AgentProxyMethodsTest, UnregisterDeviceLostEvent) {
  fake::QueueReply(Reply({fake::Int32(0)}));
  EXPECT_EQ(proxy->UnregisterDeviceLostEvent(6), 0);
  ExpectRequest({fake::Int32(13), fake::Int32(6)});
}

TEST_F(AgentProxyMethodsTest, RegisterContextChangedEvent) {
  auto probe = MakeProbe<ContextChangedProbe>(7);
  const fake::Values delegate = DelegateValues(*probe);
  fake::QueueReply(Reply({fake::Int32(0)}));
  EXPECT_EQ(proxy->RegisterContextChangedEvent(1, std::move(probe)), 0);
  ExpectRequest(Concat({fake::Int32(14), fake::Int32(1)}, delegate));
}

TEST_F(AgentProxyMethodsTest, UnregisterContextChangedEvent) {
  fake::QueueReply(Reply({fake::Int32(0)}));
  EXPECT_EQ(proxy->UnregisterContextChangedEvent(1), 0);
  ExpectRequest({fake::Int32(15), fake::Int32(1)});
}

TEST_F(AgentProxyMethodsTest, StartDiscovery) {
  fake::QueueReply(Reply({fake::Int32(12)}));
  EXPECT_EQ(proxy->StartDiscovery(1), 12);
  ExpectRequest({fake::Int32(16), fake::Int32(1)});
}

TEST_F(AgentProxyMethodsTest, StopDiscovery) {
  fake::QueueReply(Reply({fake::Int32(13)}));
  EXPECT_EQ(proxy->StopDiscovery(3), 13);
  ExpectRequest({fake::Int32(17), fake::Int32(3)});
}

TEST_F(AgentProxyMethodsTest, GetFoundDeviceListAppendsEveryDevice) {
  fake::QueueReply(Reply(Concat(Concat({fake::Count(2)}, DeviceValues({"a1", 1, "one"})),
                                Concat(DeviceValues({"a2", 99, "two"}), {fake::Int32(0)}))));
  std::vector<DeviceRecord> devices{{"old", 3, "kept"}};
  EXPECT_EQ(proxy->GetFoundDeviceList(6, devices), 0);
  EXPECT_THAT(devices, ElementsAre(DeviceRecord{"old", 3, "kept"}, DeviceRecord{"a1", 1, "one"},
                                   DeviceRecord{"a2", 99, "two"}));
  ExpectRequest({fake::Int32(18), fake::Int32(6)});
}

TEST_F(AgentProxyMethodsTest, GetFoundDeviceListWithCountZeroLeavesTheVector) {
  fake::QueueReply(Reply({fake::Count(0), fake::Int32(-61)}));
  std::vector<DeviceRecord> devices;
  EXPECT_EQ(proxy->GetFoundDeviceList(1, devices), -61);
  EXPECT_THAT(devices, IsEmpty());
  ExpectRequest({fake::Int32(18), fake::Int32(1)});
}

TEST_F(AgentProxyMethodsTest, GetFoundDeviceListWithNegativeCountReadsNoDevice) {
  fake::QueueReply(Reply({fake::Count(-4), fake::Int32(5)}));
  std::vector<DeviceRecord> devices;
  EXPECT_EQ(proxy->GetFoundDeviceList(1, devices), 5);
  EXPECT_THAT(devices, IsEmpty());
}

TEST_F(AgentProxyMethodsTest, GetMyDeviceWritesHandlerIdThenAddressAndFillsTheRecord) {
  fake::QueueReply(Reply(Concat(DeviceValues({"12:34:56:78:9A:BC", 2, "me"}), {fake::Int32(0)})));
  DeviceRecord device;
  EXPECT_EQ(proxy->GetMyDevice(3, "00:00:00:00:00:00", device), 0);
  EXPECT_EQ(device, (DeviceRecord{"12:34:56:78:9A:BC", 2, "me"}));
  ExpectRequest({fake::Int32(19), fake::Int32(3), fake::String("00:00:00:00:00:00")});
}

TEST_F(AgentProxyMethodsTest, GetAdvRawDataWritesOnlyTheAddressAndAppendsTheBytes) {
  fake::Values reply{fake::Int32(0)};
  fake::AppendBytes(reply, {0x00, 0x80, 0xff});
  reply.push_back(fake::Int32(0));
  fake::QueueReply(reply);
  std::vector<unsigned char> data{0x10};
  EXPECT_EQ(proxy->GetAdvRawData("AA:AA:AA:AA:AA:AA", data), 0);
  EXPECT_THAT(data, ElementsAre(0x10, 0x00, 0x80, 0xff));
  ExpectRequest({fake::Int32(20), fake::String("AA:AA:AA:AA:AA:AA")});
}

TEST_F(AgentProxyMethodsTest, GetAdvRawDataWithCountZeroLeavesTheVector) {
  fake::QueueReply(Reply({fake::Count(0), fake::Int32(-1)}));
  std::vector<unsigned char> data;
  EXPECT_EQ(proxy->GetAdvRawData("AA:AA:AA:AA:AA:AA", data), -1);
  EXPECT_THAT(data, IsEmpty());
}

TEST_F(AgentProxyMethodsTest, GetContextWritesAddressThenHandlerIdThenType) {
  fake::Values reply{fake::Int32(0)};
  fake::AppendBytes(reply, {'c', 't', 'x'});
  reply.push_back(fake::Int32(0));
  fake::QueueReply(reply);
  std::vector<unsigned char> data;
  EXPECT_EQ(proxy->GetContext("BB:BB:BB:BB:BB:BB", 6, 2, data), 0);
  EXPECT_THAT(data, ElementsAre('c', 't', 'x'));
  ExpectRequest(
      {fake::Int32(21), fake::String("BB:BB:BB:BB:BB:BB"), fake::Int32(6), fake::Int32(2)});
}

TEST_F(AgentProxyMethodsTest, GetContextWithNegativeCountReadsNoByte) {
  fake::QueueReply(Reply({fake::Count(-1), fake::Int32(3)}));
  std::vector<unsigned char> data;
  EXPECT_EQ(proxy->GetContext("BB:BB:BB:BB:BB:BB", 1, 1, data), 3);
  EXPECT_THAT(data, IsEmpty());
}

TEST_F(AgentProxyMethodsTest, UpdateContextWritesTheBytesOneByOne) {
  fake::QueueReply(Reply({fake::Int32(0)}));
  EXPECT_EQ(proxy->UpdateContext(3, 6, {0x7f, 0x80}), 0);
  ExpectRequest({fake::Int32(22), fake::Int32(3), fake::Int32(6), fake::Count(2),
                 fake::Byte('\x7f'), fake::Byte('\x80')});
}

TEST_F(AgentProxyMethodsTest, UpdateContextWithNoData) {
  fake::QueueReply(Reply({fake::Int32(0)}));
  EXPECT_EQ(proxy->UpdateContext(1, 1, {}), 0);
  ExpectRequest({fake::Int32(22), fake::Int32(1), fake::Int32(1), fake::Count(0)});
}

TEST_F(AgentProxyMethodsTest, SetAppIdWritesOnlyTheAppId) {
  fake::QueueReply(Reply({fake::Int32(0)}));
  EXPECT_EQ(proxy->SetAppId(4242), 0);
  ExpectRequest({fake::Int32(23), fake::Int32(4242)});
}

TEST_F(AgentProxyMethodsTest, UnregisterWritesOnlyItsMethodId) {
  fake::QueueReply(Reply({fake::Int32(-13)}));
  EXPECT_EQ(proxy->Unregister(), -13);
  ExpectRequest({fake::Int32(24)});
}

TEST_F(AgentProxyMethodsTest, AReplyReadInTheWrongOrderIsAFault) {
  expectFaults = true;
  fake::QueueReply(Reply({fake::Int32(9), fake::Bool(true)}));
  bool state = false;
  EXPECT_EQ(proxy->GetServiceState(1, state), 0);
  EXPECT_THAT(fake::Faults(), ElementsAre("read Bool at index 1, found Int32(9)",
                                          "read Int32 at index 2, found Bool(true)"));
}

}  // namespace
}  // namespace proxytest
