// An rpc-port stub that listens on a thread and main context of its own, for tests whose agent
// must answer while the library blocks the test's thread in a request.
//
//   oxa::test::StubThread agent("OxaAgentInterface", [&](rpc_port_parcel_h request, rpc_port_h
//   port) {
//     ... read `request`, send a reply on `port` ...
//     return 0;
//   });
//   ASSERT_EQ(agent.listenResult(), 0);
#pragma once

#include <glib.h>
#include <rpc-port.h>

#include <atomic>
#include <functional>
#include <future>
#include <thread>

namespace oxa::test {

class StubThread {
 public:
  // Runs on the stub's thread for each request read from `port`, which it may answer on;
  // returns what the stub's received callback returns. The parcel is destroyed afterwards.
  using OnRequest = std::function<int(rpc_port_parcel_h request, rpc_port_h port)>;
  // Runs on the stub's thread after the stub is created and before it listens.
  using SetUp = std::function<void(rpc_port_stub_h stub, GMainContext *context)>;
  // Runs on the stub's thread after its loop ends and before the stub is destroyed.
  using TearDown = std::function<void()>;

  // Creates the stub on `portName` and returns once it listens (or failed to).
  StubThread(const char *portName, OnRequest onRequest, SetUp setUp = {}, TearDown tearDown = {});
  StubThread(const StubThread &) = delete;
  StubThread &operator=(const StubThread &) = delete;
  ~StubThread();

  // Destroys the stub, which closes every connection to it, and ends its thread.
  void stop();

  // What rpc_port_stub_create, then rpc_port_stub_listen returned.
  int listenResult() const { return listenResult_; }

 private:
  void run(const char *portName, const SetUp &setUp, std::promise<int> &listening);
  static int OnReceived(const char *sender, const char *instance, rpc_port_h port, void *data);

  // Owned by this object rather than by the thread, so that stop() can wake it up without
  // racing with its release.
  GMainContext *const context_;
  OnRequest onRequest_;
  TearDown tearDown_;
  std::atomic<bool> stopping_{false};
  std::thread thread_;
  int listenResult_ = -1;
};

}  // namespace oxa::test
