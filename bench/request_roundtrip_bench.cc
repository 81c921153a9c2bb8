// Whole round trips through liboxa.so and the host transport to a simulated agent in a child
// process: the request path (write, send, blocking read of the reply) and the event path (a
// simple message to the echo peer until its echo reaches the received callback).

#include <benchmark/benchmark.h>
#include <oxa.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <type_traits>
#include <vector>

#include "AgentSession.h"

namespace {

constexpr std::chrono::seconds kEchoTimeout{5};
// Present in the built-in world once its scripted sensor is gone again.
constexpr int kBuiltinDevices = 3;

// The agent session the benchmarks run against, owned by main() for the whole run.
bench::AgentSession *session = nullptr;

void BM_StartDiscovery(benchmark::State &state) {
  while (state.KeepRunning()) {
    if (oxa_start_discovery(session->service()) != OXA_ERROR_NONE) {
      state.SkipWithError("oxa_start_discovery failed");
      break;
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

bool countDevice(oxa_device_h /*device*/, void *count) {
  ++*static_cast<int *>(count);
  return true;
}

void BM_ForeachFoundDevice(benchmark::State &state) {
  while (state.KeepRunning()) {
    int count = 0;
    if (oxa_foreach_found_device(session->service(), countDevice, &count) != OXA_ERROR_NONE ||
        count != kBuiltinDevices) {
      state.SkipWithError("oxa_foreach_found_device did not list the built-in devices");
      break;
    }
  }
  state.counters["devices"] = kBuiltinDevices;
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

struct MessageDeleter {
  void operator()(oxa_simple_message_h message) const { oxa_simple_message_destroy(message); }
};
using Message = std::unique_ptr<std::remove_pointer_t<oxa_simple_message_h>, MessageDeleter>;

Message createEchoMessage(size_t size) {
  const std::vector<unsigned char> data(size, 'x');
  oxa_simple_message_h message = nullptr;
  oxa_simple_message_create(bench::kEchoPeerAddress, data.data(), static_cast<int>(size), &message);
  return Message(message);
}

// The message handle is reused: its sent callback runs before the echo arrives, since both come
// in order on the same callback port.
void BM_EchoSimpleMessage(benchmark::State &state) {
  const Message message = createEchoMessage(static_cast<size_t>(state.range(0)));
  if (message == nullptr) {
    state.SkipWithError("oxa_simple_message_create failed");
    return;
  }
  const long long failedBefore = session->failedSends();
  while (state.KeepRunning()) {
    const long long echoes = session->echoesReceived();
    if (oxa_send_simple_message(session->service(), message.get(),
                                &bench::AgentSession::onMessageSent, session) != OXA_ERROR_NONE ||
        !session->runUntil([echoes] { return session->echoesReceived() > echoes; }, kEchoTimeout)) {
      state.SkipWithError("the echo did not come back");
      break;
    }
  }
  if (session->failedSends() != failedBefore) {
    state.SkipWithError("a message-sent callback reported a failure");
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

BENCHMARK(BM_StartDiscovery);
BENCHMARK(BM_ForeachFoundDevice);
BENCHMARK(BM_EchoSimpleMessage)->Arg(16)->Arg(4096);

}  // namespace

int main(int argc, char **argv) {
  // Logging below errors would measure the log, not the library; the agent inherits this too.
  setenv("DLOG_LEVEL", "E", 1);
  benchmark::Initialize(&argc, argv);
  try {
    bench::AgentSession agent;
    session = &agent;
    benchmark::RunSpecifiedBenchmarks();
    session = nullptr;
  } catch (const std::exception &error) {
    std::fprintf(stderr, "request_roundtrip_bench: %s\n", error.what());
    benchmark::Shutdown();
    return EXIT_FAILURE;
  }
  benchmark::Shutdown();
  return EXIT_SUCCESS;
}
