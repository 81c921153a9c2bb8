// Soak run of the library against the simulated agent: many requests without delegates, many
// events, then commands (which keep their delegates by design), sampling the resident size and
// open descriptors of both processes every second, and printing each phase's slope after
// warm-up. Not part of `make test`; run it by hand:
//   build/bench/soak/oxa_soak [REQUESTS [EVENTS [COMMANDS]]]   (default 1000000 1000000 100000)
#include <glib.h>
#include <oxa.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "ChildProgram.h"
#include "MainLoop.h"
#include "RuntimeDir.h"
#include "Sampler.h"
#include "Slope.h"

namespace {

constexpr int kDevices = 100;
constexpr char kEchoAddress[] = "A0:00:00:00:10:00";
constexpr size_t kCommandWindow = 16;
constexpr auto kWait = std::chrono::seconds(30);

struct Counters {
  long long initialized = -1;
  long long found = 0;
  long long sent = 0;
  long long failed = 0;
};

void onInitialized(oxa_error_e result, void *data) {
  static_cast<Counters *>(data)->initialized = result;
}
void onFound(oxa_device_h /*device*/, void *data) {
  ++static_cast<Counters *>(data)->found;
}
void onSent(oxa_command_h command, oxa_error_e result, void *data) {
  auto &counters = *static_cast<Counters *>(data);
  ++counters.sent;
  counters.failed += result != OXA_ERROR_NONE ? 1 : 0;
  oxa_command_destroy(command);
}

// kDevices present devices (each discovery reports them all) and an echo peer.
std::string scenario() {
  std::string json = R"({"devices": [{"address": ")" + std::string(kEchoAddress) +
                     R"(", "type": 3, "name": "Echo", "echo": true})";
  char address[18];
  for (int device = 0; device < kDevices; ++device) {
    std::snprintf(address, sizeof address, "A0:00:00:00:00:%02X", device);
    json += R"(, {"address": ")" + std::string(address) + R"(", "type": 1, "name": "Dev"})";
  }
  return json + "]}";
}

void fail(const char *step) {
  std::fprintf(stderr, "soak: %s\n", step);
  std::exit(1);
}

void requests(oxa_service_h service, soak::Sampler &sampler, long long count) {
  sampler.phase("requests");
  int state = 0;
  for (long long done = 0; done < count; ++done) {
    if (oxa_service_get_state(service, &state) != OXA_ERROR_NONE) {
      fail("a request failed");
    }
    sampler.done(done + 1);
  }
}

void events(GMainContext *context, oxa_service_h service, Counters &counters,
            soak::Sampler &sampler, long long count) {
  if (oxa_set_device_found_cb(service, onFound, &counters) != OXA_ERROR_NONE) {
    fail("oxa_set_device_found_cb failed");
  }
  sampler.phase("events");
  const long long start = counters.found;
  while (counters.found - start < count) {
    const long long before = counters.found;
    if (oxa_start_discovery(service) != OXA_ERROR_NONE ||
        !oxa::test::runUntil(
            context, [&] { return counters.found - before >= kDevices; }, kWait)) {
      fail("discovery events did not arrive");
    }
    sampler.done(counters.found - start);
  }
}

void commands(GMainContext *context, oxa_service_h service, Counters &counters,
              soak::Sampler &sampler, long long count) {
  sampler.phase("commands");
  const unsigned char payload[] = {1, 2, 3, 4};
  for (long long done = 0; done < count; ++done) {
    oxa_command_h command = nullptr;
    oxa_command_create(kEchoAddress, OXA_COMMAND_TYPE_1, static_cast<int>(done), payload,
                       sizeof payload, &command);
    if (oxa_send_command(service, command, onSent, &counters) != OXA_ERROR_NONE) {
      fail("a command failed");
    }
    if (!oxa::test::runUntil(
            context,
            [&] { return done + 1 - counters.sent <= static_cast<long long>(kCommandWindow); },
            kWait)) {
      fail("sent callbacks stopped");
    }
    sampler.done(done + 1);
  }
  oxa::test::runUntil(
      context, [&] { return counters.sent == count; }, kWait);
}

long long argument(int argc, char **argv, int index, long long fallback) {
  return argc > index ? std::atoll(argv[index]) : fallback;
}

}  // namespace

int main(int argc, char **argv) {
  const long long requestCount = argument(argc, argv, 1, 1000000);
  const long long eventCount = argument(argc, argv, 2, 1000000);
  const long long commandCount = argument(argc, argv, 3, 100000);

  oxa::test::ScopedRuntimeDir runtimeDir;
  oxa::test::ScopedMainContext context;
  const std::string scenarioPath = runtimeDir.path() + "/soak.json";
  std::ofstream(scenarioPath) << scenario();
  oxa::test::ChildProgram agent(
      oxa::test::simCommand(runtimeDir.path(), {"--scenario", scenarioPath}));
  if (!agent.waitForOutput(oxa::test::kSimReadyLine)) {
    fail("the agent did not start");
  }
  setenv("RPC_PORT_APPID", "org.example.soak", 1);
  Counters counters;
  oxa_initialize(onInitialized, &counters);
  if (!oxa::test::runUntil(
          context.get(), [&] { return counters.initialized >= 0; }, kWait) ||
      counters.initialized != OXA_ERROR_NONE) {
    fail("could not connect");
  }
  oxa_service_h service = nullptr;
  oxa_service_create(OXA_SERVICE_TYPE_1, &service);

  soak::Sampler sampler(::getpid(), agent.pid());
  requests(service, sampler, requestCount);
  events(context.get(), service, counters, sampler, eventCount);
  commands(context.get(), service, counters, sampler, commandCount);
  sampler.phase("end");

  soak::printReport(sampler.samples());
  std::printf("commands: %lld sent callbacks, %lld failed\n", counters.sent, counters.failed);
  oxa_service_destroy(service);
  oxa_deinitialize();
  return 0;
}
