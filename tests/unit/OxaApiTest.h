#ifndef OXA_TESTS_UNIT_OXA_API_TEST_H_
#define OXA_TESTS_UNIT_OXA_API_TEST_H_

// Fixture and helpers for the tests of the exported oxa_* functions on the fake platform.
//
// Built on the handler tests' fixture: every test starts connected to a fresh proxy, and what it
// caused is read back with logs(), apiLogs() and sent(). Expected log lines take their line
// numbers from the library's sources, found by the message (or call) that writes them.

#include <dlog.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FakePlatform.h"
#include "HandlerTest.h"
#include "oxa.h"

namespace oxa_test {

using handlertest::apiLog;
using handlertest::delegateSeq;
using handlertest::sourceLine;

constexpr const char *kApiSource = "src/oxa.cc";

// A line that the exported `function` writes itself, found in its body by `needle`.
inline fake::LogLine apiLine(log_priority level, const std::string &function,
                             const std::string &needle, const std::string &message) {
  return apiLog(level, kApiSource, function,
                sourceLine(kApiSource, "int " + function + "(", needle), message);
}

// The debug line "+" with which every exported function starts.
inline fake::LogLine entryLine(const std::string &function) {
  return apiLine(DLOG_DEBUG, function, "OXA_LOGD(\"+\")", "+");
}

// An error line of an exported function whose message is written out in its body.
inline fake::LogLine errorLine(const std::string &function, const std::string &message) {
  return apiLine(DLOG_ERROR, function, "\"" + message + "\"", message);
}

// The line with which the handler refuses a request of `method` while not connected.
inline fake::LogLine notInitializedLine(const std::string &method,
                                        const std::string &checkCall = "request(") {
  return handlertest::notInitializedLog(method, checkCall);
}

// The line with which a service operation refuses a client that the agent denied.
inline fake::LogLine permissionDeniedLine(const std::string &operation) {
  return apiLog(
      DLOG_ERROR, handlertest::kServiceSource, operation,
      sourceLine(handlertest::kServiceSource, "Service::" + operation + "(", "permissionDenied()"),
      "Permission denied");
}

// ---- Wire values -------------------------------------------------------------------------------

// A request parcel on the main port.
inline fake::SentParcel request(const fake::Values &values) {
  return {fake::Port::Main, values, 0};
}

// Queues the agent's reply carrying `fields` (the int32 result last).
inline void queueReply(const fake::Values &fields) {
  fake::QueueReply(handlertest::reply(fields));
}

// Queues the agent's reply that holds only the result.
inline void queueResult(int result) {
  queueReply({fake::Int32(result)});
}

inline fake::Values concat(fake::Values head, const fake::Values &tail) {
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}

// The delegate written last in an event registration: id, sequence number, once flag (false).
inline fake::Values delegate(int id, int seqId) {
  fake::Values values;
  handlertest::appendDelegate(values, id, seqId);
  return values;
}

// The wire form of a device record.
inline fake::Values deviceRecord(const std::string &address, int type, const std::string &name) {
  fake::Values values;
  handlertest::appendDevice(values, address, type, name);
  return values;
}

// The wire form of a command record.
inline fake::Values commandRecord(const std::string &address, int handlerId, int id, int type,
                                  const std::vector<unsigned char> &payload, int seqId) {
  fake::Values values;
  handlertest::appendCommand(values, address, handlerId, id, type, payload, seqId);
  return values;
}

// An event parcel from the agent for the delegate (id, seqId) with the event's fields.
inline fake::Values eventFor(int delegateId, int seqId, const fake::Values &fields) {
  return concat(handlertest::eventHeader(delegateId, seqId), fields);
}

constexpr const char *kPeer = "AA:BB:CC:DD:EE:FF";

// ---- Fixture -----------------------------------------------------------------------------------

// Every test starts connected on a fresh proxy, with logs() and sent() empty.
class ApiTest : public handlertest::HandlerTest {
 protected:
  void SetUp() override {
    HandlerTest::SetUp();
    connect();
  }

  // The lines of the API source logged since the test began (or since mark()).
  std::vector<fake::LogLine> apiLogs() const {
    std::vector<fake::LogLine> lines;
    for (const fake::LogLine &line : logs()) {
      if (line.message.rfind(std::string(kApiSource) + ": ", 0) == 0) {
        lines.push_back(line);
      }
    }
    return lines;
  }

  // Asserts that an exported function refused an argument: -22, its entry line and `message`,
  // and nothing sent.
  void expectRefused(int result, const std::string &function, const std::string &message) const {
    EXPECT_EQ(result, OXA_ERROR_INVALID_PARAMETER);
    EXPECT_THAT(logs(), ::testing::ElementsAre(entryLine(function), errorLine(function, message)));
    EXPECT_THAT(sent(), ::testing::IsEmpty());
  }

  // The connection is lost: requests fail as not initialized.
  void disconnect() {
    ASSERT_TRUE(fake::FireDisconnected());
    mark();
  }

  // The state of a client that the agent denied: a connect failed with the platform's
  // permission error.
  void denyPermission() {
    disconnect();
    fake::SetResult(fake::Call::Connect, -13, fake::Mode::Once);
    ASSERT_EQ(oxa_initialize(nullptr, nullptr), OXA_ERROR_PERMISSION_DENIED);
    mark();
  }
};

// A service of `type`, destroyed with the test.
class ScopedService {
 public:
  explicit ScopedService(oxa_service_type_e type = OXA_SERVICE_TYPE_1) {
    EXPECT_EQ(oxa_service_create(type, &handle), OXA_ERROR_NONE);
  }
  ~ScopedService() { oxa_service_destroy(handle); }
  ScopedService(const ScopedService &) = delete;
  ScopedService &operator=(const ScopedService &) = delete;

  oxa_service_h get() const { return handle; }

 private:
  oxa_service_h handle = nullptr;
};

}  // namespace oxa_test

#endif  // OXA_TESTS_UNIT_OXA_API_TEST_H_
