// The exported discovery, device and context functions.

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "OxaApiTest.h"

namespace oxa_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// A device as the public getters show it.
struct SeenDevice {
  std::string address;
  int type;
  std::string name;
  bool operator==(const SeenDevice &other) const {
    return address == other.address && type == other.type && name == other.name;
  }
};

std::ostream &operator<<(std::ostream &out, const SeenDevice &device) {
  return out << "{" << device.address << ", " << device.type << ", " << device.name << "}";
}

// Reads a device through the public getters; its address must be a real one.
SeenDevice see(oxa_device_h device) {
  SeenDevice seen{"", -1, ""};
  char *address = nullptr;
  char *name = nullptr;
  oxa_device_type_e type = OXA_DEVICE_TYPE_UNKNOWN;
  EXPECT_EQ(oxa_device_get_address(device, &address), OXA_ERROR_NONE);
  EXPECT_EQ(oxa_device_get_name(device, &name), OXA_ERROR_NONE);
  EXPECT_EQ(oxa_device_get_type(device, &type), OXA_ERROR_NONE);
  if (address != nullptr && name != nullptr) {
    seen = {address, type, name};
  }
  std::free(address);
  std::free(name);
  return seen;
}

// What a foreach callback saw, and after how many devices it asks to stop.
struct Visit {
  std::vector<SeenDevice> devices;
  std::size_t stopAfter = 100;
};

bool visit(oxa_device_h device, void *userData) {
  auto *seen = static_cast<Visit *>(userData);
  seen->devices.push_back(see(device));
  return seen->devices.size() < seen->stopAfter;
}

class OxaDeviceTest : public ApiTest {
 protected:
  // A device that the agent reports as the application's own; the test owns it.
  static oxa_device_h agentDevice(const std::string &address, int type = OXA_DEVICE_TYPE_2,
                                  const std::string &name = "peer") {
    ScopedService service;
    queueReply(concat(deviceRecord(address, type, name), {fake::Int32(OXA_ERROR_NONE)}));
    oxa_device_h device = nullptr;
    EXPECT_EQ(oxa_get_my_device(service.get(), address.c_str(), &device), OXA_ERROR_NONE);
    return device;
  }

  // A device with a real address; destroyed with the test.
  void SetUp() override {
    ApiTest::SetUp();
    device = agentDevice(kPeer);
    mark();
  }

  void TearDown() override {
    oxa_device_destroy(device);
    ApiTest::TearDown();
  }

  oxa_device_h device = nullptr;
};

// ---- Discovery ---------------------------------------------------------------------------------

TEST_F(OxaDeviceTest, StartDiscoveryRefusesNull) {
  expectRefused(oxa_start_discovery(nullptr), "oxa_start_discovery", "service is NULL");
}

TEST_F(OxaDeviceTest, StartDiscoverySendsTheRequestAndReturnsTheAgentResult) {
  ScopedService service(OXA_SERVICE_TYPE_6);
  mark();
  queueResult(OXA_ERROR_NO_DATA);
  EXPECT_EQ(oxa_start_discovery(service.get()), OXA_ERROR_NO_DATA);
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(16), fake::Int32(6)})));
  EXPECT_THAT(apiLogs(), ElementsAre(entryLine("oxa_start_discovery")));
}

TEST_F(OxaDeviceTest, StopDiscoveryRefusesNull) {
  expectRefused(oxa_stop_discovery(nullptr), "oxa_stop_discovery", "service is NULL");
}

TEST_F(OxaDeviceTest, StopDiscoverySendsTheRequestAndReturnsTheAgentResult) {
  ScopedService service(OXA_SERVICE_TYPE_3);
  mark();
  queueResult(OXA_ERROR_NONE);
  EXPECT_EQ(oxa_stop_discovery(service.get()), OXA_ERROR_NONE);
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(17), fake::Int32(3)})));
  EXPECT_THAT(apiLogs(), ElementsAre(entryLine("oxa_stop_discovery")));
}

