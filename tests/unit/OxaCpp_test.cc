// The C++ interface <oxa.hpp> on the fake platform: owners and views, callables and how long
// their captures live, Result and the error category.

#include <memory>
#include <optional>
#include <oxa.hpp>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "OxaApiTest.h"

namespace oxa_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// A token that a callable captures; the test watches when the capture is destroyed.
struct Capture {
  std::shared_ptr<int> token = std::make_shared<int>(0);
  std::weak_ptr<int> watch = token;

  // The callable now holds the only reference.
  void handOver() { token.reset(); }
  bool released() const { return watch.expired(); }
};

class OxaCppTest : public handlertest::HandlerTest {
 protected:
  void SetUp() override {
    HandlerTest::SetUp();
    oxa::Result<oxa::Connection> opened =
        oxa::Connection::open([this](std::error_code state) { states.push_back(state); });
    ASSERT_TRUE(opened);
    connection.emplace(std::move(opened).value());
    ASSERT_TRUE(fake::FireConnected());
    ASSERT_THAT(states, ElementsAre(std::error_code()));
    ASSERT_TRUE(connection->connected());
    mark();
  }

  void TearDown() override {
    connection.reset();
    HandlerTest::TearDown();
  }

  static oxa::Service service(oxa::ServiceType type = OXA_SERVICE_TYPE_1) {
    return oxa::Service::create(type).value();
  }

  // Subscribes through `subscribe` with the agent agreeing; gives the delegate's sequence number.
  int subscribed(const oxa::Result<void> &result) {
    EXPECT_TRUE(result);
    EXPECT_FALSE(sent().empty());
    const int seq = sent().empty() ? -1 : delegateSeq(sent().back());
    mark();
    return seq;
  }

  std::optional<oxa::Connection> connection;
  std::vector<std::error_code> states;
};

// ---- Errors ------------------------------------------------------------------------------------

TEST(OxaCppErrorTest, TheCategoryNamesEveryCodeByItsMeaning) {
  const std::error_category &category = oxa::error_category();
  EXPECT_STREQ(category.name(), "oxa");
  EXPECT_EQ(category.message(OXA_ERROR_NONE), "Success");
  EXPECT_EQ(category.message(OXA_ERROR_IO_ERROR), "The transport to the agent failed");
  EXPECT_EQ(category.message(OXA_ERROR_OUT_OF_MEMORY), "An allocation failed");
  EXPECT_EQ(category.message(OXA_ERROR_PERMISSION_DENIED), "The agent refused this client");
  EXPECT_EQ(category.message(OXA_ERROR_INVALID_PARAMETER), "A missing or invalid argument");
  EXPECT_EQ(category.message(OXA_ERROR_INVALID_OPERATION), "The operation makes no sense here");
  EXPECT_EQ(category.message(OXA_ERROR_NO_DATA), "No data");
  EXPECT_EQ(category.message(OXA_ERROR_NOT_SUPPORTED), "Not supported for this service type");
  EXPECT_EQ(category.message(OXA_ERROR_INTERNAL_ERROR),
            "Not connected, or the agent did not answer");
  EXPECT_EQ(category.message(OXA_ERROR_LOWER_VERSION), "The agent is too old");
  EXPECT_EQ(category.message(OXA_ERROR_NO_DEVICE), "No such device");
  EXPECT_EQ(category.message(-1073741824), "Unknown error -1073741824");
}

TEST(OxaCppErrorTest, CodesPassThroughUnchangedAndMatchTheErrnoConditions) {
  const std::error_code code = oxa::make_error_code(OXA_ERROR_INVALID_PARAMETER);
  EXPECT_EQ(code.value(), -22);
  EXPECT_EQ(code, oxa::errc::invalid_parameter);
  EXPECT_EQ(code, std::errc::invalid_argument);
  EXPECT_EQ(oxa::make_error_code(OXA_ERROR_IO_ERROR), std::errc::io_error);
  EXPECT_EQ(oxa::make_error_code(OXA_ERROR_PERMISSION_DENIED), std::errc::permission_denied);
  EXPECT_NE(oxa::make_error_code(OXA_ERROR_INTERNAL_ERROR), std::errc::io_error);
  EXPECT_EQ(static_cast<int>(oxa::errc::no_device), OXA_ERROR_NO_DEVICE);
  EXPECT_FALSE(oxa::make_error_code(OXA_ERROR_NONE));
}

