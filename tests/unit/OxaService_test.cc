// The exported service functions: creation, registration, state, application id, state changes.

#include <vector>

#include "OxaApiTest.h"

namespace oxa_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// What a service callback was called with.
struct ServiceEvent {
  oxa_service_h service;
  int value;
  void *userData;
  bool operator==(const ServiceEvent &other) const {
    return service == other.service && value == other.value && userData == other.userData;
  }
};

std::vector<ServiceEvent> serviceEvents;

void recordRegistered(oxa_service_h service, oxa_error_e result, void *userData) {
  serviceEvents.push_back({service, result, userData});
}

void recordState(oxa_service_h service, int state, void *userData) {
  serviceEvents.push_back({service, state, userData});
}

class OxaServiceTest : public ApiTest {
 protected:
  void SetUp() override {
    ApiTest::SetUp();
    serviceEvents.clear();
  }

  int userData = 0;
};

// The sequence number of the delegate that the latest request carried.
int lastDelegateSeq() {
  const std::vector<fake::SentParcel> parcels = fake::SentParcels();
  return parcels.empty() ? -1 : delegateSeq(parcels.back());
}

TEST_F(OxaServiceTest, CreateRefusesMissingOutPointer) {
  expectRefused(oxa_service_create(OXA_SERVICE_TYPE_1, nullptr), "oxa_service_create",
                "service is NULL");
}

TEST_F(OxaServiceTest, CreateRefusesTypeTwoAndLeavesOutUntouched) {
  auto *const untouched = reinterpret_cast<oxa_service_h>(0x1234);
  oxa_service_h service = untouched;
  EXPECT_EQ(oxa_service_create(static_cast<oxa_service_type_e>(2), &service),
            OXA_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(service, untouched);
  EXPECT_THAT(logs(), ElementsAre(entryLine("oxa_service_create")));
}

TEST_F(OxaServiceTest, CreateAcceptsTypesOneThreeSixWithoutTalkingToTheAgent) {
  for (oxa_service_type_e type : {OXA_SERVICE_TYPE_1, OXA_SERVICE_TYPE_3, OXA_SERVICE_TYPE_6}) {
    oxa_service_h service = nullptr;
    EXPECT_EQ(oxa_service_create(type, &service), OXA_ERROR_NONE);
    EXPECT_NE(service, nullptr);
    EXPECT_EQ(oxa_service_destroy(service), OXA_ERROR_NONE);
  }
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(OxaServiceTest, DestroyRefusesNull) {
  expectRefused(oxa_service_destroy(nullptr), "oxa_service_destroy", "No service");
}

TEST_F(OxaServiceTest, DestroyOfNeverRegisteredServiceSendsNothing) {
  oxa_service_h service = nullptr;
  ASSERT_EQ(oxa_service_create(OXA_SERVICE_TYPE_3, &service), OXA_ERROR_NONE);
  mark();
  EXPECT_EQ(oxa_service_destroy(service), OXA_ERROR_NONE);
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(logs(), ElementsAre(entryLine("oxa_service_destroy")));
}

TEST_F(OxaServiceTest, DestroyOfRegisteredServiceUnregistersOnceAndIgnoresTheResult) {
  oxa_service_h service = nullptr;
  ASSERT_EQ(oxa_service_create(OXA_SERVICE_TYPE_6, &service), OXA_ERROR_NONE);
  ASSERT_EQ(oxa_service_register(service, nullptr, nullptr), OXA_ERROR_NONE);
  mark();
  queueResult(OXA_ERROR_NO_DATA);
  EXPECT_EQ(oxa_service_destroy(service), OXA_ERROR_NONE);
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(3), fake::Int32(6)})));
}

TEST_F(OxaServiceTest, RegisterRefusesNull) {
  expectRefused(oxa_service_register(nullptr, recordRegistered, nullptr), "oxa_service_register",
                "No service");
}

TEST_F(OxaServiceTest, RegisterSendsTheRequestAndReportsTheAnswerWithTheService) {
  ScopedService service(OXA_SERVICE_TYPE_3);
  mark();
  EXPECT_EQ(oxa_service_register(service.get(), recordRegistered, &userData), OXA_ERROR_NONE);
  const int seq = lastDelegateSeq();
  EXPECT_THAT(sent(),
              ElementsAre(request(concat({fake::Int32(2), fake::Int32(3)}, delegate(1, seq)))));
  EXPECT_THAT(serviceEvents, IsEmpty());

  ASSERT_TRUE(fake::FireReceived(eventFor(1, seq, {fake::Int32(OXA_ERROR_NO_DATA)})));
  EXPECT_THAT(serviceEvents,
              ElementsAre(ServiceEvent{service.get(), OXA_ERROR_NO_DATA, &userData}));
  EXPECT_THAT(apiLogs(), ElementsAre(entryLine("oxa_service_register")));
  // The unregistration that destroying the registered service sends.
  queueResult(0);
}

