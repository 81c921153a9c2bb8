// The handler's agent requests: what each one sends, how it reads the answer, its own log lines,
// and the mapping of the proxy's failures.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "HandlerTest.h"
#include "NullStringError.h"

namespace {

using handlertest::apiLog;
using handlertest::appendDelegate;
using handlertest::appendDevice;
using handlertest::delegateSeq;
using handlertest::eventHeader;
using handlertest::HandlerTest;
using handlertest::kHandlerSource;
using handlertest::notInitializedLog;
using handlertest::reply;
using handlertest::sourceLine;
using Oxa::Capi::AgentProxyHandler;
using Oxa::Capi::Command;
using Oxa::Capi::Device;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pointee;

constexpr const char *kAddress = "00:11:22:33:44:55";
using Bytes = std::vector<unsigned char>;

fake::SentParcel request(const fake::Values &values) {
  return {fake::Port::Main, values};
}

// The log line of `message` written in the handler method `method`.
fake::LogLine methodLog(log_priority level, const std::string &method, const std::string &needle,
                        const std::string &message) {
  return apiLog(level, kHandlerSource, method,
                sourceLine(kHandlerSource, "AgentProxyHandler::" + method + "(", needle), message);
}

class RequestTest : public HandlerTest {};

struct Request {
  std::string method;
  std::string stateCheck;  // the call in the method's body that checks the connection
  std::function<int(AgentProxyHandler &)> call;
};

std::vector<Request> everyRequest() {
  static bool state = false;
  static Bytes bytes;
  static std::unique_ptr<Device> device;
  static std::vector<Device> devices;
  static Command command(kAddress, 1, 1, {});
  return {
      {"UnregisterService", "request(",
       [](AgentProxyHandler &h) { return h.UnregisterService(1); }},
      {"GetServiceState", "request(",
       [](AgentProxyHandler &h) { return h.GetServiceState(1, state); }},
      {"SetAppId", "request(", [](AgentProxyHandler &h) { return h.SetAppId(5); }},
      {"StartDiscovery", "request(", [](AgentProxyHandler &h) { return h.StartDiscovery(1); }},
      {"StopDiscovery", "request(", [](AgentProxyHandler &h) { return h.StopDiscovery(1); }},
      {"RegisterService", "request(",
       [](AgentProxyHandler &h) { return h.RegisterService(1, nullptr); }},
      {"SendCommand", "request(",
       [](AgentProxyHandler &h) { return h.SendCommand(1, &command, nullptr); }},
      {"GetAdvRawData", "isConnected()",
       [](AgentProxyHandler &h) { return h.GetAdvRawData(kAddress, bytes); }},
      {"getMyDevice", "request(",
       [](AgentProxyHandler &h) { return h.getMyDevice(1, kAddress, device); }},
      {"GetContext", "request(",
       [](AgentProxyHandler &h) { return h.GetContext(kAddress, 1, 2, bytes); }},
      {"UpdateContext", "isConnected()",
       [](AgentProxyHandler &h) { return h.UpdateContext(1, 2, {1}); }},
      {"getFoundDevices", "request(",
       [](AgentProxyHandler &h) { return h.getFoundDevices(1, devices); }},
  };
}

TEST_F(RequestTest, EveryRequestBeforeConnectingFailsWithoutTraffic) {
  for (const Request &each : everyRequest()) {
    mark();
    EXPECT_EQ(each.call(handler), OXA_ERROR_INTERNAL_ERROR) << each.method;
    EXPECT_THAT(logs(), ElementsAre(notInitializedLog(each.method, each.stateCheck)))
        << each.method;
  }
  EXPECT_THAT(fake::SentParcels(), IsEmpty());
  EXPECT_TRUE(Oxa::Capi::sentCommands.empty());
}

TEST_F(RequestTest, EveryRequestAfterTheConnectionIsLostFailsWithoutTraffic) {
  connect();
  ASSERT_TRUE(fake::FireDisconnected());
  mark();
  for (const Request &each : everyRequest()) {
    EXPECT_EQ(each.call(handler), OXA_ERROR_INTERNAL_ERROR) << each.method;
  }
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_EQ(logs().size(), everyRequest().size());
}

TEST_F(RequestTest, UnregisterServicePassesTheAgentsResult) {
  connect();
  fake::QueueReply(reply({fake::Int32(-61)}));
  EXPECT_EQ(handler.UnregisterService(6), -61);
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(3), fake::Int32(6)})));
  EXPECT_THAT(logs(), IsEmpty());
}

