// The service object: the permission gate, the application id, the state query, registration
// and its completion, and what destruction sends.

#include "Service.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "HandlerTest.h"

namespace {

using handlertest::apiLog;
using handlertest::appendDelegate;
using handlertest::eventHeader;
using handlertest::HandlerTest;
using handlertest::kServiceSource;
using handlertest::nextDelegateSeq;
using handlertest::reply;
using handlertest::sourceLine;
using Oxa::Capi::Command;
using Oxa::Capi::Service;
using Oxa::Capi::SimpleMessage;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char *kAddress = "00:11:22:33:44:55";

fake::SentParcel request(const fake::Values &values) {
  return {fake::Port::Main, values};
}

fake::LogLine serviceLog(log_priority level, const std::string &function, const std::string &needle,
                         const std::string &message) {
  return apiLog(level, kServiceSource, function,
                sourceLine(kServiceSource, "Service::" + function + "(", needle), message);
}

fake::LogLine deniedLog(const std::string &function) {
  return serviceLog(DLOG_ERROR, function, "permissionDenied()", "Permission denied");
}

class ServiceTest : public HandlerTest {
 protected:
  // The agent refused this client: every later Connect attempt failed with permission denied.
  void deny() {
    fake::SetResult(fake::Call::Connect, -13, fake::Mode::Once);
    ASSERT_EQ(handler.Connect(recorder()), OXA_ERROR_PERMISSION_DENIED);
    ASSERT_TRUE(handler.IsConnectionFailed());
    mark();
  }
};

TEST_F(ServiceTest, EveryGatedOperationIsRefusedAfterADenial) {
  deny();
  Service service(OXA_SERVICE_TYPE_1);
  Command command(kAddress, OXA_COMMAND_TYPE_1, 1, {});
  SimpleMessage message(kAddress, {'a'});
  bool called = false;
  EXPECT_EQ(service.registerService([&](oxa_error_e) { called = true; }),
            OXA_ERROR_PERMISSION_DENIED);
  EXPECT_EQ(service.startDiscovery(), OXA_ERROR_PERMISSION_DENIED);
  EXPECT_EQ(service.stopDiscovery(), OXA_ERROR_PERMISSION_DENIED);
  EXPECT_EQ(service.updateContext(OXA_CONTEXT_TYPE_2, {1}), OXA_ERROR_PERMISSION_DENIED);
  EXPECT_EQ(service.sendCommand(&command, nullptr), OXA_ERROR_PERMISSION_DENIED);
  EXPECT_EQ(service.sendSimpleMessage(&message, nullptr), OXA_ERROR_PERMISSION_DENIED);
  EXPECT_THAT(logs(), ElementsAre(deniedLog("registerService"), deniedLog("startDiscovery"),
                                  deniedLog("stopDiscovery"), deniedLog("updateContext"),
                                  deniedLog("sendCommand"), deniedLog("sendSimpleMessage")));
  EXPECT_THAT(fake::SentParcels(), IsEmpty());
  EXPECT_TRUE(Oxa::Capi::sentCommands.empty());
  EXPECT_FALSE(called);
}

TEST_F(ServiceTest, RefusedRegistrationStoresNoCallbackSoDestroySendsNothing) {
  deny();
  {
    Service service(OXA_SERVICE_TYPE_3);
    EXPECT_EQ(service.registerService([](oxa_error_e) {}), OXA_ERROR_PERMISSION_DENIED);
  }
  EXPECT_THAT(logs(), ElementsAre(deniedLog("registerService")));
}

TEST_F(ServiceTest, MissingCommandOrMessageIsReportedBeforeTheDenial) {
  deny();
  Service service(OXA_SERVICE_TYPE_1);
  EXPECT_EQ(service.sendCommand(nullptr, nullptr), OXA_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(service.sendSimpleMessage(nullptr, nullptr), OXA_ERROR_INVALID_PARAMETER);
  EXPECT_THAT(
      logs(),
      ElementsAre(serviceLog(DLOG_ERROR, "sendCommand", "\"No command\"", "No command"),
                  serviceLog(DLOG_ERROR, "sendSimpleMessage", "\"No message\"", "No message")));
}

TEST_F(ServiceTest, AppIdIsOnlyForTypeSix) {
  connect();
  for (int type : {OXA_SERVICE_TYPE_1, OXA_SERVICE_TYPE_3}) {
    Service service(type);
    EXPECT_EQ(service.setAppId(7), OXA_ERROR_NOT_SUPPORTED);
    EXPECT_EQ(service.getAppId(), 0);
  }
  const fake::LogLine invalidType =
      serviceLog(DLOG_ERROR, "setAppId", "\"Invalid service type\"", "Invalid service type");
  EXPECT_THAT(logs(), ElementsAre(invalidType, invalidType));
  EXPECT_THAT(sent(), IsEmpty());

  Service six(OXA_SERVICE_TYPE_6);
  fake::QueueReply(reply({fake::Int32(-61)}));
  EXPECT_EQ(six.setAppId(0x2a7), OXA_ERROR_NO_DATA);
  EXPECT_EQ(six.getAppId(), 0x2a7);
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(23), fake::Int32(0x2a7)})));
}