TEST_F(OxaServiceTest, RegisterWithoutCallbackRegistersAndNeverCallsBack) {
  ScopedService service;
  mark();
  EXPECT_EQ(oxa_service_register(service.get(), nullptr, &userData), OXA_ERROR_NONE);
  const int seq = lastDelegateSeq();
  EXPECT_THAT(sent(),
              ElementsAre(request(concat({fake::Int32(2), fake::Int32(1)}, delegate(1, seq)))));
  ASSERT_TRUE(fake::FireReceived(eventFor(1, seq, {fake::Int32(OXA_ERROR_NONE)})));
  EXPECT_THAT(serviceEvents, IsEmpty());
  queueResult(0);
}

TEST_F(OxaServiceTest, LaterRegisterReplacesTheCallbackOfAPendingOne) {
  ScopedService service;
  int otherUserData = 0;
  mark();
  ASSERT_EQ(oxa_service_register(service.get(), recordRegistered, &userData), OXA_ERROR_NONE);
  const int firstSeq = lastDelegateSeq();
  ASSERT_EQ(oxa_service_register(service.get(), recordRegistered, &otherUserData), OXA_ERROR_NONE);
  ASSERT_TRUE(fake::FireReceived(eventFor(1, firstSeq, {fake::Int32(OXA_ERROR_NONE)})));
  EXPECT_THAT(serviceEvents,
              ElementsAre(ServiceEvent{service.get(), OXA_ERROR_NONE, &otherUserData}));
  queueResult(0);
}

TEST_F(OxaServiceTest, RegisterIsDeniedWithoutRequestAfterPermissionDenial) {
  ScopedService service;
  denyPermission();
  EXPECT_EQ(oxa_service_register(service.get(), recordRegistered, nullptr),
            OXA_ERROR_PERMISSION_DENIED);
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(logs(), ElementsAre(entryLine("oxa_service_register"),
                                  permissionDeniedLine("registerService")));
}

TEST_F(OxaServiceTest, RegisterWhileNotConnectedIsAnInternalError) {
  ScopedService service;
  disconnect();
  EXPECT_EQ(oxa_service_register(service.get(), recordRegistered, nullptr),
            OXA_ERROR_INTERNAL_ERROR);
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(logs(), ElementsAre(entryLine("oxa_service_register"),
                                  notInitializedLine("RegisterService")));
}

TEST_F(OxaServiceTest, UnregisterRefusesNull) {
  expectRefused(oxa_service_unregister(nullptr), "oxa_service_unregister", "No service");
}

TEST_F(OxaServiceTest, UnregisterSendsTheRequestAndReturnsTheAgentResult) {
  ScopedService service(OXA_SERVICE_TYPE_6);
  mark();
  queueResult(OXA_ERROR_NO_DATA);
  EXPECT_EQ(oxa_service_unregister(service.get()), OXA_ERROR_NO_DATA);
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(3), fake::Int32(6)})));
  EXPECT_THAT(apiLogs(), ElementsAre(entryLine("oxa_service_unregister")));
}

TEST_F(OxaServiceTest, UnregisterForgetsTheRegistrationSoDestroySendsNothingMore) {
  oxa_service_h service = nullptr;
  ASSERT_EQ(oxa_service_create(OXA_SERVICE_TYPE_1, &service), OXA_ERROR_NONE);
  ASSERT_EQ(oxa_service_register(service, recordRegistered, nullptr), OXA_ERROR_NONE);
  queueResult(OXA_ERROR_NONE);
  ASSERT_EQ(oxa_service_unregister(service), OXA_ERROR_NONE);
  mark();
  EXPECT_EQ(oxa_service_destroy(service), OXA_ERROR_NONE);
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(OxaServiceTest, GetStateWithBothArgumentsNullLogsOnlyTheService) {
  expectRefused(oxa_service_get_state(nullptr, nullptr), "oxa_service_get_state",
                "service is NULL");
}

TEST_F(OxaServiceTest, GetStateRefusesMissingStatePointer) {
  ScopedService service;
  mark();
  expectRefused(oxa_service_get_state(service.get(), nullptr), "oxa_service_get_state",
                "state is NULL");
}

TEST_F(OxaServiceTest, GetStateReadsTheAgentState) {
  ScopedService service(OXA_SERVICE_TYPE_3);
  mark();
  queueReply({fake::Bool(true), fake::Int32(OXA_ERROR_NONE)});
  int state = -1;
  EXPECT_EQ(oxa_service_get_state(service.get(), &state), OXA_ERROR_NONE);
  EXPECT_EQ(state, 1);
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(4), fake::Int32(3)})));
  EXPECT_THAT(apiLogs(), ElementsAre(entryLine("oxa_service_get_state")));
}

TEST_F(OxaServiceTest, GetStatePassesOtherAgentErrorsWithTheState) {
  ScopedService service;
  mark();
  queueReply({fake::Bool(true), fake::Int32(OXA_ERROR_NO_DATA)});
  int state = -1;
  EXPECT_EQ(oxa_service_get_state(service.get(), &state), OXA_ERROR_NO_DATA);
  EXPECT_EQ(state, 1);
}