TEST_F(RequestTest, GetServiceStateWritesTheAgentsState) {
  connect();
  bool state = false;
  fake::QueueReply(reply({fake::Bool(true), fake::Int32(0)}));
  EXPECT_EQ(handler.GetServiceState(3, state), OXA_ERROR_NONE);
  EXPECT_TRUE(state);
  fake::QueueReply(reply({fake::Bool(false), fake::Int32(-38)}));
  EXPECT_EQ(handler.GetServiceState(3, state), OXA_ERROR_INVALID_OPERATION);
  EXPECT_FALSE(state);
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(4), fake::Int32(3)}),
                                  request({fake::Int32(4), fake::Int32(3)})));
}

TEST_F(RequestTest, SetAppIdSendsOnlyTheId) {
  connect();
  fake::QueueReply(reply({fake::Int32(-22)}));
  EXPECT_EQ(handler.SetAppId(0x1234), OXA_ERROR_INVALID_PARAMETER);
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(23), fake::Int32(0x1234)})));
}

TEST_F(RequestTest, DiscoveryStartAndStopCarryTheHandlerId) {
  connect();
  fake::QueueReply(reply({fake::Int32(0)}));
  fake::QueueReply(reply({fake::Int32(-1073741827)}));
  EXPECT_EQ(handler.StartDiscovery(1), OXA_ERROR_NONE);
  EXPECT_EQ(handler.StopDiscovery(6), OXA_ERROR_NO_DEVICE);
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(16), fake::Int32(1)}),
                                  request({fake::Int32(17), fake::Int32(6)})));
}

TEST_F(RequestTest, RegisterServiceReturnsOnceSentAndAnswersThroughItsDelegate) {
  connect();
  std::vector<oxa_error_e> answers;
  const int seq = handlertest::nextDelegateSeq();
  EXPECT_EQ(
      handler.RegisterService(3, [&answers](oxa_error_e result) { answers.push_back(result); }),
      OXA_ERROR_NONE);
  fake::Values expected{fake::Int32(2), fake::Int32(3)};
  appendDelegate(expected, 1, seq);
  ASSERT_THAT(sent(), ElementsAre(request(expected)));
  EXPECT_THAT(answers, IsEmpty());

  fake::Values event = eventHeader(1, seq);
  event.push_back(fake::Int32(-13));
  ASSERT_TRUE(fake::FireReceived(event));
  EXPECT_THAT(answers, ElementsAre(OXA_ERROR_PERMISSION_DENIED));
}