TEST(OxaCppErrorTest, ValueThrowsTheErrorWithTheFunctionName) {
  const oxa::Result<oxa::Service> refused = oxa::Service::create(static_cast<oxa::ServiceType>(2));
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().value(), OXA_ERROR_INVALID_PARAMETER);
  try {
    static_cast<void>(refused.value());
    ADD_FAILURE() << "value() did not throw";
  } catch (const oxa::error &thrown) {
    EXPECT_EQ(thrown.code(), oxa::errc::invalid_parameter);
    EXPECT_EQ(std::string(thrown.what()), "oxa_service_create: A missing or invalid argument");
  }
  const oxa::Result<void> none;
  EXPECT_NO_THROW(none.value());
}

// ---- Commands, messages, devices ---------------------------------------------------------------

TEST(OxaCppCommandTest, CommandOwnsItsDataAndReadsItBack) {
  const std::uint8_t payload[] = {0xde, 0xad};
  const oxa::Command command = oxa::Command::create(kPeer, OXA_COMMAND_TYPE_2, 42, payload).value();
  EXPECT_EQ(command.id().value(), 42);
  EXPECT_EQ(command.type().value(), OXA_COMMAND_TYPE_2);
  EXPECT_EQ(command.payload().value(), (oxa::Bytes{0xde, 0xad}));
  EXPECT_EQ(command.address().value(), kPeer);
}

TEST(OxaCppCommandTest, CreationErrorsAreTheLibrarysCodes) {
  EXPECT_EQ(oxa::Command::create("too short", OXA_COMMAND_TYPE_1, 1).error(),
            oxa::errc::invalid_parameter);
  EXPECT_EQ(oxa::Command::create(kPeer, static_cast<oxa::CommandType>(4), 1).error(),
            oxa::errc::invalid_parameter);
  EXPECT_EQ(oxa::SimpleMessage::create("AA:BB", oxa::ByteView::of("x")).error(),
            oxa::errc::invalid_parameter);
  EXPECT_TRUE(oxa::SimpleMessage::create(kPeer, {}));
}

TEST(OxaCppCommandTest, OwnersMoveAndReleaseTheirHandle) {
  oxa::Command first = oxa::Command::create(kPeer, OXA_COMMAND_TYPE_1, 7).value();
  const oxa_command_h handle = first.get();
  oxa::Command second = std::move(first);
  EXPECT_EQ(first.get(), nullptr);  // NOLINT(bugprone-use-after-move): moved-from is empty
  EXPECT_EQ(second.get(), handle);
  const oxa_command_h released = second.release();
  EXPECT_EQ(second.get(), nullptr);
  EXPECT_EQ(oxa_command_destroy(released), OXA_ERROR_NONE);
}

TEST(OxaCppByteViewTest, ViewsBytesFromEveryUsualSource) {
  const oxa::Bytes vector{1, 2};
  const std::array<std::uint8_t, 2> array{1, 2};
  EXPECT_EQ(oxa::ByteView(vector), oxa::ByteView(array));
  EXPECT_EQ(oxa::ByteView::of("hi").to_vector(), (oxa::Bytes{'h', 'i'}));
  EXPECT_TRUE(oxa::ByteView().empty());
  EXPECT_NE(oxa::ByteView(vector), oxa::ByteView::of("hi"));
}