TEST_F(OxaDeviceTest, DiscoveryAndContextUpdateAreDeniedWithoutRequestAfterPermissionDenial) {
  ScopedService service;
  denyPermission();
  const unsigned char data[] = {1};
  EXPECT_EQ(oxa_start_discovery(service.get()), OXA_ERROR_PERMISSION_DENIED);
  EXPECT_EQ(oxa_stop_discovery(service.get()), OXA_ERROR_PERMISSION_DENIED);
  EXPECT_EQ(oxa_update_context(service.get(), OXA_CONTEXT_TYPE_2, data, 1),
            OXA_ERROR_PERMISSION_DENIED);
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(logs(),
              ElementsAre(entryLine("oxa_start_discovery"), permissionDeniedLine("startDiscovery"),
                          entryLine("oxa_stop_discovery"), permissionDeniedLine("stopDiscovery"),
                          entryLine("oxa_update_context"), permissionDeniedLine("updateContext")));
}

TEST_F(OxaDeviceTest, DiscoveryWhileNotConnectedIsAnInternalError) {
  ScopedService service;
  disconnect();
  EXPECT_EQ(oxa_start_discovery(service.get()), OXA_ERROR_INTERNAL_ERROR);
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(logs(),
              ElementsAre(entryLine("oxa_start_discovery"), notInitializedLine("StartDiscovery")));
}

// ---- Found devices -----------------------------------------------------------------------------

TEST_F(OxaDeviceTest, ForeachWithNullServiceAndCallbackLogsOnlyTheService) {
  expectRefused(oxa_foreach_found_device(nullptr, nullptr, nullptr), "oxa_foreach_found_device",
                "service is NULL");
}

TEST_F(OxaDeviceTest, ForeachRefusesNullCallback) {
  ScopedService service;
  mark();
  expectRefused(oxa_foreach_found_device(service.get(), nullptr, nullptr),
                "oxa_foreach_found_device", "callback is NULL");
}

TEST_F(OxaDeviceTest, ForeachVisitsEveryDeviceInOrderWithNormalisedTypes) {
  ScopedService service(OXA_SERVICE_TYPE_3);
  mark();
  queueReply(concat(concat(concat({fake::Count(3)}, deviceRecord("00:00:00:00:00:01", 5, "one")),
                           concat(deviceRecord("00:00:00:00:00:02", 0, "two"),
                                  deviceRecord("00:00:00:00:00:03", -1, "three"))),
                    {fake::Int32(OXA_ERROR_NONE)}));
  Visit seen;
  EXPECT_EQ(oxa_foreach_found_device(service.get(), visit, &seen), OXA_ERROR_NONE);
  EXPECT_THAT(seen.devices, ElementsAre(SeenDevice{"00:00:00:00:00:01", 5, "one"},
                                        SeenDevice{"00:00:00:00:00:02", 99, "two"},
                                        SeenDevice{"00:00:00:00:00:03", 99, "three"}));
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(18), fake::Int32(3)})));
}

TEST_F(OxaDeviceTest, ForeachStopsWhenTheCallbackReturnsFalse) {
  ScopedService service;
  mark();
  queueReply(concat(concat(concat({fake::Count(2)}, deviceRecord("00:00:00:00:00:01", 1, "one")),
                           deviceRecord("00:00:00:00:00:02", 2, "two")),
                    {fake::Int32(OXA_ERROR_NONE)}));
  Visit seen;
  seen.stopAfter = 1;
  EXPECT_EQ(oxa_foreach_found_device(service.get(), visit, &seen), OXA_ERROR_NONE);
  EXPECT_THAT(seen.devices, ElementsAre(SeenDevice{"00:00:00:00:00:01", 1, "one"}));
}

TEST_F(OxaDeviceTest, ForeachOverNoDevicesCallsNothing) {
  ScopedService service;
  mark();
  queueReply({fake::Count(0), fake::Int32(OXA_ERROR_NONE)});
  Visit seen;
  EXPECT_EQ(oxa_foreach_found_device(service.get(), visit, &seen), OXA_ERROR_NONE);
  EXPECT_THAT(seen.devices, IsEmpty());
  EXPECT_THAT(apiLogs(), ElementsAre(entryLine("oxa_foreach_found_device")));
}

