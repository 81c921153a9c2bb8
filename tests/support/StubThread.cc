#include "StubThread.h"

#include <utility>

namespace oxa::test {

StubThread::StubThread(const char *portName, OnRequest onRequest, SetUp setUp, TearDown tearDown)
    : context_(g_main_context_new()),
      onRequest_(std::move(onRequest)),
      tearDown_(std::move(tearDown)) {
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
    rpc_port_stub_add_received_event_cb(stub, OnReceived, this);
    if (setUp) {
      setUp(stub, context_);
    }
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

int StubThread::OnReceived(const char * /*sender*/, const char * /*instance*/, rpc_port_h port,
                           void *data) {
  rpc_port_parcel_h request = nullptr;
  if (rpc_port_parcel_create_from_port(&request, port) != 0) {
    return -1;
  }
  const int result = static_cast<StubThread *>(data)->onRequest_(request, port);
  rpc_port_parcel_destroy(request);
  return result;
}

}  // namespace oxa::test
