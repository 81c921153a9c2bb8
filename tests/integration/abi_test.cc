// The shipped liboxa.so, driven through oxa.h only, with the fake platform interposed on the
// platform's symbols (the program runs with LD_PRELOAD=libfake_platform.so). What the library
// sends, logs and calls back is read from the fake.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "FakePlatform.h"
#include "oxa.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char *kPeer = "AA:BB:CC:DD:EE:FF";

// The number of the first line of src/oxa.cc with `needle` after the definition of `function`.
int apiSourceLine(const std::string &function, const std::string &needle) {
  std::ifstream in(std::string(OXA_SOURCE_DIR) + "/src/oxa.cc");
  bool inFunction = false;
  int number = 1;
  for (std::string text; std::getline(in, text); ++number) {
    inFunction = inFunction || text.find("int " + function + "(") != std::string::npos;
    if (inFunction && text.find(needle) != std::string::npos) {
      return number;
    }
  }
  ADD_FAILURE() << "no \"" << needle << "\" in " << function;
  return 0;
}

fake::LogLine apiLine(log_priority level, const std::string &function, const std::string &needle,
                      const std::string &message) {
  return {level, "OXA_API", "%s",
          "src/oxa.cc: " + function + "(" + std::to_string(apiSourceLine(function, needle)) +
              ") > " + message};
}

std::vector<std::string> initializedEvents;

void recordInitialized(oxa_error_e result, void *userData) {
  initializedEvents.push_back(std::to_string(result) + " " +
                              (userData == &initializedEvents ? "own data" : "other data"));
}

std::vector<std::string> deviceNames;

void recordDeviceName(oxa_device_h device, void *userData) {
  char *name = nullptr;
  EXPECT_EQ(oxa_device_get_name(device, &name), OXA_ERROR_NONE);
  deviceNames.push_back(std::string(name ? name : "?") + (userData == &deviceNames ? "" : "!"));
  std::free(name);
}

std::vector<oxa_simple_message_h> sentMessages;

void recordMessageSent(oxa_simple_message_h message, oxa_error_e result, void *userData) {
  EXPECT_EQ(result, OXA_ERROR_NONE);
  EXPECT_EQ(userData, &sentMessages);
  sentMessages.push_back(message);
}

// The object that defines `symbol` in this process.
std::string definingObject(const char *symbol) {
  Dl_info info{};
  void *address = dlsym(RTLD_DEFAULT, symbol);
  return address != nullptr && dladdr(address, &info) != 0 && info.dli_fname != nullptr
             ? info.dli_fname
             : "";
}

// Each test connects afresh. The library's handler outlives the tests; Reset makes the fake
// forget the proxy it kept from the previous test, whose replacement the fake then reports once
// as a fault of its own making.
class AbiTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fake::Reset();
    initializedEvents.clear();
    ASSERT_EQ(oxa_initialize(recordInitialized, &initializedEvents), OXA_ERROR_NONE);
    ASSERT_TRUE(fake::FireConnected());
    ASSERT_THAT(initializedEvents, ElementsAre("0 own data"));
    const std::vector<std::string> faults = fake::Faults();
    faultsBefore = faults.size();
    ASSERT_TRUE(faults.empty() ||
                faults == std::vector<std::string>{"destroy on an unknown proxy"});
    logsBefore = fake::Logs().size();
    sentBefore = fake::SentParcels().size();
  }

  void TearDown() override {
    fake::QueueReply({fake::Int32(0), fake::Int32(OXA_ERROR_NONE)});
    EXPECT_EQ(oxa_deinitialize(), OXA_ERROR_NONE);
    EXPECT_EQ(fake::SentParcels().back(),
              (fake::SentParcel{fake::Port::Main, {fake::Int32(24)}, 0}));
    EXPECT_EQ(fake::Faults().size(), faultsBefore) << "the library misused the platform";
  }

  std::vector<fake::LogLine> logs() const {
    const std::vector<fake::LogLine> all = fake::Logs();
    return {all.begin() + static_cast<long>(logsBefore), all.end()};
  }

  std::vector<fake::SentParcel> sent() const {
    const std::vector<fake::SentParcel> all = fake::SentParcels();
    return {all.begin() + static_cast<long>(sentBefore), all.end()};
  }

  size_t faultsBefore = 0;
  size_t logsBefore = 0;
  size_t sentBefore = 0;
};

TEST_F(AbiTest, ThePlatformSymbolsComeFromTheFake) {
  for (const char *symbol :
       {"rpc_port_proxy_create", "rpc_port_parcel_send", "dlog_print", "get_last_result"}) {
    EXPECT_THAT(definingObject(symbol), ::testing::HasSubstr("libfake_platform")) << symbol;
  }
  EXPECT_THAT(definingObject("oxa_initialize"), ::testing::HasSubstr("liboxa.so"));
}

TEST_F(AbiTest, InitializeConnectsToTheAgentPort) {
  EXPECT_THAT(fake::ConnectCalls(),
              ElementsAre(fake::ConnectCall{false, OXA_AGENT_APPID, "OxaAgentInterface"}));
}

