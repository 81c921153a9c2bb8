// The library connected to a simulated agent in a child process, over the host transport, with
// one registered type-1 service that receives simple messages. Built for the benchmarks that
// measure whole round trips through the public API.
#pragma once

#include <glib.h>
#include <oxa.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "ChildProgram.h"
#include "RuntimeDir.h"

namespace bench {

// The echo peer of the simulator's built-in world: it sends every message straight back.
constexpr char kEchoPeerAddress[] = "A0:00:00:00:00:03";

class AgentSession {
 public:
  // Starts the agent and brings the library up; throws std::runtime_error when a step fails (the
  // agent is then stopped again). The members go down in reverse: service, library, agent, dir.
  AgentSession();

  oxa_service_h service() const { return service_.get(); }
  long long echoesReceived() const { return echoesReceived_; }
  long long failedSends() const { return failedSends_; }

  // Callback for oxa_send_simple_message(): counts outcomes other than success.
  static void onMessageSent(oxa_simple_message_h message, oxa_error_e result, void *self);

  // Dispatches the default main context until `done()` holds (true) or `timeout` passes (false).
  template <typename Condition>
  bool runUntil(Condition done, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
      if (std::chrono::steady_clock::now() >= deadline) {
        return false;
      }
      g_main_context_iteration(nullptr, TRUE);
    }
    return true;
  }

 private:
  struct Library {
    Library() = default;
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;
    ~Library() { oxa_deinitialize(); }
  };
  struct ServiceDeleter {
    void operator()(oxa_service_h service) const { oxa_service_destroy(service); }
  };
  using Service = std::unique_ptr<std::remove_pointer_t<oxa_service_h>, ServiceDeleter>;
  struct TickDeleter {
    void operator()(GSource *tick) const;
  };
  using Tick = std::unique_ptr<GSource, TickDeleter>;

  void initializeLibrary();
  void registerService();
  void waitForTimelineEnd();
  void expect(bool holds, const std::string &step) const;

  static void onInitialized(oxa_error_e result, void *self);
  static void onRegistered(oxa_service_h service, oxa_error_e result, void *self);
  static void onDeviceLost(oxa_device_h device, void *self);
  static void onMessage(const char *address, const unsigned char *data, int length, void *self);

  oxa::test::ScopedRuntimeDir runtimeDir_;
  oxa::test::ChildProgram agent_;
  // Wakes the blocking main-context iterations of runUntil() so that its deadline is checked.
  Tick tick_;
  std::unique_ptr<Library> library_;
  Service service_;
  std::optional<oxa_error_e> initialized_;
  std::optional<oxa_error_e> registered_;
  bool sensorLost_ = false;
  long long echoesReceived_ = 0;
  long long failedSends_ = 0;
};

}  // namespace bench