TEST_F(OxaDeviceTest, ForeachReturnsTheAgentErrorWithoutCallingBack) {
  ScopedService service;
  mark();
  queueReply(concat(concat({fake::Count(1)}, deviceRecord(kPeer, 1, "one")),
                    {fake::Int32(OXA_ERROR_NO_DATA)}));
  Visit seen;
  EXPECT_EQ(oxa_foreach_found_device(service.get(), visit, &seen), OXA_ERROR_NO_DATA);
  EXPECT_THAT(seen.devices, IsEmpty());
  EXPECT_THAT(apiLogs(),
              ElementsAre(entryLine("oxa_foreach_found_device"),
                          errorLine("oxa_foreach_found_device", "getFoundDevices() failed.")));
}

TEST_F(OxaDeviceTest, ForeachWhileNotConnectedIsAnInternalError) {
  ScopedService service;
  disconnect();
  Visit seen;
  EXPECT_EQ(oxa_foreach_found_device(service.get(), visit, &seen), OXA_ERROR_INTERNAL_ERROR);
  EXPECT_THAT(seen.devices, IsEmpty());
  EXPECT_THAT(
      logs(),
      ElementsAre(entryLine("oxa_foreach_found_device"), notInitializedLine("getFoundDevices"),
                  errorLine("oxa_foreach_found_device", "getFoundDevices() failed.")));
}

// ---- Own device --------------------------------------------------------------------------------

TEST_F(OxaDeviceTest, GetMyDeviceChecksItsArgumentsInOrder) {
  ScopedService service;
  oxa_device_h mine = nullptr;
  mark();
  expectRefused(oxa_get_my_device(nullptr, nullptr, nullptr), "oxa_get_my_device",
                "service is NULL");
  mark();
  expectRefused(oxa_get_my_device(service.get(), nullptr, nullptr), "oxa_get_my_device",
                "address is NULL");
  mark();
  expectRefused(oxa_get_my_device(service.get(), kPeer, nullptr), "oxa_get_my_device",
                "device is NULL");
  EXPECT_EQ(mine, nullptr);
}

TEST_F(OxaDeviceTest, GetMyDeviceAsksForTheAddressAndHandsOutANormalisedDevice) {
  ScopedService service(OXA_SERVICE_TYPE_6);
  mark();
  queueReply(concat(deviceRecord("11:22:33:44:55:66", 6, "mine"), {fake::Int32(OXA_ERROR_NONE)}));
  oxa_device_h mine = nullptr;
  EXPECT_EQ(oxa_get_my_device(service.get(), "11:22:33:44:55:66", &mine), OXA_ERROR_NONE);
  EXPECT_THAT(
      sent(),
      ElementsAre(request({fake::Int32(19), fake::Int32(6), fake::String("11:22:33:44:55:66")})));
  EXPECT_EQ(see(mine), (SeenDevice{"11:22:33:44:55:66", 99, "mine"}));
  EXPECT_EQ(oxa_device_destroy(mine), OXA_ERROR_NONE);
}

TEST_F(OxaDeviceTest, GetMyDeviceFailureLeavesTheOutputUntouched) {
  ScopedService service;
  mark();
  queueReply(concat(deviceRecord(kPeer, 1, "mine"), {fake::Int32(OXA_ERROR_NO_DEVICE)}));
  auto *const untouched = reinterpret_cast<oxa_device_h>(0x1234);
  oxa_device_h mine = untouched;
  EXPECT_EQ(oxa_get_my_device(service.get(), kPeer, &mine), OXA_ERROR_NO_DEVICE);
  EXPECT_EQ(mine, untouched);
  EXPECT_THAT(apiLogs(), ElementsAre(entryLine("oxa_get_my_device"),
                                     errorLine("oxa_get_my_device", "getMyDevice() failed.")));
}

// ---- Context update ----------------------------------------------------------------------------