TEST_F(AbiTest, ARequestGoesOutTypedAndItsResultComesBack) {
  oxa_service_h service = nullptr;
  ASSERT_EQ(oxa_service_create(OXA_SERVICE_TYPE_6, &service), OXA_ERROR_NONE);
  fake::QueueReply({fake::Int32(0), fake::Int32(OXA_ERROR_NO_DATA)});
  EXPECT_EQ(oxa_start_discovery(service), OXA_ERROR_NO_DATA);
  EXPECT_THAT(sent(), ElementsAre(fake::SentParcel{
                          fake::Port::Main, {fake::Int32(16), fake::Int32(6)}, 0}));
  EXPECT_THAT(logs(), Contains(apiLine(DLOG_DEBUG, "oxa_start_discovery", "OXA_LOGD(\"+\")", "+")));
  EXPECT_EQ(oxa_service_destroy(service), OXA_ERROR_NONE);
}

TEST_F(AbiTest, ArgumentErrorsAreLoggedAsTheExportedFunction) {
  EXPECT_EQ(oxa_command_create(kPeer, 1, 1, nullptr, 0, nullptr), OXA_ERROR_INVALID_PARAMETER);
  EXPECT_THAT(logs(), ElementsAre(apiLine(DLOG_DEBUG, "oxa_command_create", "OXA_LOGD(\"+\")", "+"),
                                  apiLine(DLOG_ERROR, "oxa_command_create", "\"command is NULL\"",
                                          "command is NULL")));
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(AbiTest, AnEventReachesTheApplicationWithABorrowedDevice) {
  oxa_service_h service = nullptr;
  ASSERT_EQ(oxa_service_create(OXA_SERVICE_TYPE_1, &service), OXA_ERROR_NONE);
  fake::QueueReply({fake::Int32(0), fake::Int32(OXA_ERROR_NONE)});
  deviceNames.clear();
  ASSERT_EQ(oxa_set_device_found_cb(service, recordDeviceName, &deviceNames), OXA_ERROR_NONE);
  const fake::SentParcel registration = sent().at(0);
  const int seq = static_cast<int>(registration.values.at(3).integer);
  EXPECT_EQ(registration, (fake::SentParcel{fake::Port::Main,
                                            {fake::Int32(10), fake::Int32(1), fake::Int32(5),
                                             fake::Int32(seq), fake::Bool(false)},
                                            0}));
  ASSERT_TRUE(
      fake::FireReceived({fake::Int32(1), fake::Int32(5), fake::Int32(seq), fake::Bool(false),
                          fake::String(kPeer), fake::Int32(2), fake::String("tv")}));
  EXPECT_THAT(deviceNames, ElementsAre("tv"));
  EXPECT_EQ(oxa_service_destroy(service), OXA_ERROR_NONE);
}

TEST_F(AbiTest, ASimpleMessageTravelsAsACommandAndComesBackAsTheOwnHandle) {
  oxa_service_h service = nullptr;
  oxa_simple_message_h message = nullptr;
  const unsigned char data[] = {'h', 'i'};
  ASSERT_EQ(oxa_service_create(OXA_SERVICE_TYPE_3, &service), OXA_ERROR_NONE);
  ASSERT_EQ(oxa_simple_message_create(kPeer, data, 2, &message), OXA_ERROR_NONE);
  fake::QueueReply({fake::Int32(0), fake::Int32(OXA_ERROR_NONE)});
  sentMessages.clear();
  ASSERT_EQ(oxa_send_simple_message(service, message, recordMessageSent, &sentMessages),
            OXA_ERROR_NONE);
  const fake::Values request = sent().at(0).values;
  ASSERT_EQ(request.size(), 15U);
  const int commandSeq = static_cast<int>(request.at(11).integer);
  const int delegateSeq = static_cast<int>(request.at(13).integer);
  EXPECT_EQ(request,
            (fake::Values{fake::Int32(7), fake::Int32(3), fake::String(kPeer), fake::Int32(3),
                          fake::Int32(3), fake::Int32(3), fake::Count(4), fake::Byte(0),
                          fake::Byte(0), fake::Byte('h'), fake::Byte('i'), fake::Int32(commandSeq),
                          fake::Int32(3), fake::Int32(delegateSeq), fake::Bool(false)}));
  ASSERT_TRUE(fake::FireReceived({fake::Int32(1), fake::Int32(3), fake::Int32(delegateSeq),
                                  fake::Bool(false), fake::Int32(OXA_ERROR_NONE),
                                  fake::String(kPeer), fake::Int32(3), fake::Int32(3),
                                  fake::Int32(3), fake::Count(4), fake::Byte(0), fake::Byte(0),
                                  fake::Byte('h'), fake::Byte('i'), fake::Int32(commandSeq)}));
  EXPECT_THAT(sentMessages, ElementsAre(message));
  EXPECT_EQ(oxa_simple_message_destroy(message), OXA_ERROR_NONE);
  EXPECT_EQ(oxa_service_destroy(service), OXA_ERROR_NONE);
}

}  // namespace
