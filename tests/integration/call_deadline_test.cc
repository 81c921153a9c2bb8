// A request whose agent keeps sending parcels that are not the reply: the call still ends within
// its deadline (OXA_CALL_TIMEOUT_MS), as a failed reply read does, the connection is given up and
// its loss reported once, and the library connects again afterwards.

#include <glib.h>
#include <gtest/gtest.h>
#include <rpc-port.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include "MainLoop.h"
#include "RuntimeDir.h"
#include "StubThread.h"
#include "oxa.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr const char *kPortName = "OxaAgentInterface";
constexpr int kStartDiscovery = 16;
constexpr int kNotAReply = 7;
constexpr milliseconds kCallTimeout{1500};
constexpr unsigned kStreamIntervalMs = 200;

// An agent on a thread and main context of its own that answers every request with a reply
// holding 0, except StartDiscovery: that one it never answers, and instead sends a parcel that is
// not a reply on the same port every 200 ms, for as long as the connection lasts.
class StreamingAgent {
 public:
  StreamingAgent()
      : stub(
            kPortName,
            [this](rpc_port_parcel_h request, rpc_port_h port) { return answer(request, port); },
            [this](rpc_port_stub_h handle, GMainContext *loop) {
              context = loop;
              rpc_port_stub_add_disconnected_event_cb(handle, OnDisconnected, this);
            },
            [this] { stopStream(); }) {}

  int streamed() const { return sentParcels.load(); }

  int listenResult() const { return stub.listenResult(); }

 private:
  int answer(rpc_port_parcel_h request, rpc_port_h port) {
    int method = 0;
    rpc_port_parcel_read_int32(request, &method);
    if (method == kStartDiscovery) {
      startStream(port);
      return 0;
    }
    return send(port, 0, 0);
  }

  void startStream(rpc_port_h port) {
    streamPort = port;
    if (streamSource == nullptr) {
      streamSource = g_timeout_source_new(kStreamIntervalMs);
      g_source_set_callback(streamSource, OnStreamTick, this, nullptr);
      g_source_attach(streamSource, context);
    }
  }

  void stopStream() {
    if (streamSource != nullptr) {
      g_source_destroy(streamSource);
      g_source_unref(streamSource);
      streamSource = nullptr;
    }
  }

  // The port goes with its connection: a tick after that would write through a freed port, or
  // into whichever connection's port took its place.
  static void OnDisconnected(const char * /*sender*/, const char * /*instance*/, void *data) {
    static_cast<StreamingAgent *>(data)->stopStream();
  }

  static gboolean OnStreamTick(void *data) {
    auto *self = static_cast<StreamingAgent *>(data);
    if (self->send(self->streamPort, kNotAReply, 0) == 0) {
      ++self->sentParcels;
    }
    return G_SOURCE_CONTINUE;
  }

  static int send(rpc_port_h port, int commandId, int value) {
    rpc_port_parcel_h parcel = nullptr;
    rpc_port_parcel_create(&parcel);
    rpc_port_parcel_write_int32(parcel, commandId);
    rpc_port_parcel_write_int32(parcel, value);
    const int sent = rpc_port_parcel_send(parcel, port);
    rpc_port_parcel_destroy(parcel);
    return sent;
  }

  // Touched only on the agent's thread.
  GMainContext *context = nullptr;
  GSource *streamSource = nullptr;
  rpc_port_h streamPort = nullptr;
  std::atomic<int> sentParcels{0};
  // Last, so that its thread, which calls back into the members above, ends first.
  oxa::test::StubThread stub;
};

class CallDeadlineTest : public ::testing::Test {
 protected:
  CallDeadlineTest() {
    setenv("RPC_PORT_APPID", OXA_AGENT_APPID, 1);
    setenv("OXA_CALL_TIMEOUT_MS", std::to_string(kCallTimeout.count()).c_str(), 1);
    setenv("DLOG_FILE", logPath.c_str(), 1);
    setenv("DLOG_LEVEL", "I", 1);
  }
  ~CallDeadlineTest() override {
    unsetenv("DLOG_FILE");
    unsetenv("OXA_CALL_TIMEOUT_MS");
    unsetenv("RPC_PORT_APPID");
  }