TEST_F(OxaDeviceTest, UpdateContextRefusesNullService) {
  expectRefused(oxa_update_context(nullptr, OXA_CONTEXT_TYPE_1, nullptr, 0), "oxa_update_context",
                "service is NULL");
}

TEST_F(OxaDeviceTest, UpdateContextRefusesContextTypesOtherThanTwoThreeSix) {
  ScopedService service;
  for (int type : {0, 1, 4, 5, 7}) {
    mark();
    expectRefused(
        oxa_update_context(service.get(), static_cast<oxa_context_type_e>(type), nullptr, 0),
        "oxa_update_context", "Invalid context type");
  }
}

TEST_F(OxaDeviceTest, UpdateContextSendsTypesTwoThreeSixWithACopyOfTheBytes) {
  ScopedService service(OXA_SERVICE_TYPE_3);
  const unsigned char data[] = {0x10, 0x00, 0xff};
  for (oxa_context_type_e type : {OXA_CONTEXT_TYPE_2, OXA_CONTEXT_TYPE_3, OXA_CONTEXT_TYPE_6}) {
    mark();
    queueResult(OXA_ERROR_NO_DATA);
    EXPECT_EQ(oxa_update_context(service.get(), type, data, 3), OXA_ERROR_NO_DATA);
    EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(22), fake::Int32(3), fake::Int32(type),
                                             fake::Count(3), fake::Byte(0x10), fake::Byte(0x00),
                                             fake::Byte(static_cast<char>(0xff))})));
    EXPECT_THAT(apiLogs(), ElementsAre(entryLine("oxa_update_context")));
  }
}

TEST_F(OxaDeviceTest, UpdateContextWithNoDataSendsAnEmptyArray) {
  ScopedService service;
  mark();
  queueResult(OXA_ERROR_NONE);
  EXPECT_EQ(oxa_update_context(service.get(), OXA_CONTEXT_TYPE_6, nullptr, 0), OXA_ERROR_NONE);
  EXPECT_THAT(
      sent(),
      ElementsAre(request({fake::Int32(22), fake::Int32(1), fake::Int32(6), fake::Count(0)})));
}

TEST_F(OxaDeviceTest, UpdateContextWithNegativeSizeRaisesTheVectorLengthError) {
  ScopedService service;
  const unsigned char data[] = {1};
  mark();
  try {
    oxa_update_context(service.get(), OXA_CONTEXT_TYPE_2, data, -1);
    ADD_FAILURE() << "no exception";
  } catch (const std::length_error &error) {
    EXPECT_STREQ(error.what(), "cannot create std::vector larger than max_size()");
  }
  EXPECT_THAT(sent(), IsEmpty());
}

// ---- Device objects ----------------------------------------------------------------------------

TEST_F(OxaDeviceTest, CloneRefusesNull) {
  oxa_device_h copy = nullptr;
  expectRefused(oxa_device_clone(nullptr, &copy), "oxa_device_clone", "No device");
  EXPECT_EQ(copy, nullptr);
}

TEST_F(OxaDeviceTest, CloneIsIndependentOfItsSource) {
  oxa_device_h source = agentDevice("01:02:03:04:05:06", OXA_DEVICE_TYPE_4, "source");
  mark();
  oxa_device_h copy = nullptr;
  EXPECT_EQ(oxa_device_clone(source, &copy), OXA_ERROR_NONE);
  EXPECT_THAT(logs(), ElementsAre(entryLine("oxa_device_clone")));
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(copy, source);
  EXPECT_EQ(oxa_device_destroy(source), OXA_ERROR_NONE);
  EXPECT_EQ(see(copy), (SeenDevice{"01:02:03:04:05:06", 4, "source"}));
  EXPECT_EQ(oxa_device_destroy(copy), OXA_ERROR_NONE);
}

TEST_F(OxaDeviceTest, DestroyRefusesNull) {
  expectRefused(oxa_device_destroy(nullptr), "oxa_device_destroy", "No device");
}