TEST_F(RequestTest, SendCommandWithoutCommandIsRefusedBeforeTheStateCheck) {
  const fake::LogLine noCommand =
      methodLog(DLOG_ERROR, "SendCommand", "OXA_LOGE(\"No command\")", "No command");
  EXPECT_EQ(handler.SendCommand(1, nullptr, nullptr), OXA_ERROR_INVALID_PARAMETER);
  EXPECT_THAT(logs(), ElementsAre(noCommand));
  connect();
  EXPECT_EQ(handler.SendCommand(1, nullptr, nullptr), OXA_ERROR_INVALID_PARAMETER);
  EXPECT_THAT(logs(), ElementsAre(noCommand));
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(RequestTest, SendCommandSendsTheRecordAndKeepsTheCommandForItsSentEvent) {
  connect();
  Command command(kAddress, OXA_COMMAND_TYPE_2, 77, {0xde, 0xad});
  std::vector<std::pair<Command *, oxa_error_e>> reports;
  const int commandSeq = Oxa::Capi::sentCommandCounter.load();
  const int seq = handlertest::nextDelegateSeq();
  fake::QueueReply(reply({fake::Int32(-5)}));
  EXPECT_EQ(handler.SendCommand(6, &command,
                                [&reports](Command *sentCommand, oxa_error_e result) {
                                  reports.emplace_back(sentCommand, result);
                                }),
            OXA_ERROR_IO_ERROR);

  fake::Values expected{fake::Int32(7),         fake::Int32(6),     fake::String(kAddress),
                        fake::Int32(6),         fake::Int32(77),    fake::Int32(2),
                        fake::Count(2),         fake::Byte('\xde'), fake::Byte('\xad'),
                        fake::Int32(commandSeq)};
  appendDelegate(expected, 3, seq);
  EXPECT_THAT(sent(), ElementsAre(request(expected)));
  EXPECT_EQ(Oxa::Capi::sentCommands.at(commandSeq), &command);
  EXPECT_EQ(Oxa::Capi::sentCommandCounter.load(), commandSeq + 1);

  fake::Values event = eventHeader(3, seq);
  event.push_back(fake::Int32(0));
  handlertest::appendCommand(event, kAddress, 6, 77, 2, {0xde, 0xad}, commandSeq);
  ASSERT_TRUE(fake::FireReceived(event));
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_EQ(reports[0].first, &command);
  EXPECT_EQ(reports[0].second, OXA_ERROR_NONE);
  EXPECT_TRUE(Oxa::Capi::sentCommands.empty());
}

TEST_F(RequestTest, GetAdvRawDataAppendsTheBytesAfterItsEntryLine) {
  connect();
  Bytes data{9};
  fake::Values answer{fake::Int32(0)};
  fake::AppendBytes(answer, {1, 0xff});
  answer.push_back(fake::Int32(0));
  fake::QueueReply(answer);
  EXPECT_EQ(handler.GetAdvRawData(kAddress, data), OXA_ERROR_NONE);
  EXPECT_EQ(data, (Bytes{9, 1, 0xff}));
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(20), fake::String(kAddress)})));
  EXPECT_THAT(logs(), ElementsAre(methodLog(DLOG_DEBUG, "GetAdvRawData", "OXA_LOGD(\"+\")", "+")));
}

TEST_F(RequestTest, GetAdvRawDataFailingLogsUnderTheOwnDeviceName) {
  connect();
  Bytes data;
  fake::QueueReply(reply({fake::Count(0), fake::Int32(-61)}));
  EXPECT_EQ(handler.GetAdvRawData(kAddress, data), OXA_ERROR_NO_DATA);
  EXPECT_TRUE(data.empty());
  EXPECT_THAT(logs(), ElementsAre(methodLog(DLOG_DEBUG, "GetAdvRawData", "OXA_LOGD(\"+\")", "+"),
                                  methodLog(DLOG_ERROR, "GetAdvRawData", "GetMyDevice() failed.",
                                            "GetMyDevice() failed.")));
}

TEST_F(RequestTest, GetMyDeviceBuildsADeviceWithANormalisedType) {
  connect();
  for (int type : {7, 5}) {
    std::unique_ptr<Device> device;
    fake::Values answer{fake::Int32(0)};
    appendDevice(answer, kAddress, type, "phone");
    answer.push_back(fake::Int32(0));
    fake::QueueReply(answer);
    EXPECT_EQ(handler.getMyDevice(3, "AA:BB:CC:DD:EE:FF", device), OXA_ERROR_NONE);
    ASSERT_NE(device, nullptr);
    EXPECT_EQ(device->getAddress(), kAddress);
    EXPECT_EQ(device->getType(), type == 5 ? 5 : OXA_DEVICE_TYPE_UNKNOWN);
    EXPECT_EQ(device->getName(), "phone");
  }
  EXPECT_THAT(
      sent(),
      ElementsAre(request({fake::Int32(19), fake::Int32(3), fake::String("AA:BB:CC:DD:EE:FF")}),
                  request({fake::Int32(19), fake::Int32(3), fake::String("AA:BB:CC:DD:EE:FF")})));
  EXPECT_THAT(logs(), IsEmpty());
}

