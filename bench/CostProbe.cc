#include "CostProbe.h"

#include <cmath>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <optional>
#include <stdexcept>

#include "CallgrindRegion.h"

namespace bench {

namespace {

constexpr auto kStepTimeout = std::chrono::seconds(10);
// Bounds the whole run: a stalled agent ends it instead of hanging the check.
constexpr guint kRunDeadlineSeconds = 60;
// Long enough for an agent under callgrind to write its results.
constexpr auto kAgentExitTimeout = std::chrono::seconds(30);

// Builds the scenario: kProbeDevices present devices, without echo, advertised data or contexts.
std::string scenarioJson() {
  std::string json = R"({"devices": [)";
  for (int index = 0; index < kProbeDevices; ++index) {
    char device[128];
    std::snprintf(device, sizeof device,
                  R"(%s{"address": "B0:00:00:00:00:%02X", "type": 1, "name": "Probe Device %02d"})",
                  index == 0 ? "" : ", ", index, index);
    json += device;
  }
  return json + "]}";
}

}  // namespace

std::string grouped(double value) {
  std::string digits = std::to_string(std::llround(value));
  for (int at = static_cast<int>(digits.size()) - 3; at > 0; at -= 3) {
    digits.insert(static_cast<size_t>(at), ",");
  }
  return digits;
}

CostProbe::CostProbe(int replyDelayMs, const std::vector<std::string> &agentWrapper)
    : scenarioPath_(runtimeDir_.path() + "/scenario.json") {
  std::ofstream(scenarioPath_) << scenarioJson();
  std::vector<std::string> args = {"--scenario", scenarioPath_};
  if (replyDelayMs > 0) {
    args.insert(args.end(), {"--delay-ms", std::to_string(replyDelayMs)});
  }
  std::vector<std::string> command = agentWrapper;
  const std::vector<std::string> agent = oxa::test::simCommand(runtimeDir_.path(), args);
  command.insert(command.end(), agent.begin(), agent.end());
  agent_ = std::make_unique<oxa::test::ChildProgram>(command);
  expect(agent_->waitForOutput(oxa::test::kSimReadyLine, kStepTimeout),
         "the agent did not start: " + agent_->output());
  deadline_ = g_timeout_add_seconds(kRunDeadlineSeconds, &CostProbe::onDeadline, this);
  initialize();
  callbackService_ = createService(OXA_SERVICE_TYPE_1);
  expect(
      oxa_set_device_found_cb(callbackService_.get(), &CostProbe::onFound, this) == OXA_ERROR_NONE,
      "oxa_set_device_found_cb failed");
  registerService(callbackService_.get());
  plainService_ = createService(OXA_SERVICE_TYPE_3);
}

CostProbe::~CostProbe() {
  stopLibrary();
  if (deadline_ != 0) {
    g_source_remove(deadline_);
  }
}

void CostProbe::stopLibrary() {
  plainService_.reset();
  callbackService_.reset();
  if (libraryUp_) {
    oxa_deinitialize();
    libraryUp_ = false;
  }
}

void CostProbe::stopAgent() {
  stopLibrary();
  agent_->kill(SIGTERM);
  const std::optional<int> status = agent_->waitExit(kAgentExitTimeout);
  expect(status.has_value() && *status == 0, "the agent did not exit cleanly");
}

void CostProbe::expect(bool holds, const std::string &step) const {
  if (!holds || timedOut_) {
    throw std::runtime_error(timedOut_ ? step + " (run deadline passed)" : step);
  }
}

void CostProbe::runUntilCount(const long long &counter, long long target, const char *what) {
  while (counter < target && !timedOut_) {
    g_main_context_iteration(nullptr, TRUE);
  }
  expect(counter >= target, what);
}

void CostProbe::initialize() {
  expect(oxa_initialize(&CostProbe::onInitialized, this) == OXA_ERROR_NONE,
         "oxa_initialize failed");
  libraryUp_ = true;
  while (initialized_ > 0 && !timedOut_) {
    g_main_context_iteration(nullptr, TRUE);
  }
  expect(initialized_ == OXA_ERROR_NONE, "initialization failed");
}

CostProbe::Service CostProbe::createService(oxa_service_type_e type) {
  oxa_service_h service = nullptr;
  expect(oxa_service_create(type, &service) == OXA_ERROR_NONE, "oxa_service_create failed");
  return Service(service);
}

void CostProbe::registerService(oxa_service_h service) {
  registered_ = 1;
  expect(oxa_service_register(service, &CostProbe::onRegistered, this) == OXA_ERROR_NONE,
         "oxa_service_register failed");
  while (registered_ > 0 && !timedOut_) {
    g_main_context_iteration(nullptr, TRUE);
  }
  expect(registered_ == OXA_ERROR_NONE, "service registration failed");
}

void CostProbe::requests(int repetitions) {
  const Region region(regionName("request", repetitions));
  for (int index = 0; index < repetitions; ++index) {
    if (oxa_start_discovery(plainService_.get()) != OXA_ERROR_NONE) {
      throw std::runtime_error("oxa_start_discovery failed");
    }
  }
}

void CostProbe::discoveryRounds(int repetitions) {
  const Region region(regionName("discovery", repetitions));
  for (int index = 0; index < repetitions; ++index) {
    const long long target = found_ + kProbeDevices;
    if (oxa_start_discovery(callbackService_.get()) != OXA_ERROR_NONE) {
      throw std::runtime_error("oxa_start_discovery failed");
    }
    runUntilCount(found_, target, "device-found events missing");
  }
}

void CostProbe::commands(int repetitions, int payload) {
  const std::vector<unsigned char> bytes(static_cast<size_t>(payload), 0x5a);
  oxa_command_h command = nullptr;
  expect(oxa_command_create(kCommandTarget, OXA_COMMAND_TYPE_1, 1, bytes.data(), payload,
                            &command) == OXA_ERROR_NONE,
         "oxa_command_create failed");
  const std::unique_ptr<std::remove_pointer_t<oxa_command_h>, int (*)(oxa_command_h)> owned(
      command, oxa_command_destroy);
  const Region region(regionName("command" + std::to_string(payload), repetitions));
  for (int sent = 0; sent < repetitions; sent += kCommandBurst) {
    const long long target = sent_ + kCommandBurst;
    for (int index = 0; index < kCommandBurst; ++index) {
      if (oxa_send_command(callbackService_.get(), command, &CostProbe::onSent, this) !=
          OXA_ERROR_NONE) {
        throw std::runtime_error("oxa_send_command failed");
      }
    }
    runUntilCount(sent_, target, "command-sent events missing");
  }
  expect(failedSends_ == 0, "a command-sent event reported a failure");
}

void CostProbe::onInitialized(oxa_error_e result, void *self) {
  static_cast<CostProbe *>(self)->initialized_ = result;
}

void CostProbe::onRegistered(oxa_service_h /*service*/, oxa_error_e result, void *self) {
  static_cast<CostProbe *>(self)->registered_ = result;
}

void CostProbe::onFound(oxa_device_h /*device*/, void *self) {
  ++static_cast<CostProbe *>(self)->found_;
}

void CostProbe::onSent(oxa_command_h /*command*/, oxa_error_e result, void *self) {
  auto *probe = static_cast<CostProbe *>(self);
  ++probe->sent_;
  if (result != OXA_ERROR_NONE) {
    ++probe->failedSends_;
  }
}

gboolean CostProbe::onDeadline(gpointer self) {
  auto *probe = static_cast<CostProbe *>(self);
  probe->timedOut_ = true;
  probe->deadline_ = 0;
  return G_SOURCE_REMOVE;
}

}  // namespace bench
