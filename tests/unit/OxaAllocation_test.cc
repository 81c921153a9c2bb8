// Allocation failures in the exported functions: the creating functions answer
// OXA_ERROR_OUT_OF_MEMORY for a failed object allocation, and the getters for a failed malloc()
// or strdup(), each leaving the caller's variables as the interface promises.
//
// The program replaces the global operator new and is linked with --wrap=malloc and
// --wrap=strdup, so that a test can make the next allocation of the library fail. The operator
// new replacement only fails allocations requested by code of this program (the library objects
// are linked into it), never those of the fake platform, which records every log line.

#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "OxaApiTest.h"

extern "C" void *__real_malloc(std::size_t size);  // NOLINT(bugprone-reserved-identifier)
extern "C" char *__real_strdup(const char *text);  // NOLINT(bugprone-reserved-identifier)

namespace {

bool failNextNew = false;
bool failNextMalloc = false;
bool failNextStrdup = false;

// The load address of the object that holds `code`.
const void *objectBase(const void *code) {
  Dl_info info{};
  return dladdr(code, &info) != 0 ? info.dli_fbase : nullptr;
}

bool calledFromThisProgram(const void *returnAddress) {
  static const void *const programBase =
      objectBase(reinterpret_cast<const void *>(&calledFromThisProgram));
  return objectBase(returnAddress) == programBase;
}

// Takes the armed failure, if any.
bool take(bool &armed) {
  const bool fail = armed;
  armed = false;
  return fail;
}

}  // namespace

void *operator new(std::size_t size) {
  if (failNextNew && calledFromThisProgram(__builtin_return_address(0))) {
    failNextNew = false;
    throw std::bad_alloc();
  }
  void *block = __real_malloc(size == 0 ? 1 : size);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}

// This program's operator new takes its blocks from malloc(), so its delete gives them back with
// free(); the compiler cannot see that pairing through the replaced operators.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void operator delete(void *block) noexcept {
  std::free(block);
}
void operator delete(void *block, std::size_t /*size*/) noexcept {
  std::free(block);
}
#pragma GCC diagnostic pop

extern "C" void *__wrap_malloc(std::size_t size) {  // NOLINT(bugprone-reserved-identifier)
  return take(failNextMalloc) ? nullptr : __real_malloc(size);
}

extern "C" char *__wrap_strdup(const char *text) {  // NOLINT(bugprone-reserved-identifier)
  return take(failNextStrdup) ? nullptr : __real_strdup(text);
}

namespace oxa_test {
namespace {

using ::testing::ElementsAre;

class OxaAllocationTest : public ApiTest {
 protected:
  void TearDown() override {
    EXPECT_FALSE(failNextNew || failNextMalloc || failNextStrdup) << "an armed failure was unused";
    failNextNew = failNextMalloc = failNextStrdup = false;
    oxa_device_destroy(device);
    ApiTest::TearDown();
  }

  // A device with a real address, known to the agent.
  void makeDevice() {
    {
      ScopedService service;
      queueReply(
          {fake::String(kPeer), fake::Int32(1), fake::String("peer"), fake::Int32(OXA_ERROR_NONE)});
      ASSERT_EQ(oxa_get_my_device(service.get(), kPeer, &device), OXA_ERROR_NONE);
    }
    mark();
  }

