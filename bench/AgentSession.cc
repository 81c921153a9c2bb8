#include "AgentSession.h"

#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace bench {

namespace {

constexpr std::chrono::seconds kStepTimeout{10};
constexpr guint kTickMs = 5;
// The built-in world's sensor appears after discovery starts and is gone 400 ms later; until
// then the list of found devices changes under the benchmark.
constexpr char kComingAndGoingSensor[] = "A0:00:00:00:00:04";

gboolean keepTicking(gpointer /*unused*/) {
  return G_SOURCE_CONTINUE;
}

GSource *attachTick() {
  GSource *tick = g_timeout_source_new(kTickMs);
  g_source_set_callback(tick, keepTicking, nullptr, nullptr);
  g_source_attach(tick, nullptr);
  return tick;
}

}  // namespace

void AgentSession::TickDeleter::operator()(GSource *tick) const {
  g_source_destroy(tick);
  g_source_unref(tick);
}

AgentSession::AgentSession()
    : agent_(oxa::test::simCommand(runtimeDir_.path(), {})), tick_(attachTick()) {
  expect(agent_.waitForOutput(oxa::test::kSimReadyLine, kStepTimeout),
         "the agent did not start: " + agent_.output());
  initializeLibrary();
  registerService();
  waitForTimelineEnd();
}

void AgentSession::expect(bool holds, const std::string &step) const {
  if (!holds) {
    throw std::runtime_error(step);
  }
}

void AgentSession::initializeLibrary() {
  expect(oxa_initialize(&AgentSession::onInitialized, this) == OXA_ERROR_NONE,
         "oxa_initialize failed");
  library_ = std::make_unique<Library>();
  expect(runUntil([this] { return initialized_.has_value(); }, kStepTimeout),
         "no initialized callback");
  expect(*initialized_ == OXA_ERROR_NONE, "initialization failed");
}

void AgentSession::registerService() {
  oxa_service_h service = nullptr;
  expect(oxa_service_create(OXA_SERVICE_TYPE_1, &service) == OXA_ERROR_NONE,
         "oxa_service_create failed");
  service_.reset(service);
  expect(oxa_service_register(service, &AgentSession::onRegistered, this) == OXA_ERROR_NONE,
         "oxa_service_register failed");
  expect(runUntil([this] { return registered_.has_value(); }, kStepTimeout),
         "no service-registered callback");
  expect(*registered_ == OXA_ERROR_NONE, "service registration failed");
  expect(
      oxa_set_simple_message_received_cb(service, &AgentSession::onMessage, this) == OXA_ERROR_NONE,
      "oxa_set_simple_message_received_cb failed");
}

void AgentSession::waitForTimelineEnd() {
  expect(oxa_set_device_lost_cb(service(), &AgentSession::onDeviceLost, this) == OXA_ERROR_NONE,
         "oxa_set_device_lost_cb failed");
  expect(oxa_start_discovery(service()) == OXA_ERROR_NONE, "oxa_start_discovery failed");
  expect(runUntil([this] { return sensorLost_; }, kStepTimeout),
         "the scripted sensor was never lost");
  expect(oxa_unset_device_lost_cb(service()) == OXA_ERROR_NONE, "oxa_unset_device_lost_cb failed");
}

void AgentSession::onInitialized(oxa_error_e result, void *self) {
  static_cast<AgentSession *>(self)->initialized_ = result;
}

void AgentSession::onRegistered(oxa_service_h /*service*/, oxa_error_e result, void *self) {
  static_cast<AgentSession *>(self)->registered_ = result;
}

void AgentSession::onDeviceLost(oxa_device_h device, void *self) {
  char *address = nullptr;
  if (oxa_device_get_address(device, &address) == OXA_ERROR_NONE) {
    static_cast<AgentSession *>(self)->sensorLost_ |=
        std::strcmp(address, kComingAndGoingSensor) == 0;
    std::free(address);
  }
}

void AgentSession::onMessage(const char *address, const unsigned char * /*data*/, int /*length*/,
                             void *self) {
  if (std::strcmp(address, kEchoPeerAddress) == 0) {
    ++static_cast<AgentSession *>(self)->echoesReceived_;
  }
}

void AgentSession::onMessageSent(oxa_simple_message_h /*message*/, oxa_error_e result, void *self) {
  if (result != OXA_ERROR_NONE) {
    ++static_cast<AgentSession *>(self)->failedSends_;
  }
}

}  // namespace bench