TEST_F(OxaCppTest, DeviceDataIsOptionalWhenTheAgentHasNone) {
  queueReply(concat(deviceRecord(kPeer, 3, "mine"), {fake::Int32(OXA_ERROR_NONE)}));
  const oxa::Service owner = service();
  const oxa::Device device = owner.my_device(kPeer).value();
  EXPECT_EQ(device.name().value(), "mine");
  EXPECT_EQ(device.type().value(), OXA_DEVICE_TYPE_3);

  queueReply({fake::Count(0), fake::Int32(OXA_ERROR_NONE)});
  EXPECT_EQ(device.raw_context().value(), std::nullopt);
  queueReply({fake::Count(2), fake::Byte(0x01), fake::Byte(0x7f), fake::Int32(OXA_ERROR_NONE)});
  EXPECT_EQ(device.context(OXA_SERVICE_TYPE_1, OXA_CONTEXT_TYPE_2).value(),
            (oxa::Bytes{0x01, 0x7f}));
  EXPECT_EQ(device.context(OXA_SERVICE_TYPE_6, OXA_CONTEXT_TYPE_3).error(),
            oxa::errc::invalid_operation);
}

TEST_F(OxaCppTest, FoundDevicesAreLentToTheVisitorAndClonedIntoOwners) {
  const oxa::Service owner = service();
  const fake::Values twoDevices =
      concat(concat(concat({fake::Count(2)}, deviceRecord("00:00:00:00:00:01", 1, "one")),
                    deviceRecord("00:00:00:00:00:02", 7, "two")),
             {fake::Int32(OXA_ERROR_NONE)});
  queueReply(twoDevices);
  std::vector<std::string> names;
  ASSERT_TRUE(owner.for_each_found_device(
      [&](const oxa::DeviceView &device) { names.push_back(device.name().value()); }));
  EXPECT_THAT(names, ElementsAre("one", "two"));

  queueReply(twoDevices);
  int visits = 0;
  ASSERT_TRUE(owner.for_each_found_device([&](const oxa::DeviceView &) { return ++visits < 1; }));
  EXPECT_EQ(visits, 1);

  queueReply(twoDevices);
  const std::vector<oxa::Device> devices = owner.found_devices().value();
  ASSERT_EQ(devices.size(), 2U);
  EXPECT_EQ(devices[1].address().value(), "00:00:00:00:00:02");
  EXPECT_EQ(devices[1].type().value(), OXA_DEVICE_TYPE_UNKNOWN);
}

// ---- Subscriptions and their captures ----------------------------------------------------------

TEST_F(OxaCppTest, DeviceFoundLendsAViewAndUnsetReleasesTheCapture) {
  oxa::Service owner = service(OXA_SERVICE_TYPE_3);
  Capture capture;
  std::vector<std::string> found;
  std::optional<oxa::Device> kept;
  queueResult(OXA_ERROR_NONE);
  const int seq = subscribed(
      owner.on_device_found([&found, &kept, token = capture.token](const oxa::DeviceView &device) {
        found.push_back(device.name().value() + "@" + device.address().value());
        kept.emplace(device.clone().value());
      }));
  capture.handOver();
  ASSERT_TRUE(fake::FireReceived(eventFor(5, seq, deviceRecord(kPeer, 2, "tv"))));
  EXPECT_THAT(found, ElementsAre(std::string("tv@") + kPeer));
  ASSERT_TRUE(kept.has_value());
  EXPECT_EQ(kept->name().value(), "tv");
  EXPECT_FALSE(capture.released());

  queueResult(OXA_ERROR_NONE);
  ASSERT_TRUE(owner.unset_device_found());
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(11), fake::Int32(3)})));
  EXPECT_TRUE(capture.released());
  // An event the agent sends anyway reaches no one.
  ASSERT_TRUE(fake::FireReceived(eventFor(5, seq, deviceRecord(kPeer, 2, "tv"))));
  EXPECT_EQ(found.size(), 1U);
}

TEST_F(OxaCppTest, MoveOnlyCallablesAreAccepted) {
  const oxa::Service owner = service();
  auto owned = std::make_unique<int>(5);
  int seen = 0;
  queueReply(concat(concat({fake::Count(1)}, deviceRecord(kPeer, 1, "one")),
                    {fake::Int32(OXA_ERROR_NONE)}));
  ASSERT_TRUE(owner.for_each_found_device(
      [&seen, owned = std::move(owned)](const oxa::DeviceView &) { seen = *owned; }));
  EXPECT_EQ(seen, 5);
}