TEST_F(RequestTest, GetMyDeviceFailingLeavesTheOutputAlone) {
  connect();
  auto device = std::make_unique<Device>("kept", "kept");
  Device *const kept = device.get();
  fake::Values answer{fake::Int32(0)};
  appendDevice(answer, kAddress, 1, "phone");
  answer.push_back(fake::Int32(-1073741827));
  fake::QueueReply(answer);
  EXPECT_EQ(handler.getMyDevice(1, kAddress, device), OXA_ERROR_NO_DEVICE);
  EXPECT_EQ(device.get(), kept);
  EXPECT_THAT(logs(), ElementsAre(methodLog(DLOG_ERROR, "getMyDevice", "GetMyDevice() failed.",
                                            "GetMyDevice() failed.")));
}

TEST_F(RequestTest, GetContextLogsTheBytesItReceives) {
  connect();
  Bytes data;
  fake::Values answer{fake::Int32(0)};
  fake::AppendBytes(answer, {0x0a, 0xff, 0x00});
  answer.push_back(fake::Int32(0));
  fake::QueueReply(answer);
  EXPECT_EQ(handler.GetContext(kAddress, 6, 6, data), OXA_ERROR_NONE);
  EXPECT_EQ(data, (Bytes{0x0a, 0xff, 0x00}));
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(21), fake::String(kAddress), fake::Int32(6),
                                           fake::Int32(6)})));
  EXPECT_THAT(logs(), ElementsAre(methodLog(DLOG_DEBUG, "GetContext", "\"data(%s)\"",
                                            "data(3: 0a ff 00)")));
}

TEST_F(RequestTest, GetContextFailingLogsUnderTheOwnDeviceName) {
  connect();
  Bytes data;
  fake::QueueReply(reply({fake::Count(0), fake::Int32(-61)}));
  EXPECT_EQ(handler.GetContext(kAddress, 1, 3, data), OXA_ERROR_NO_DATA);
  EXPECT_THAT(logs(), ElementsAre(methodLog(DLOG_DEBUG, "GetContext", "\"data(%s)\"", "data(0:)"),
                                  methodLog(DLOG_ERROR, "GetContext", "GetMyDevice() failed.",
                                            "GetMyDevice() failed.")));
}

TEST_F(RequestTest, UpdateContextLogsWhatItSendsFirst) {
  connect();
  fake::QueueReply(reply({fake::Int32(-38)}));
  EXPECT_EQ(handler.UpdateContext(6, 2, {1, 2, 0xab}), OXA_ERROR_INVALID_OPERATION);
  fake::Values expected{fake::Int32(22), fake::Int32(6), fake::Int32(2)};
  fake::AppendBytes(expected, {1, 2, 0xab});
  EXPECT_THAT(sent(), ElementsAre(request(expected)));
  EXPECT_THAT(
      logs(),
      ElementsAre(
          methodLog(DLOG_INFO, "UpdateContext", "handlerId[%d]", "handlerId[6] contextType[2]"),
          methodLog(DLOG_INFO, "UpdateContext", "\"data(%s)\"", "data(3: 01 02 ab)")));
}