TEST_F(OxaServiceTest, GetStateRewritesAnInternalErrorOfTheAgentToStateZero) {
  ScopedService service;
  mark();
  queueReply({fake::Bool(true), fake::Int32(OXA_ERROR_INTERNAL_ERROR)});
  int state = -1;
  EXPECT_EQ(oxa_service_get_state(service.get(), &state), OXA_ERROR_NONE);
  EXPECT_EQ(state, 0);
}

TEST_F(OxaServiceTest, GetStateWhileNotConnectedReportsStateZero) {
  ScopedService service;
  disconnect();
  int state = -1;
  EXPECT_EQ(oxa_service_get_state(service.get(), &state), OXA_ERROR_NONE);
  EXPECT_EQ(state, 0);
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(logs(), ElementsAre(entryLine("oxa_service_get_state"),
                                  notInitializedLine("GetServiceState")));
}

TEST_F(OxaServiceTest, SetAppIdRefusesNull) {
  expectRefused(oxa_service_set_app_id(nullptr, 7), "oxa_service_set_app_id", "No service");
}

TEST_F(OxaServiceTest, SetAppIdIsNotSupportedBelowTypeSix) {
  for (oxa_service_type_e type : {OXA_SERVICE_TYPE_1, OXA_SERVICE_TYPE_3}) {
    ScopedService service(type);
    mark();
    EXPECT_EQ(oxa_service_set_app_id(service.get(), 7), OXA_ERROR_NOT_SUPPORTED);
    EXPECT_THAT(sent(), IsEmpty());
  }
}

TEST_F(OxaServiceTest, SetAppIdSendsTheIdAloneForTypeSix) {
  ScopedService service(OXA_SERVICE_TYPE_6);
  mark();
  queueResult(OXA_ERROR_NO_DATA);
  EXPECT_EQ(oxa_service_set_app_id(service.get(), 0x1234), OXA_ERROR_NO_DATA);
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(23), fake::Int32(0x1234)})));
  EXPECT_THAT(apiLogs(), ElementsAre(entryLine("oxa_service_set_app_id")));
}

TEST_F(OxaServiceTest, SetStateChangedCbWithNullServiceAndCallbackLogsOnlyTheService) {
  expectRefused(oxa_service_set_state_changed_cb(nullptr, nullptr, nullptr),
                "oxa_service_set_state_changed_cb", "service is NULL");
}

TEST_F(OxaServiceTest, SetStateChangedCbRefusesNullCallback) {
  ScopedService service;
  mark();
  expectRefused(oxa_service_set_state_changed_cb(service.get(), nullptr, nullptr),
                "oxa_service_set_state_changed_cb", "callback is NULL");
}

TEST_F(OxaServiceTest, SetStateChangedCbSucceedsEvenWhenTheAgentRefusesAndDeliversStates) {
  ScopedService service(OXA_SERVICE_TYPE_6);
  mark();
  queueResult(OXA_ERROR_PERMISSION_DENIED);
  EXPECT_EQ(oxa_service_set_state_changed_cb(service.get(), recordState, &userData),
            OXA_ERROR_NONE);
  const int seq = lastDelegateSeq();
  EXPECT_THAT(sent(),
              ElementsAre(request(concat({fake::Int32(5), fake::Int32(6)}, delegate(2, seq)))));

  ASSERT_TRUE(fake::FireReceived(eventFor(2, seq, {fake::Bool(true)})));
  ASSERT_TRUE(fake::FireReceived(eventFor(2, seq, {fake::Bool(false)})));
  EXPECT_THAT(serviceEvents, ElementsAre(ServiceEvent{service.get(), 1, &userData},
                                         ServiceEvent{service.get(), 0, &userData}));
  EXPECT_THAT(apiLogs(), ElementsAre(entryLine("oxa_service_set_state_changed_cb")));
}

TEST_F(OxaServiceTest, SetStateChangedCbWhileNotConnectedIsAnInternalError) {
  ScopedService service;
  disconnect();
  EXPECT_EQ(oxa_service_set_state_changed_cb(service.get(), recordState, nullptr),
            OXA_ERROR_INTERNAL_ERROR);
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(OxaServiceTest, UnsetStateChangedCbRefusesNull) {
  expectRefused(oxa_service_unset_state_changed_cb(nullptr), "oxa_service_unset_state_changed_cb",
                "service is NULL");
}

TEST_F(OxaServiceTest, UnsetStateChangedCbSendsTheRequestAndReturnsTheAgentResult) {
  ScopedService service(OXA_SERVICE_TYPE_3);
  mark();
  queueResult(OXA_ERROR_NO_DATA);
  EXPECT_EQ(oxa_service_unset_state_changed_cb(service.get()), OXA_ERROR_NO_DATA);
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(6), fake::Int32(3)})));
  EXPECT_THAT(apiLogs(), ElementsAre(entryLine("oxa_service_unset_state_changed_cb")));
}

}  // namespace
}  // namespace oxa_test
