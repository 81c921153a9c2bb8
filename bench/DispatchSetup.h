#ifndef OXA_BENCH_DISPATCH_SETUP_H_
#define OXA_BENCH_DISPATCH_SETUP_H_

// A connected proxy on the fake platform holding a given number of live delegates, all
// registered through the proxy's own methods, and an event aimed at the last one registered.

#include <memory>

#include "AgentProxy.h"
#include "FakePlatform.h"

namespace bench {

using rpc_port::AgentProxy::proxy::OxaAgentInterface;

class QuietListener : public OxaAgentInterface::IEventListener {
 public:
  void OnConnected() override {}
  void OnDisconnected() override {}
  void OnRejected() override {}
};

// Counts the events that reach it, so a measurement can prove it timed real dispatches.
class CountingDelegate : public OxaAgentInterface::OnServiceStateChangedEvent {
 public:
  explicit CountingDelegate(long long &count)
      : OnServiceStateChangedEvent(2, false), count(count) {}
  void OnReceived(bool /*state*/) override { ++count; }

 private:
  long long &count;
};

class DispatchSetup {
 public:
  explicit DispatchSetup(int delegates) {
    fake::Reset();
    fake::SetRecordSentParcels(false);
    fake::SetRepeatedReply({fake::Int32(0), fake::Int32(0)});
    proxy = std::make_unique<OxaAgentInterface>(&listener, "org.bench.agent");
    proxy->Connect(false);
    fake::FireConnected();
    for (int index = 1; index < delegates; ++index) {
      proxy->RegisterServiceStateChangedEvent(
          1, std::make_unique<OxaAgentInterface::OnServiceStateChangedEvent>(2, false));
    }
    std::unique_ptr<OxaAgentInterface::OnServiceStateChangedEvent> target =
        std::make_unique<CountingDelegate>(received);
    const int seqId = target->GetSeqId();
    proxy->RegisterServiceStateChangedEvent(1, std::move(target));
    fake::SetRepeatedCallback(
        {fake::Int32(1), fake::Int32(2), fake::Int32(seqId), fake::Bool(false), fake::Bool(true)});
  }

  ~DispatchSetup() {
    proxy.reset();
    fake::Reset();
  }

  DispatchSetup(const DispatchSetup &) = delete;
  DispatchSetup &operator=(const DispatchSetup &) = delete;

  // One callback parcel through the platform's received callback into the proxy's dispatch.
  static void DispatchOne() { fake::FireReceived(); }

  long long Received() const { return received; }

 private:
  long long received = 0;
  QuietListener listener;
  std::unique_ptr<OxaAgentInterface> proxy;
};

}  // namespace bench

#endif  // OXA_BENCH_DISPATCH_SETUP_H_
