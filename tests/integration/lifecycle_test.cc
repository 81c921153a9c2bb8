// The library's lifecycle over the real transport: oxa_initialize connects to a minimal agent
// stub, oxa_deinitialize sends the agent's Unregister request and reads its reply, and a lost
// connection reaches the initialize callback.

#include <glib.h>
#include <gtest/gtest.h>
#include <rpc-port.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <string>
#include <vector>

#include "MainLoop.h"
#include "RuntimeDir.h"
#include "StubThread.h"
#include "oxa.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr const char *kPortName = "OxaAgentInterface";

// The agent's side of the connection, reduced to what the lifecycle needs: it listens on the
// agent's port on a thread and main context of its own (the library blocks its caller while it
// waits for a reply), records the body of every request byte by byte, and answers each with a
// reply holding `result`.
class AgentStub {
 public:
  explicit AgentStub(int result)
      : result(result),
        stub(
            kPortName,
            [this](rpc_port_parcel_h request, rpc_port_h port) { return answer(request, port); },
            [this](rpc_port_stub_h handle, GMainContext * /*context*/) {
              rpc_port_stub_add_connected_event_cb(handle, OnConnected, this);
            }) {}

  // Destroys the stub, which closes every connection to it, and ends its thread.
  void stop() { stub.stop(); }

  std::vector<Bytes> requests() {
    std::lock_guard<std::mutex> lock(mutex);
    return received;
  }

  int connections() const { return connected.load(); }

  int listenResult() const { return stub.listenResult(); }

 private:
  static void OnConnected(const char * /*sender*/, const char * /*instance*/, void *data) {
    ++static_cast<AgentStub *>(data)->connected;
  }

  int answer(rpc_port_parcel_h request, rpc_port_h port) {
    Bytes body;
    char byte = 0;
    while (rpc_port_parcel_read_byte(request, &byte) == 0) {
      body.push_back(static_cast<uint8_t>(byte));
    }
    {
      std::lock_guard<std::mutex> lock(mutex);
      received.push_back(body);
    }
    rpc_port_parcel_h reply = nullptr;
    rpc_port_parcel_create(&reply);
    rpc_port_parcel_write_int32(reply, 0);  // a reply, not an event
    rpc_port_parcel_write_int32(reply, result);
    const int sent = rpc_port_parcel_send(reply, port);
    rpc_port_parcel_destroy(reply);
    return sent;
  }

  const int result;
  std::atomic<int> connected{0};
  std::mutex mutex;
  std::vector<Bytes> received;
  // Last, so that its thread, which calls back into the members above, ends first.
  oxa::test::StubThread stub;
};

// Each test runs in its own runtime dir, as the agent, with the library's log in a file there.
class LifecycleTest : public ::testing::Test {
 protected:
  LifecycleTest() {
    setenv("RPC_PORT_APPID", OXA_AGENT_APPID, 1);
    setenv("DLOG_FILE", logPath.c_str(), 1);
    setenv("DLOG_LEVEL", "I", 1);
  }
  ~LifecycleTest() override {
    unsetenv("DLOG_FILE");
    unsetenv("RPC_PORT_APPID");
  }

  std::string logText() const { return oxa::test::readFile(logPath); }

  static void Record(oxa_error_e result, void *data) {
    static_cast<std::vector<oxa_error_e> *>(data)->push_back(result);
  }

  oxa::test::ScopedRuntimeDir runtimeDir;
  oxa::test::ScopedMainContext context;
  const std::string logPath = runtimeDir.path() + "/dlog.txt";
};

TEST_F(LifecycleTest, InitializeConnectsAndDeinitializeUnregisters) {
  AgentStub agent(OXA_ERROR_NO_DATA);
  ASSERT_EQ(agent.listenResult(), 0);
  std::vector<oxa_error_e> results;

  ASSERT_EQ(oxa_initialize(Record, &results), OXA_ERROR_NONE);
  ASSERT_TRUE(oxa::test::runUntil(context.get(),
                                  [&] { return !results.empty() && agent.connections() == 1; }));
  EXPECT_EQ(results, std::vector<oxa_error_e>{OXA_ERROR_NONE});

  // The agent's answer to Unregister is read and deliberately not passed on.
  EXPECT_EQ(oxa_deinitialize(), OXA_ERROR_NONE);
  EXPECT_EQ(agent.requests(), (std::vector<Bytes>{{24, 0, 0, 0}}));

  // Not connected any more: nothing further goes out.
  EXPECT_EQ(oxa_deinitialize(), OXA_ERROR_NONE);
  EXPECT_EQ(agent.requests().size(), 1U);

  // The connection itself stayed open; losing it still reaches the initialize callback.
  agent.stop();
  ASSERT_TRUE(oxa::test::runUntil(context.get(), [&] { return results.size() == 2; }));
  EXPECT_EQ(results[1], OXA_ERROR_INTERNAL_ERROR);

  const std::string log = logText();
  EXPECT_NE(log.find("OXA_API"), std::string::npos) << log;
  EXPECT_NE(log.find(" > OXA CAPI 3.0.5\n"), std::string::npos) << log;
  EXPECT_NE(log.find("src/AgentProxyHandler.cc: OnConnected("), std::string::npos) << log;
  EXPECT_NE(log.find(") > App is connected to OXA Agent\n"), std::string::npos) << log;
  EXPECT_NE(log.find(") > Already disconnected\n"), std::string::npos) << log;
  EXPECT_NE(log.find(") > Connection is disconnected\n"), std::string::npos) << log;
}

}  // namespace