  oxa_device_h device = nullptr;
};

TEST_F(OxaAllocationTest, ServiceCreateAnswersOutOfMemory) {
  auto *const untouched = reinterpret_cast<oxa_service_h>(0x1234);
  oxa_service_h service = untouched;
  failNextNew = true;
  EXPECT_EQ(oxa_service_create(OXA_SERVICE_TYPE_1, &service), OXA_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(service, untouched);
  EXPECT_THAT(logs(), ElementsAre(entryLine("oxa_service_create")));
}

TEST_F(OxaAllocationTest, DeviceCloneAnswersOutOfMemory) {
  makeDevice();
  auto *const untouched = reinterpret_cast<oxa_device_h>(0x1234);
  oxa_device_h copy = untouched;
  failNextNew = true;
  EXPECT_EQ(oxa_device_clone(device, &copy), OXA_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(copy, untouched);
}

TEST_F(OxaAllocationTest, CommandCreateAnswersOutOfMemory) {
  auto *const untouched = reinterpret_cast<oxa_command_h>(0x1234);
  oxa_command_h command = untouched;
  const unsigned char payload[] = {1, 2};
  failNextNew = true;
  EXPECT_EQ(oxa_command_create(kPeer, OXA_COMMAND_TYPE_1, 1, payload, 2, &command),
            OXA_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(command, untouched);
}

TEST_F(OxaAllocationTest, SimpleMessageCreateAnswersOutOfMemory) {
  auto *const untouched = reinterpret_cast<oxa_simple_message_h>(0x1234);
  oxa_simple_message_h message = untouched;
  failNextNew = true;
  EXPECT_EQ(oxa_simple_message_create(kPeer, nullptr, 0, &message), OXA_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(message, untouched);
}

TEST_F(OxaAllocationTest, DeviceNameAndAddressAnswerOutOfMemoryWhenStrdupFails) {
  makeDevice();
  char *name = nullptr;
  failNextStrdup = true;
  EXPECT_EQ(oxa_device_get_name(device, &name), OXA_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(name, nullptr);
  char *address = nullptr;
  failNextStrdup = true;
  EXPECT_EQ(oxa_device_get_address(device, &address), OXA_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(address, nullptr);
  EXPECT_THAT(
      logs(),
      ElementsAre(
          entryLine("oxa_device_get_name"),
          apiLine(DLOG_ERROR, "oxa_device_get_name", "handOutText(", "strdup() failed"),
          entryLine("oxa_device_get_address"),
          apiLine(DLOG_ERROR, "oxa_device_get_address", "handOutText(", "strdup() failed")));
}

TEST_F(OxaAllocationTest, RawContextAnswersOutOfMemoryAfterStoringTheLength) {
  makeDevice();
  queueReply({fake::Count(1), fake::Byte(7), fake::Int32(OXA_ERROR_NONE)});
  unsigned char *value = nullptr;
  int len = -1;
  failNextMalloc = true;
  EXPECT_EQ(oxa_device_get_raw_context(device, &value, &len), OXA_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(value, nullptr);
  EXPECT_EQ(len, 1);
  EXPECT_THAT(apiLogs(), ElementsAre(entryLine("oxa_device_get_raw_context"),
                                     apiLine(DLOG_ERROR, "oxa_device_get_raw_context",
                                             "handOutBytes(", "malloc() failed")));
}

TEST_F(OxaAllocationTest, ContextAnswersOutOfMemoryAfterStoringTheLength) {
  makeDevice();
  queueReply({fake::Count(1), fake::Byte(7), fake::Int32(OXA_ERROR_NONE)});
  unsigned char *value = nullptr;
  int len = -1;
  failNextMalloc = true;
  EXPECT_EQ(oxa_device_get_context(device, OXA_SERVICE_TYPE_1, OXA_CONTEXT_TYPE_2, &value, &len),
            OXA_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(value, nullptr);
  EXPECT_EQ(len, 1);
  EXPECT_THAT(apiLogs(), ElementsAre(entryLine("oxa_device_get_context"),
                                     apiLine(DLOG_ERROR, "oxa_device_get_context", "handOutBytes(",
                                             "malloc() failed")));
}

TEST_F(OxaAllocationTest, CommandPayloadAndAddressAnswerOutOfMemoryWhenMallocFails) {
  oxa_command_h command = nullptr;
  const unsigned char payload[] = {1, 2};
  ASSERT_EQ(oxa_command_create(kPeer, OXA_COMMAND_TYPE_1, 1, payload, 2, &command), OXA_ERROR_NONE);
  mark();
  auto *const untouched = reinterpret_cast<unsigned char *>(0x1234);
  unsigned char *bytes = untouched;
  int length = -1;
  failNextMalloc = true;
  EXPECT_EQ(oxa_command_get_payload(command, &bytes, &length), OXA_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(bytes, nullptr);
  EXPECT_EQ(length, -1);
  char *address = nullptr;
  failNextMalloc = true;
  EXPECT_EQ(oxa_command_get_address(command, &address), OXA_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(address, nullptr);
  EXPECT_THAT(logs(), ElementsAre(entryLine("oxa_command_get_payload"),
                                  errorLine("oxa_command_get_payload", "malloc() failed"),
                                  entryLine("oxa_command_get_address"),
                                  errorLine("oxa_command_get_address", "malloc() failed")));
  oxa_command_destroy(command);
}

}  // namespace
}  // namespace oxa_test