  std::string logText() const { return oxa::test::readFile(logPath); }

  void initialize() {
    const size_t before = results.size();
    ASSERT_EQ(oxa_initialize(Record, &results), OXA_ERROR_NONE);
    ASSERT_TRUE(oxa::test::runUntil(context.get(), [&] { return results.size() > before; }));
    ASSERT_EQ(results.back(), OXA_ERROR_NONE);
  }

  static void Record(oxa_error_e result, void *data) {
    static_cast<std::vector<oxa_error_e> *>(data)->push_back(result);
  }

  oxa::test::ScopedRuntimeDir runtimeDir;
  oxa::test::ScopedMainContext context;
  const std::string logPath = runtimeDir.path() + "/dlog.txt";
  std::vector<oxa_error_e> results;
};

size_t countOf(const std::string &text, const std::string &needle) {
  size_t count = 0;
  for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) {
    ++count;
  }
  return count;
}

TEST_F(CallDeadlineTest, StreamOfOtherParcelsEndsTheCallAtItsDeadline) {
  StreamingAgent agent;
  ASSERT_EQ(agent.listenResult(), 0);
  initialize();
  oxa_service_h service = nullptr;
  ASSERT_EQ(oxa_service_create(OXA_SERVICE_TYPE_1, &service), OXA_ERROR_NONE);

  const auto start = steady_clock::now();
  EXPECT_EQ(oxa_start_discovery(service), OXA_ERROR_INTERNAL_ERROR);
  const auto took = std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
  EXPECT_GE(took, kCallTimeout);
  EXPECT_LT(took, kCallTimeout + milliseconds(1000));
  // The parcels kept coming all along: the reads themselves never timed out.
  EXPECT_GE(agent.streamed(), static_cast<int>(kCallTimeout.count() / kStreamIntervalMs) - 1);

  // The connection is given up and its loss reported once, on the thread of the call.
  EXPECT_EQ(results, (std::vector<oxa_error_e>{OXA_ERROR_NONE, OXA_ERROR_INTERNAL_ERROR}));
  oxa::test::runUntil(
      context.get(), [] { return false; }, milliseconds(600));
  EXPECT_EQ(results.size(), 2U);
  // Nothing uses that connection any more.
  int state = -1;
  EXPECT_EQ(oxa_service_get_state(service, &state), OXA_ERROR_NONE);
  EXPECT_EQ(state, 0);
  EXPECT_EQ(oxa_stop_discovery(service), OXA_ERROR_INTERNAL_ERROR);

  // The call ended as a failed reply read does; then the connection's loss was reported.
  const std::string log = logText();
  const size_t invalid = log.find("AgentProxy.cc: StartDiscovery(");
  const size_t lost = log.find("src/AgentProxyHandler.cc: OnDisconnected(");
  const size_t mapped = log.find("src/AgentProxyHandler.cc: StartDiscovery(");
  ASSERT_NE(invalid, std::string::npos) << log;
  ASSERT_NE(lost, std::string::npos) << log;
  ASSERT_NE(mapped, std::string::npos) << log;
  EXPECT_LT(invalid, lost) << log;
  EXPECT_LT(lost, mapped) << log;
  const std::string invalidLine = log.substr(invalid, log.find('\n', invalid) - invalid);
  EXPECT_NE(invalidLine.find(") > Invalid protocol"), std::string::npos) << log;
  EXPECT_EQ(countOf(log, ") > Invalid protocol\n"), 1U) << log;
  EXPECT_EQ(countOf(log, ") > Connection is disconnected\n"), 1U) << log;
  EXPECT_EQ(countOf(log, ") > InvalidProtocolException\n"), 1U) << log;
  EXPECT_NE(log.find(") > InvalidProtocolException\n", mapped), std::string::npos) << log;
  EXPECT_NE(log.find(") > AgentProxyHandler is not initialized\n",
                     log.find("src/AgentProxyHandler.cc: StopDiscovery(")),
            std::string::npos)
      << log;

  // A new connection works as before.
  initialize();
  EXPECT_EQ(oxa_deinitialize(), OXA_ERROR_NONE);
  oxa_service_destroy(service);
}

}  // namespace
