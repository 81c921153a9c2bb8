// Drives the simulated agent through the library for measurements of the simulator itself
// (instruction counts under callgrind, memory over many connections). Usage:
//   oxa_sim_load state COUNT             COUNT service-state requests and their replies
//   oxa_sim_load command COUNT BYTES     COUNT commands of BYTES payload to the echo peer, each
//                                        waited for: its reply, its sent event and its echo
//   oxa_sim_load cycle COUNT             COUNT connections: initialize, start discovery,
//                                        deinitialize
// RPC_PORT_RUNTIME_DIR names the simulator's runtime directory. Exits 0 when every step
// succeeded.
#include <glib.h>
#include <oxa.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

constexpr char kEchoPeer[] = "A0:00:00:00:00:03";
constexpr gint64 kStepTimeoutUs = 10 * G_USEC_PER_SEC;

struct Progress {
  bool initialized = false;
  int initResult = 0;
  int sent = 0;
  int echoed = 0;
};

// Iterates the default context until `done` or the step's deadline.
template <typename Done>
bool runUntil(Done done) {
  const gint64 deadline = g_get_monotonic_time() + kStepTimeoutUs;
  while (!done()) {
    if (g_get_monotonic_time() > deadline) {
      return false;
    }
    g_main_context_iteration(nullptr, FALSE);
  }
  return true;
}

bool connect(Progress &progress) {
  progress.initialized = false;
  auto onInitialized = [](oxa_error_e result, void *data) {
    static_cast<Progress *>(data)->initResult = result;
    static_cast<Progress *>(data)->initialized = true;
  };
  return oxa_initialize(onInitialized, &progress) == OXA_ERROR_NONE &&
         runUntil([&] { return progress.initialized; }) && progress.initResult == OXA_ERROR_NONE;
}

bool states(oxa_service_h service, long count) {
  for (long i = 0; i < count; ++i) {
    int state = 0;
    if (oxa_service_get_state(service, &state) != OXA_ERROR_NONE) {
      return false;
    }
  }
  return true;
}

bool commands(oxa_service_h service, Progress &progress, long count, size_t bytes) {
  auto onReceived = [](oxa_command_h, void *data) { ++static_cast<Progress *>(data)->echoed; };
  auto onSent = [](oxa_command_h command, oxa_error_e, void *data) {
    ++static_cast<Progress *>(data)->sent;
    oxa_command_destroy(command);
  };
  if (oxa_set_command_received_cb(service, onReceived, &progress) != OXA_ERROR_NONE) {
    return false;
  }
  const std::vector<unsigned char> payload(bytes, 0x5a);
  for (long i = 0; i < count; ++i) {
    oxa_command_h command = nullptr;
    if (oxa_command_create(kEchoPeer, OXA_COMMAND_TYPE_1, 1, payload.data(),
                           static_cast<int>(payload.size()), &command) != OXA_ERROR_NONE ||
        oxa_send_command(service, command, onSent, &progress) != OXA_ERROR_NONE ||
        !runUntil([&] { return progress.sent > i && progress.echoed > i; })) {
      return false;
    }
  }
  return true;
}

bool cycles(long count) {
  for (long i = 0; i < count; ++i) {
    Progress progress;
    oxa_service_h service = nullptr;
    if (!connect(progress) || oxa_service_create(OXA_SERVICE_TYPE_1, &service) != OXA_ERROR_NONE) {
      return false;
    }
    const int started = oxa_start_discovery(service);
    oxa_service_destroy(service);
    if (started != OXA_ERROR_NONE || oxa_deinitialize() != OXA_ERROR_NONE) {
      return false;
    }
  }
  return true;
}

bool run(const std::string &mode, long count, size_t bytes) {
  if (mode == "cycle") {
    return cycles(count);
  }
  Progress progress;
  oxa_service_h service = nullptr;
  if (!connect(progress) || oxa_service_create(OXA_SERVICE_TYPE_1, &service) != OXA_ERROR_NONE) {
    return false;
  }
  const bool ok = mode == "state" ? states(service, count)
                                  : mode == "command" && commands(service, progress, count, bytes);
  oxa_service_destroy(service);
  oxa_deinitialize();
  return ok;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s state|command|cycle COUNT [PAYLOAD_BYTES]\n", argv[0]);
    return 2;
  }
  const long count = std::strtol(argv[2], nullptr, 10);
  const size_t bytes = argc > 3 ? std::strtoul(argv[3], nullptr, 10) : 16;
  if (!run(argv[1], count, bytes)) {
    std::fprintf(stderr, "oxa_sim_load: %s failed\n", argv[1]);
    return 1;
  }
  return 0;
}