TEST_F(OxaDeviceTest, GetTypeChecksDeviceThenOutput) {
  oxa_device_type_e type = OXA_DEVICE_TYPE_1;
  expectRefused(oxa_device_get_type(nullptr, nullptr), "oxa_device_get_type", "device is NULL");
  mark();
  expectRefused(oxa_device_get_type(device, nullptr), "oxa_device_get_type", "type is NULL");
  EXPECT_EQ(type, OXA_DEVICE_TYPE_1);
}

TEST_F(OxaDeviceTest, GetTypeReadsTheType) {
  oxa_device_type_e type = OXA_DEVICE_TYPE_1;
  EXPECT_EQ(oxa_device_get_type(device, &type), OXA_ERROR_NONE);
  EXPECT_EQ(type, OXA_DEVICE_TYPE_2);
  EXPECT_THAT(logs(), ElementsAre(entryLine("oxa_device_get_type")));
}

TEST_F(OxaDeviceTest, GetNameChecksDeviceThenOutput) {
  expectRefused(oxa_device_get_name(nullptr, nullptr), "oxa_device_get_name", "No device");
  mark();
  expectRefused(oxa_device_get_name(device, nullptr), "oxa_device_get_name", "name is nullptr");
}

TEST_F(OxaDeviceTest, GetNameHandsOutACopy) {
  char *name = nullptr;
  EXPECT_EQ(oxa_device_get_name(device, &name), OXA_ERROR_NONE);
  EXPECT_STREQ(name, "peer");
  std::free(name);
  EXPECT_THAT(logs(), ElementsAre(entryLine("oxa_device_get_name")));
}

TEST_F(OxaDeviceTest, GetAddressRefusesNullDevice) {
  char *address = nullptr;
  expectRefused(oxa_device_get_address(nullptr, &address), "oxa_device_get_address", "No device");
  EXPECT_EQ(address, nullptr);
}

TEST_F(OxaDeviceTest, GetAddressHandsOutOnlySeventeenCharacterAddresses) {
  for (const char *bad : {"", "AA:BB:CC:DD:EE:F", "AA:BB:CC:DD:EE:FF0"}) {
    oxa_device_h odd = agentDevice(bad);
    mark();
    char *address = nullptr;
    expectRefused(oxa_device_get_address(odd, &address), "oxa_device_get_address", "No address");
    EXPECT_EQ(address, nullptr);
    oxa_device_destroy(odd);
  }
}

TEST_F(OxaDeviceTest, GetAddressHandsOutACopy) {
  char *address = nullptr;
  EXPECT_EQ(oxa_device_get_address(device, &address), OXA_ERROR_NONE);
  EXPECT_STREQ(address, kPeer);
  std::free(address);
  EXPECT_THAT(logs(), ElementsAre(entryLine("oxa_device_get_address")));
}

// ---- Raw context -------------------------------------------------------------------------------

TEST_F(OxaDeviceTest, RawContextChecksItsArgumentsInOrder) {
  unsigned char *value = nullptr;
  int len = -1;
  expectRefused(oxa_device_get_raw_context(nullptr, nullptr, nullptr), "oxa_device_get_raw_context",
                "No device");
  mark();
  expectRefused(oxa_device_get_raw_context(device, nullptr, nullptr), "oxa_device_get_raw_context",
                "value is nullptr");
  mark();
  expectRefused(oxa_device_get_raw_context(device, &value, nullptr), "oxa_device_get_raw_context",
                "len is nullptr");
  EXPECT_EQ(value, nullptr);
  EXPECT_EQ(len, -1);
}

TEST_F(OxaDeviceTest, RawContextAsksForTheDeviceAndHandsOutACopy) {
  queueReply({fake::Count(2), fake::Byte(0x01), fake::Byte(0x7f), fake::Int32(OXA_ERROR_NONE)});
  unsigned char *value = nullptr;
  int len = -1;
  EXPECT_EQ(oxa_device_get_raw_context(device, &value, &len), OXA_ERROR_NONE);
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(20), fake::String(kPeer)})));
  ASSERT_EQ(len, 2);
  ASSERT_NE(value, nullptr);
  EXPECT_EQ(value[0], 0x01);
  EXPECT_EQ(value[1], 0x7f);
  std::free(value);
  EXPECT_THAT(apiLogs(), ElementsAre(entryLine("oxa_device_get_raw_context")));
}

