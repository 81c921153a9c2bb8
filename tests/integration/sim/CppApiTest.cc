// <oxa.hpp> through the real host transport against the simulated agent's built-in world: a
// session as an application writes it, and the captures of its callables released when the
// connection is closed or lost.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <memory>
#include <optional>
#include <oxa.hpp>
#include <string>
#include <system_error>
#include <vector>

#include "SimTest.h"

namespace {

constexpr char kEcho[] = "A0:00:00:00:00:03";

class CppApiTest : public oxa::test::SimTest {
 protected:
  CppApiTest() { setenv("RPC_PORT_APPID", "org.example.cpp", 1); }

  void connect() {
    oxa::Result<oxa::Connection> opened =
        oxa::Connection::open([this](std::error_code state) { states.push_back(state); });
    ASSERT_TRUE(opened) << opened.error().message();
    connection.emplace(std::move(opened).value());
    ASSERT_TRUE(runUntil([&] { return !states.empty(); }));
    ASSERT_EQ(states[0], std::error_code());
  }

  std::vector<std::error_code> states;
  std::optional<oxa::Connection> connection;
};

TEST_F(CppApiTest, DiscoversSendsAndReceivesThroughTheCppInterface) {
  startSim();
  connect();
  oxa::Service service = oxa::Service::create(OXA_SERVICE_TYPE_1).value();
  std::vector<std::string> found;
  std::vector<std::string> received;
  std::vector<std::error_code> outcomes;
  service
      .on_device_found(
          [&](const oxa::DeviceView &device) { found.push_back(device.name().value()); })
      .value();
  service
      .on_command_received([&](const oxa::CommandView &command) {
        const oxa::Bytes payload = command.payload().value();
        received.push_back(command.address().value() + " " + std::to_string(command.id().value()) +
                           " " + std::string(payload.begin(), payload.end()));
      })
      .value();
  std::optional<std::error_code> registered;
  service.register_service([&](std::error_code result) { registered = result; }).value();
  ASSERT_TRUE(runUntil([&] { return registered.has_value(); }));
  EXPECT_EQ(*registered, std::error_code());
  EXPECT_EQ(service.state().value(), 1);

  service.start_discovery().value();
  ASSERT_TRUE(runUntil([&] { return found.size() >= 3; }));
  EXPECT_EQ(found[0], "Living Room TV");
  EXPECT_EQ(found[2], "Echo Peer");
  const std::vector<oxa::Device> known = service.found_devices().value();
  ASSERT_GE(known.size(), 3U);
  EXPECT_EQ(known[2].address().value(), kEcho);
  EXPECT_EQ(known[2].raw_context().value(), oxa::Bytes({'e', 'c', 'h', 'o'}));

  service
      .send(oxa::Command::create(kEcho, OXA_COMMAND_TYPE_2, 41, oxa::ByteView::of("ping")).value(),
            [&](const oxa::Command &sent, std::error_code result) {
              EXPECT_EQ(sent.id().value(), 41);
              outcomes.push_back(result);
            })
      .value();
  ASSERT_TRUE(runUntil([&] { return !received.empty() && !outcomes.empty(); }));
  EXPECT_EQ(outcomes[0], std::error_code());
  EXPECT_EQ(received[0], std::string(kEcho) + " 41 ping");
}

TEST_F(CppApiTest, ClosingTheConnectionReleasesTheCaptures) {
  startSim();
  connect();
  oxa::Service service = oxa::Service::create(OXA_SERVICE_TYPE_3).value();
  auto token = std::make_shared<int>(0);
  const std::weak_ptr<int> watch = token;
  service.on_device_lost([token](const oxa::DeviceView &) {}).value();
  token.reset();
  EXPECT_FALSE(watch.expired());
  connection->close().value();
  EXPECT_TRUE(watch.expired());
}

TEST_F(CppApiTest, LosingTheAgentReleasesTheCapturesAndIsReported) {
  startSim();
  connect();
  oxa::Service service = oxa::Service::create(OXA_SERVICE_TYPE_1).value();
  auto token = std::make_shared<int>(0);
  const std::weak_ptr<int> watch = token;
  service.on_device_found([token](const oxa::DeviceView &) {}).value();
  token.reset();
  sim().kill(SIGKILL);
  ASSERT_TRUE(runUntil([&] { return states.size() == 2; }));
  EXPECT_EQ(states[1], oxa::errc::internal_error);
  EXPECT_TRUE(watch.expired());
  EXPECT_FALSE(connection->connected());
  EXPECT_EQ(service.start_discovery().error(), oxa::errc::internal_error);
}

}  // namespace