TEST_F(OxaCppTest, CommandAndMessageCallbacksEndTogether) {
  oxa::Service owner = service();
  Capture commandCapture;
  Capture messageCapture;
  std::vector<std::string> seen;
  queueResult(OXA_ERROR_NONE);
  const int commandSeq = subscribed(owner.on_command_received(
      [&seen, token = commandCapture.token](const oxa::CommandView &command) {
        seen.push_back("command " + std::to_string(command.id().value()) + " from " +
                       command.address().value());
      }));
  queueResult(OXA_ERROR_NONE);
  const int messageSeq = subscribed(owner.on_simple_message_received(
      [&seen, token = messageCapture.token](std::string_view from, oxa::ByteView data) {
        seen.push_back("message " + std::string(data.begin(), data.end()) + " from " +
                       std::string(from));
      }));
  commandCapture.handOver();
  messageCapture.handOver();
  ASSERT_TRUE(fake::FireReceived(
      eventFor(4, commandSeq, commandRecord(kPeer, 1, 9, OXA_COMMAND_TYPE_2, {0xab}, 900))));
  ASSERT_TRUE(fake::FireReceived(eventFor(
      4, messageSeq, commandRecord(kPeer, 1, 3, OXA_COMMAND_TYPE_3, {0, 0, 'h', 'i'}, 901))));
  EXPECT_THAT(seen, ElementsAre(std::string("command 9 from ") + kPeer,
                                std::string("message hi from ") + kPeer));

  queueResult(OXA_ERROR_NONE);
  ASSERT_TRUE(owner.unset_simple_message_received());
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(9), fake::Int32(1)})));
  EXPECT_TRUE(commandCapture.released());
  EXPECT_TRUE(messageCapture.released());
}

TEST_F(OxaCppTest, ARefusedSubscriptionReleasesItsCaptureAtOnce) {
  oxa::Service owner = service();
  Capture capture;
  queueResult(OXA_ERROR_PERMISSION_DENIED);
  const oxa::Result<void> result =
      owner.on_device_lost([token = capture.token](const oxa::DeviceView &) {});
  capture.handOver();
  EXPECT_EQ(result.error(), oxa::errc::permission_denied);
  EXPECT_TRUE(capture.released());
}

TEST_F(OxaCppTest, DestroyingTheServiceEndsItsSubscriptionsAndReleasesTheirCaptures) {
  Capture found;
  Capture state;
  {
    oxa::Service owner = service(OXA_SERVICE_TYPE_6);
    queueResult(OXA_ERROR_NONE);
    subscribed(owner.on_device_found([token = found.token](const oxa::DeviceView &) {}));
    queueResult(OXA_ERROR_NONE);
    subscribed(owner.on_state_changed([token = state.token](int) {}));
    found.handOver();
    state.handOver();
    EXPECT_FALSE(found.released());
    queueResult(OXA_ERROR_NONE);
    queueResult(OXA_ERROR_NONE);
  }
  EXPECT_THAT(sent(), ElementsAre(request({fake::Int32(6), fake::Int32(6)}),
                                  request({fake::Int32(11), fake::Int32(6)})));
  EXPECT_TRUE(found.released());
  EXPECT_TRUE(state.released());
}

TEST_F(OxaCppTest, LosingTheConnectionReleasesEveryCaptureAndIsReported) {
  oxa::Service owner = service();
  Capture capture;
  queueResult(OXA_ERROR_NONE);
  subscribed(owner.on_context_changed([token = capture.token](const oxa::DeviceView &) {}));
  capture.handOver();
  ASSERT_TRUE(fake::FireDisconnected());
  EXPECT_TRUE(capture.released());
  EXPECT_THAT(states, ElementsAre(std::error_code(), oxa::errc::internal_error));
  EXPECT_FALSE(connection->connected());
  // Not connected: the service's destruction sends no unsubscription.
}