TEST_F(OxaDeviceTest, RawContextWithNoDataGivesLengthZeroAndNoBuffer) {
  queueReply({fake::Count(0), fake::Int32(OXA_ERROR_NONE)});
  auto *const untouched = reinterpret_cast<unsigned char *>(0x1234);
  unsigned char *value = untouched;
  int len = -1;
  EXPECT_EQ(oxa_device_get_raw_context(device, &value, &len), OXA_ERROR_NONE);
  EXPECT_EQ(len, 0);
  EXPECT_EQ(value, untouched);
  EXPECT_THAT(apiLogs(), ElementsAre(entryLine("oxa_device_get_raw_context"),
                                     apiLine(DLOG_DEBUG, "oxa_device_get_raw_context",
                                             "handOutBytes(", "No context")));
}

TEST_F(OxaDeviceTest, RawContextReturnsTheAgentErrorAndLeavesTheOutputs) {
  queueReply({fake::Count(1), fake::Byte(0x01), fake::Int32(OXA_ERROR_NO_DATA)});
  unsigned char *value = nullptr;
  int len = -1;
  EXPECT_EQ(oxa_device_get_raw_context(device, &value, &len), OXA_ERROR_NO_DATA);
  EXPECT_EQ(value, nullptr);
  EXPECT_EQ(len, -1);
  EXPECT_THAT(apiLogs(),
              ElementsAre(entryLine("oxa_device_get_raw_context"),
                          errorLine("oxa_device_get_raw_context", "getAdvRawData() fails")));
}

// ---- Context -----------------------------------------------------------------------------------

TEST_F(OxaDeviceTest, ContextChecksItsArgumentsInOrder) {
  unsigned char *value = nullptr;
  int len = -1;
  expectRefused(
      oxa_device_get_context(nullptr, OXA_SERVICE_TYPE_1, OXA_CONTEXT_TYPE_1, nullptr, nullptr),
      "oxa_device_get_context", "No device");
  mark();
  expectRefused(
      oxa_device_get_context(device, OXA_SERVICE_TYPE_1, OXA_CONTEXT_TYPE_1, nullptr, nullptr),
      "oxa_device_get_context", "value is nullptr");
  mark();
  expectRefused(
      oxa_device_get_context(device, OXA_SERVICE_TYPE_1, OXA_CONTEXT_TYPE_1, &value, nullptr),
      "oxa_device_get_context", "len is nullptr");
  EXPECT_EQ(value, nullptr);
  EXPECT_EQ(len, -1);
}

struct Pairing {
  int serviceType;
  int contextType;
};

TEST_F(OxaDeviceTest, ContextRefusesPairsThatAreNotAllowed) {
  for (const Pairing pair : {Pairing{3, 3}, Pairing{6, 3}, Pairing{2, 3}, Pairing{1, 6},
                             Pairing{3, 6}, Pairing{1, 0}, Pairing{1, 4}, Pairing{6, 5}}) {
    SCOPED_TRACE(testing::Message() << pair.serviceType << "/" << pair.contextType);
    mark();
    unsigned char *value = nullptr;
    int len = -1;
    EXPECT_EQ(
        oxa_device_get_context(device, static_cast<oxa_service_type_e>(pair.serviceType),
                               static_cast<oxa_context_type_e>(pair.contextType), &value, &len),
        OXA_ERROR_INVALID_OPERATION);
    EXPECT_THAT(logs(), ElementsAre(entryLine("oxa_device_get_context"),
                                    errorLine("oxa_device_get_context",
                                              "Invalid context type for the service")));
    EXPECT_THAT(sent(), IsEmpty());
    EXPECT_EQ(len, -1);
  }
}

