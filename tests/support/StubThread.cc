#include "StubThread.h"

#include <utility>

namespace oxa::test {

StubThread::StubThread(const char *portName, SetUp setUp, TearDown tearDown)
    : context_(g_main_context_new()), tearDown_(std::move(tearDown)) {
  std::promise<int> listening;
  auto started = listening.get_future();
  thread_ = std::thread([this, portName, &setUp, &listening] { run(portName, setUp, listening); });
  listenResult_ = started.get();
}

StubThread::~StubThread() {
  stop();
  g_main_context_unref(context_);
}

void StubThread::stop() {
  if (thread_.joinable()) {
    stopping_ = true;
    g_main_context_wakeup(context_);
    thread_.join();
  }
}

void StubThread::run(const char *portName, const SetUp &setUp, std::promise<int> &listening) {
  g_main_context_push_thread_default(context_);
  rpc_port_stub_h stub = nullptr;
  int result = rpc_port_stub_create(&stub, portName);
  if (result == 0) {
    setUp(stub, context_);
    result = rpc_port_stub_listen(stub);
  }
  listening.set_value(result);
  while (!stopping_) {
    g_main_context_iteration(context_, TRUE);
  }
  if (tearDown_) {
    tearDown_();
  }
  if (stub != nullptr) {
    rpc_port_stub_destroy(stub);
  }
  g_main_context_pop_thread_default(context_);
}

}  // namespace oxa::test