TEST_F(ServiceTest, StateQueryRewritesAnInternalErrorAsStoppedService) {
  connect();
  Service service(OXA_SERVICE_TYPE_3);
  int state = -1;
  fake::QueueReply(reply({fake::Bool(true), fake::Int32(OXA_ERROR_INTERNAL_ERROR)}));
  EXPECT_EQ(service.getState(state), OXA_ERROR_NONE);
  EXPECT_EQ(state, 0);

  fake::QueueReply(reply({fake::Bool(true), fake::Int32(OXA_ERROR_NONE)}));
  EXPECT_EQ(service.getState(state), OXA_ERROR_NONE);
  EXPECT_EQ(state, 1);

  fake::QueueReply(reply({fake::Bool(true), fake::Int32(OXA_ERROR_IO_ERROR)}));
  state = -1;
  EXPECT_EQ(service.getState(state), OXA_ERROR_IO_ERROR);
  EXPECT_EQ(state, 1);

  fake::QueueReply(reply({fake::Bool(false), fake::Int32(OXA_ERROR_NONE)}));
  EXPECT_EQ(service.getState(state), OXA_ERROR_NONE);
  EXPECT_EQ(state, 0);
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(4), fake::Int32(3)}),
                                  request({fake::Int32(4), fake::Int32(3)}),
                                  request({fake::Int32(4), fake::Int32(3)}),
                                  request({fake::Int32(4), fake::Int32(3)})));
}

TEST_F(ServiceTest, StateQueryBeforeConnectingReportsAStoppedService) {
  Service service(OXA_SERVICE_TYPE_1);
  int state = -1;
  EXPECT_EQ(service.getState(state), OXA_ERROR_NONE);
  EXPECT_EQ(state, 0);
  EXPECT_THAT(fake::SentParcels(), IsEmpty());
}

