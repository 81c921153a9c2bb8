// --trace-json: the trace parsed back and checked against the requests this test made.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "RawAgentClient.h"
#include "SimTest.h"

namespace {

using Json = nlohmann::ordered_json;
using raw_agent::Command;
using raw_agent::Request;

constexpr int kSendCommand = 7;
constexpr int kGetFoundDeviceList = 18;
constexpr int kGetMyDevice = 19;
constexpr int kUpdateContext = 22;
constexpr int kSetAppId = 23;
constexpr char kAppId[] = "org.example.jsontracer";
constexpr char kEcho[] = "A0:00:00:00:00:02";

constexpr char kScenario[] = R"({
  "devices": [
    {"address": "A0:00:00:00:00:01", "type": 1, "name": "TV"},
    {"address": "A0:00:00:00:00:02", "type": 3, "name": "Echo", "echo": true}
  ]
})";

const Json kClient = {{"address", "02:00:00:00:00:01"}, {"appid", kAppId}};

Json request(const char *method, int id, Json fields) {
  return {{"direction", "received"}, {"kind", "request"}, {"client", kClient},
          {"method", method},        {"method_id", id},   {"fields", std::move(fields)}};
}

Json reply(const char *method, Json fields) {
  return {{"direction", "sent"},
          {"kind", "reply"},
          {"client", kClient},
          {"method", method},
          {"fields", std::move(fields)}};
}

Json event(const char *name, Json fields) {
  return {{"direction", "sent"},
          {"kind", "event"},
          {"client", kClient},
          {"event", name},
          {"fields", std::move(fields)}};
}

class SimJsonTraceTest : public oxa::test::SimTest {
 protected:
  std::string tracePath() const { return runtimeDir() + "/trace.jsonl"; }

  // The trace's lines, once it holds at least `count`.
  std::vector<Json> waitForLines(size_t count) {
    std::vector<Json> lines;
    runUntil([&] {
      lines.clear();
      std::ifstream file(tracePath());
      std::string line;
      while (std::getline(file, line)) {
        lines.push_back(Json::parse(line));
      }
      return lines.size() >= count;
    });
    return lines;
  }
};

TEST_F(SimJsonTraceTest, EveryParcelIsOneObjectWithItsFieldsInWireOrder) {
  setenv("RPC_PORT_APPID", kAppId, 1);
  startSim({"--trace-json", tracePath(), "--scenario", writeScenario(kScenario)});
  auto client = connectRaw();
  ASSERT_NE(client, nullptr);

  client->call(Request(kSetAppId).i32(42));
  const Command command{kEcho, 1, 9, 2, {0x00, 0x7f, 0xff}, 5};
  client->call(Request(kSendCommand).i32(1).command(command).delegate(3, 8));
  client->call(Request(kGetMyDevice).i32(1).string("A0:00:00:00:00:01"));
  client->call(Request(kUpdateContext).i32(3).i32(2).bytes({0xca, 0xfe}));
  client->call(Request(kGetFoundDeviceList).i32(1));

  const Json commandJson = {{"address", kEcho}, {"handlerId", 1},      {"id", 9},
                            {"type", 2},        {"payload", "007fff"}, {"seq", 5}};
  const Json delegateJson = {{"id", 3}, {"seq", 8}, {"once", false}};
  const std::vector<Json> expected = {
      {{"kind", "connection"}, {"client", kClient}, {"note", "connected"}},
      request("SetAppId", kSetAppId, {{"appId", 42}}),
      reply("SetAppId", {{"result", 0}}),
      request("SendCommand", kSendCommand,
              {{"handlerId", 1}, {"command", commandJson}, {"delegate", delegateJson}}),
      reply("SendCommand", {{"result", 0}}),
      event("CommandSent", {{"delegate", delegateJson}, {"result", 0}, {"command", commandJson}}),
      request("GetMyDevice", kGetMyDevice, {{"handlerId", 1}, {"address", "A0:00:00:00:00:01"}}),
      reply("GetMyDevice",
            {{"device", {{"address", "A0:00:00:00:00:01"}, {"type", 1}, {"name", "TV"}}},
             {"result", 0}}),
      request("UpdateContext", kUpdateContext,
              {{"handlerId", 3}, {"contextType", 2}, {"data", "cafe"}}),
      reply("UpdateContext", {{"result", 0}}),
      request("GetFoundDeviceList", kGetFoundDeviceList, {{"handlerId", 1}}),
      reply("GetFoundDeviceList", {{"devices", Json::array()}, {"result", 0}}),
  };
  const std::vector<Json> lines = waitForLines(expected.size());
  ASSERT_EQ(lines.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    // Compared as text, so the order of the keys counts too.
    EXPECT_EQ(lines[i].dump(), expected[i].dump()) << "line " << i;
  }
}

TEST_F(SimJsonTraceTest, TextAndJsonTracesRunTogether) {
  setenv("RPC_PORT_APPID", kAppId, 1);
  startSim({"--trace", "--trace-json", tracePath(), "--scenario", writeScenario(kScenario)});
  auto client = connectRaw();
  ASSERT_NE(client, nullptr);
  client->call(Request(kSetAppId).i32(7));
  EXPECT_TRUE(sim().waitForOutput(std::string("trace: <- [02:00:00:00:00:01 ") + kAppId +
                                  "] SetAppId appId=7\n"))
      << sim().output();
  const std::vector<Json> lines = waitForLines(3);
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[1].dump(), request("SetAppId", kSetAppId, {{"appId", 7}}).dump());
}

TEST_F(SimJsonTraceTest, UnwritableTraceFileIsRefused) {
  oxa::test::ChildProgram sim(oxa::test::simCommand(
      runtimeDir(), {"--trace-json", runtimeDir() + "/no/such/dir/trace.jsonl"}));
  const std::optional<int> status = sim.waitExit();
  ASSERT_TRUE(status.has_value());
  EXPECT_EQ(WEXITSTATUS(*status), 1);
  EXPECT_NE(sim.output().find("oxa-agent-sim: cannot write the JSON trace to " + runtimeDir() +
                              "/no/such/dir/trace.jsonl\n"),
            std::string::npos)
      << sim.output();
}

}  // namespace