TEST_F(RequestTest, GetFoundDevicesAppendsOneDevicePerRecordInOrder) {
  connect();
  std::vector<Device> devices;
  devices.emplace_back("first", "earlier");
  fake::Values answer{fake::Int32(0), fake::Count(3)};
  appendDevice(answer, "11:11:11:11:11:11", 0, "a");
  appendDevice(answer, "22:22:22:22:22:22", 5, "b");
  appendDevice(answer, "33:33:33:33:33:33", -1, "c");
  answer.push_back(fake::Int32(0));
  fake::QueueReply(answer);
  EXPECT_EQ(handler.getFoundDevices(1, devices), OXA_ERROR_NONE);
  ASSERT_EQ(devices.size(), 4U);
  EXPECT_EQ(devices[1].getAddress(), "11:11:11:11:11:11");
  EXPECT_EQ(devices[1].getType(), OXA_DEVICE_TYPE_UNKNOWN);
  EXPECT_EQ(devices[1].getName(), "a");
  EXPECT_EQ(devices[2].getType(), 5);
  EXPECT_EQ(devices[2].getName(), "b");
  EXPECT_EQ(devices[3].getType(), OXA_DEVICE_TYPE_UNKNOWN);
  EXPECT_EQ(devices[3].getName(), "c");
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(18), fake::Int32(1)})));
}

TEST_F(RequestTest, GetFoundDevicesFailingAppendsNothing) {
  connect();
  std::vector<Device> devices;
  fake::Values answer{fake::Int32(0), fake::Count(1)};
  appendDevice(answer, kAddress, 1, "a");
  answer.push_back(fake::Int32(-5));
  fake::QueueReply(answer);
  EXPECT_EQ(handler.getFoundDevices(3, devices), OXA_ERROR_IO_ERROR);
  EXPECT_TRUE(devices.empty());
  EXPECT_THAT(logs(),
              ElementsAre(methodLog(DLOG_ERROR, "getFoundDevices", "GetFoundDeviceList() failed.",
                                    "GetFoundDeviceList() failed.")));
}

TEST_F(RequestTest, EmptyDeviceListIsSuccessWithNothingAppended) {
  connect();
  std::vector<Device> devices;
  fake::QueueReply(reply({fake::Count(0), fake::Int32(0)}));
  EXPECT_EQ(handler.getFoundDevices(3, devices), OXA_ERROR_NONE);
  EXPECT_TRUE(devices.empty());
}

TEST_F(RequestTest, SendFailureIsAnIoErrorAndTheConnectionStays) {
  connect();
  fake::SetResult(fake::Call::Send, -5, fake::Mode::Once);
  EXPECT_EQ(handler.StartDiscovery(1), OXA_ERROR_IO_ERROR);
  EXPECT_THAT(logs(), IsEmpty());
  fake::QueueReply(reply({fake::Int32(0)}));
  EXPECT_EQ(handler.StartDiscovery(1), OXA_ERROR_NONE);
  EXPECT_EQ(sent().size(), 2U);
}

TEST_F(RequestTest, MissingReplyIsAProtocolErrorLoggedByTheRequest) {
  connect();
  std::unique_ptr<Device> device;
  EXPECT_EQ(handler.StopDiscovery(1), OXA_ERROR_INTERNAL_ERROR);
  EXPECT_EQ(handler.getMyDevice(1, kAddress, device), OXA_ERROR_INTERNAL_ERROR);
  EXPECT_EQ(device, nullptr);
  EXPECT_THAT(
      logs(),
      ElementsAre(methodLog(DLOG_ERROR, "StopDiscovery", "request(", "InvalidProtocolException"),
                  methodLog(DLOG_ERROR, "getMyDevice", "request(", "InvalidProtocolException")));
  // Still connected: the next request goes out and is answered.
  fake::QueueReply(reply({fake::Int32(0)}));
  EXPECT_EQ(handler.StopDiscovery(1), OXA_ERROR_NONE);
}

TEST_F(RequestTest, StandardExceptionInTheProxyIsAnInternalError) {
  connect();
  std::unique_ptr<Device> device;
  fake::QueueReply(reply({fake::NullString(), fake::Int32(1), fake::String("x"), fake::Int32(0)}));
  EXPECT_EQ(handler.getMyDevice(1, kAddress, device), OXA_ERROR_INTERNAL_ERROR);
  EXPECT_EQ(device, nullptr);
  EXPECT_THAT(logs(), ElementsAre(methodLog(DLOG_ERROR, "getMyDevice", "request(",
                                            "Exception: " + oxa::test::nullStringError())));
}

}  // namespace