TEST_F(ServiceTest, DestroyingAnUnregisteredServiceSendsNothing) {
  connect();
  { Service service(OXA_SERVICE_TYPE_6); }
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(ServiceTest, DestroyingARegisteredServiceUnregistersItOnce) {
  connect();
  {
    Service service(OXA_SERVICE_TYPE_6);
    EXPECT_EQ(service.registerService([](oxa_error_e) {}), OXA_ERROR_NONE);
    fake::QueueReply(reply({fake::Int32(OXA_ERROR_NO_DATA)}));
  }
  const auto all = sent();
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(all[0].values[0], fake::Int32(2));
  EXPECT_EQ(all[1], request({fake::Int32(3), fake::Int32(6)}));
}

TEST_F(ServiceTest, UnregisterClearsTheRegistrationSoDestroySendsNoSecondOne) {
  connect();
  {
    Service service(OXA_SERVICE_TYPE_1);
    EXPECT_EQ(service.registerService([](oxa_error_e) {}), OXA_ERROR_NONE);
    fake::QueueReply(reply({fake::Int32(OXA_ERROR_INVALID_OPERATION)}));
    EXPECT_EQ(service.unregisterService(), OXA_ERROR_INVALID_OPERATION);
  }
  const auto all = sent();
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(all[1], request({fake::Int32(3), fake::Int32(1)}));
}

TEST_F(ServiceTest, RegistrationCompletionLogsAndCallsTheLatestCallback) {
  connect();
  Service service(OXA_SERVICE_TYPE_3);
  std::vector<std::string> calls;
  const int firstSeq = nextDelegateSeq();
  EXPECT_EQ(service.registerService(
                [&](oxa_error_e result) { calls.push_back("first " + std::to_string(result)); }),
            OXA_ERROR_NONE);
  fake::Values expected{fake::Int32(2), fake::Int32(3)};
  appendDelegate(expected, 1, firstSeq);
  EXPECT_THAT(sent(), ElementsAre(request(expected)));

  EXPECT_EQ(service.registerService(
                [&](oxa_error_e result) { calls.push_back("second " + std::to_string(result)); }),
            OXA_ERROR_NONE);
  // The answer to the first, still pending registration reaches the newest callback.
  fake::Values event = eventHeader(1, firstSeq);
  event.push_back(fake::Int32(OXA_ERROR_PERMISSION_DENIED));
  ASSERT_TRUE(fake::FireReceived(event));
  EXPECT_THAT(calls, ElementsAre("second -13"));
  EXPECT_THAT(logs(), ElementsAre(serviceLog(DLOG_INFO, "onRegistered",
                                             "\"Service is registered. result[%d]\"",
                                             "Service is registered. result[-13]")));

  // Unregistered: the completion still logs, but there is nobody left to call.
  fake::QueueReply(reply({fake::Int32(0)}));
  EXPECT_EQ(service.unregisterService(), OXA_ERROR_NONE);
  event = eventHeader(1, firstSeq);
  event.push_back(fake::Int32(OXA_ERROR_NONE));
  ASSERT_TRUE(fake::FireReceived(event));
  EXPECT_THAT(calls, ElementsAre("second -13"));
  EXPECT_EQ(logs().size(), 2U);
}

TEST_F(ServiceTest, OperationsCarryTheServiceType) {
  connect();
  Service service(OXA_SERVICE_TYPE_6);
  Command command(kAddress, OXA_COMMAND_TYPE_1, 5, {});
  SimpleMessage message(kAddress, {'m'});
  for (int i = 0; i < 6; ++i) {
    fake::QueueReply(reply({fake::Int32(i)}));
  }
  EXPECT_EQ(service.startDiscovery(), 0);
  EXPECT_EQ(service.stopDiscovery(), 1);
  EXPECT_EQ(service.updateContext(OXA_CONTEXT_TYPE_3, {0xee}), 2);
  EXPECT_EQ(service.setAppId(0x141), 3);
  EXPECT_EQ(service.sendCommand(&command, nullptr), 4);
  EXPECT_EQ(service.sendSimpleMessage(&message, nullptr), 5);
  const auto all = sent();
  ASSERT_EQ(all.size(), 6U);
  EXPECT_EQ(all[0], request({fake::Int32(16), fake::Int32(6)}));
  EXPECT_EQ(all[1], request({fake::Int32(17), fake::Int32(6)}));
  EXPECT_EQ(all[2], request({fake::Int32(22), fake::Int32(6), fake::Int32(3), fake::Count(1),
                             fake::Byte('\xee')}));
  EXPECT_EQ(all[4].values[1], fake::Int32(6));
  EXPECT_EQ(all[4].values[4], fake::Int32(5));
  EXPECT_EQ(all[5].values[1], fake::Int32(6));
  // The simple message starts with the low byte of the service's application id.
  EXPECT_EQ(all[5].values[7], fake::Byte(0x41));
  EXPECT_EQ(all[5].values[8], fake::Byte(0));
  EXPECT_EQ(all[5].values[9], fake::Byte('m'));
  // The wrapper of the message goes with its delegate when the connection is lost.
  ASSERT_TRUE(fake::FireDisconnected());
  EXPECT_EQ(Oxa::Capi::sentCommands.size(), 1U);
}

}  // namespace