TEST_F(OxaCppTest, ClosingTheConnectionReleasesEveryCaptureItsOwnIncluded) {
  oxa::Service owner = service();
  Capture subscription;
  queueResult(OXA_ERROR_NONE);
  subscribed(owner.on_device_found([token = subscription.token](const oxa::DeviceView &) {}));
  subscription.handOver();
  EXPECT_EQ(oxa::Connection::open([](std::error_code) {}).error(), oxa::errc::invalid_operation);

  queueResult(OXA_ERROR_NONE);
  ASSERT_TRUE(connection->close());
  EXPECT_TRUE(subscription.released());
  EXPECT_TRUE(connection->close());

  // The connection's own callable is released too: a new connection can be opened.
  Capture own;
  oxa::Result<oxa::Connection> reopened =
      oxa::Connection::open([token = own.token](std::error_code) {});
  own.handOver();
  ASSERT_TRUE(reopened);
  EXPECT_FALSE(own.released());
  reopened.value().close().value();
  EXPECT_TRUE(own.released());
}

TEST_F(OxaCppTest, RegistrationAndStateReachTheirCallables) {
  oxa::Service owner = service(OXA_SERVICE_TYPE_3);
  std::vector<std::string> seen;
  const int registeredSeq = subscribed(owner.register_service(
      [&seen](std::error_code result) { seen.push_back("registered " + result.message()); }));
  queueResult(OXA_ERROR_NONE);
  const int stateSeq = subscribed(owner.on_state_changed(
      [&seen](int state) { seen.push_back("state " + std::to_string(state)); }));
  ASSERT_TRUE(fake::FireReceived(eventFor(1, registeredSeq, {fake::Int32(OXA_ERROR_NONE)})));
  ASSERT_TRUE(fake::FireReceived(eventFor(2, stateSeq, {fake::Bool(true)})));
  EXPECT_THAT(seen, ElementsAre("registered Success", "state 1"));
  // The unregistrations that destroying the registered service sends.
  queueResult(OXA_ERROR_NONE);
  queueResult(OXA_ERROR_NONE);
}

// ---- Sends -------------------------------------------------------------------------------------

TEST_F(OxaCppTest, ASentCommandIsKeptUntilItsOutcomeThenReleased) {
  oxa::Service owner = service(OXA_SERVICE_TYPE_3);
  oxa::Command command = oxa::Command::create(kPeer, OXA_COMMAND_TYPE_2, 42, oxa::Bytes{1}).value();
  const oxa_command_h handle = command.get();
  Capture capture;
  std::vector<std::pair<oxa_command_h, std::error_code>> outcomes;
  queueResult(OXA_ERROR_NONE);
  ASSERT_TRUE(owner.send(std::move(command), [&outcomes, token = capture.token](
                                                 const oxa::Command &sent, std::error_code result) {
    outcomes.emplace_back(sent.get(), result);
  }));
  capture.handOver();
  ASSERT_EQ(sent().size(), 1U);
  const int commandSeq = static_cast<int>(sent()[0].values.at(sent()[0].values.size() - 4).integer);
  const int seq = delegateSeq(sent()[0]);
  EXPECT_FALSE(capture.released());

  ASSERT_TRUE(fake::FireReceived(
      eventFor(3, seq,
               concat({fake::Int32(OXA_ERROR_NO_DEVICE)},
                      commandRecord(kPeer, 3, 42, OXA_COMMAND_TYPE_2, {1}, commandSeq)))));
  ASSERT_EQ(outcomes.size(), 1U);
  EXPECT_EQ(outcomes[0].first, handle);
  EXPECT_EQ(outcomes[0].second, oxa::errc::no_device);
  EXPECT_TRUE(capture.released());
}

TEST_F(OxaCppTest, ASendThatNeverReachedTheAgentIsReleasedAtOnce) {
  oxa::Service owner = service();
  ASSERT_TRUE(fake::FireDisconnected());
  Capture capture;
  const oxa::Result<void> result =
      owner.send(oxa::SimpleMessage::create(kPeer, oxa::ByteView::of("x")).value(),
                 [token = capture.token](const oxa::SimpleMessage &, std::error_code) {});
  capture.handOver();
  EXPECT_EQ(result.error(), oxa::errc::internal_error);
  EXPECT_TRUE(capture.released());
  EXPECT_THAT(sent(), IsEmpty());
}

}  // namespace
}  // namespace oxa_test