TEST_F(OxaDeviceTest, ContextOfAnAllowedPairWithAnUnknownServiceTypeIsInvalid) {
  for (int contextType : {OXA_CONTEXT_TYPE_1, OXA_CONTEXT_TYPE_2}) {
    mark();
    unsigned char *value = nullptr;
    int len = -1;
    EXPECT_EQ(oxa_device_get_context(device, static_cast<oxa_service_type_e>(2),
                                     static_cast<oxa_context_type_e>(contextType), &value, &len),
              OXA_ERROR_INVALID_PARAMETER);
    EXPECT_THAT(logs(), ElementsAre(entryLine("oxa_device_get_context")));
    EXPECT_THAT(sent(), IsEmpty());
    EXPECT_EQ(len, -1);
  }
}

TEST_F(OxaDeviceTest, ContextOfEveryAllowedPairReachesTheAgent) {
  for (const Pairing pair : {Pairing{1, 1}, Pairing{3, 1}, Pairing{6, 1}, Pairing{1, 2},
                             Pairing{3, 2}, Pairing{6, 2}, Pairing{1, 3}, Pairing{6, 6}}) {
    SCOPED_TRACE(testing::Message() << pair.serviceType << "/" << pair.contextType);
    mark();
    queueReply({fake::Count(1), fake::Byte(0x42), fake::Int32(OXA_ERROR_NONE)});
    unsigned char *value = nullptr;
    int len = -1;
    EXPECT_EQ(
        oxa_device_get_context(device, static_cast<oxa_service_type_e>(pair.serviceType),
                               static_cast<oxa_context_type_e>(pair.contextType), &value, &len),
        OXA_ERROR_NONE);
    EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(21), fake::String(kPeer),
                                             fake::Int32(pair.serviceType),
                                             fake::Int32(pair.contextType)})));
    ASSERT_EQ(len, 1);
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(value[0], 0x42);
    std::free(value);
    EXPECT_THAT(apiLogs(), ElementsAre(entryLine("oxa_device_get_context")));
  }
}

TEST_F(OxaDeviceTest, ContextWithNoDataGivesLengthZeroAndNoBuffer) {
  queueReply({fake::Count(0), fake::Int32(OXA_ERROR_NONE)});
  auto *const untouched = reinterpret_cast<unsigned char *>(0x1234);
  unsigned char *value = untouched;
  int len = -1;
  EXPECT_EQ(oxa_device_get_context(device, OXA_SERVICE_TYPE_6, OXA_CONTEXT_TYPE_6, &value, &len),
            OXA_ERROR_NONE);
  EXPECT_EQ(len, 0);
  EXPECT_EQ(value, untouched);
  EXPECT_THAT(apiLogs(), ElementsAre(entryLine("oxa_device_get_context"),
                                     apiLine(DLOG_DEBUG, "oxa_device_get_context", "handOutBytes(",
                                             "No context")));
}

TEST_F(OxaDeviceTest, ContextReturnsTheAgentErrorAndLeavesTheOutputs) {
  queueReply({fake::Count(0), fake::Int32(OXA_ERROR_NO_DATA)});
  unsigned char *value = nullptr;
  int len = -1;
  EXPECT_EQ(oxa_device_get_context(device, OXA_SERVICE_TYPE_1, OXA_CONTEXT_TYPE_3, &value, &len),
            OXA_ERROR_NO_DATA);
  EXPECT_EQ(value, nullptr);
  EXPECT_EQ(len, -1);
  EXPECT_THAT(apiLogs(), ElementsAre(entryLine("oxa_device_get_context"),
                                     errorLine("oxa_device_get_context", "getContext() fails")));
}

TEST_F(OxaDeviceTest, ContextWhileNotConnectedIsAnInternalError) {
  disconnect();
  unsigned char *value = nullptr;
  int len = -1;
  EXPECT_EQ(oxa_device_get_context(device, OXA_SERVICE_TYPE_1, OXA_CONTEXT_TYPE_1, &value, &len),
            OXA_ERROR_INTERNAL_ERROR);
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(logs(),
              ElementsAre(entryLine("oxa_device_get_context"), notInitializedLine("GetContext"),
                          errorLine("oxa_device_get_context", "getContext() fails")));
}

}  // namespace
}  // namespace oxa_test
