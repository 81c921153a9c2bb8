#ifndef OXA_TESTS_UNIT_PROXY_TEST_SUPPORT_H_
#define OXA_TESTS_UNIT_PROXY_TEST_SUPPORT_H_

// Shared pieces of the agent interface proxy's unit tests: a recording listener, delegates that
// record what reaches them, expected log lines, and a fixture with a proxy on the fake platform.

#include <capi-base-common.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "AgentProxy.h"
#include "FakePlatform.h"
#include "FakePlatformTest.h"

namespace rpc_port {
namespace AgentProxy {

inline bool operator==(const DeviceRecord &left, const DeviceRecord &right) {
  return left.address == right.address && left.type == right.type && left.name == right.name;
}

inline bool operator==(const CommandRecord &left, const CommandRecord &right) {
  return left.address == right.address && left.handlerId == right.handlerId &&
         left.id == right.id && left.type == right.type && left.payload == right.payload &&
         left.seqId == right.seqId;
}

inline std::ostream &operator<<(std::ostream &out, const DeviceRecord &device) {
  return out << "Device{" << device.address << ", " << device.type << ", " << device.name << "}";
}

inline std::ostream &operator<<(std::ostream &out, const CommandRecord &command) {
  out << "Command{" << command.address << ", " << command.handlerId << ", " << command.id << ", "
      << command.type << ", [";
  for (unsigned char byte : command.payload) {
    out << ' ' << static_cast<int>(byte);
  }
  return out << " ], " << command.seqId << "}";
}

}  // namespace AgentProxy
}  // namespace rpc_port

namespace proxytest {

using rpc_port::AgentProxy::CommandRecord;
using rpc_port::AgentProxy::DeviceRecord;
using rpc_port::AgentProxy::proxy::OxaAgentInterface;

constexpr const char *kAgentAppId = "org.test.agent";

// ---- Listener ------------------------------------------------------------------------------

struct Observed;

class RecordingListener : public OxaAgentInterface::IEventListener {
 public:
  explicit RecordingListener(Observed &observed) : observed(observed) {}
  void OnConnected() override;
  void OnDisconnected() override;
  void OnRejected() override;

  int connected = 0;
  int disconnected = 0;
  int rejected = 0;
  int lastResultOnReject = 0;
  int delegatesDestroyedBeforeDisconnected = -1;

 private:
  Observed &observed;
};

// ---- Delegates that record -----------------------------------------------------------------

// One event as it reached a delegate.
struct Event {
  int delegateId = 0;
  int seqId = 0;
  int result = 0;
  bool state = false;
  CommandRecord command;
  DeviceRecord device;
};

struct Observed {
  std::vector<Event> events;
  std::vector<int> destroyedSeqIds;
};

inline void RecordingListener::OnConnected() {
  ++connected;
}
inline void RecordingListener::OnDisconnected() {
  ++disconnected;
  delegatesDestroyedBeforeDisconnected = static_cast<int>(observed.destroyedSeqIds.size());
}
inline void RecordingListener::OnRejected() {
  ++rejected;
  lastResultOnReject = get_last_result();
}

// Adds the recording of destruction and events to one of the proxy's event classes.
template <typename Base>
class Probe : public Base {
 public:
  using EventClass = Base;
  Probe(int delegateId, bool once, Observed &observed)
      : Base(delegateId, once), observed(observed) {}
  ~Probe() override { observed.destroyedSeqIds.push_back(this->GetSeqId()); }
  Probe(const Probe &) = delete;
  Probe &operator=(const Probe &) = delete;

 protected:
  Event &record() {
    Event event;
    event.delegateId = this->GetId();
    event.seqId = this->GetSeqId();
    observed.events.push_back(event);
    return observed.events.back();
  }

 private:
  Observed &observed;
};

class ServiceRegisteredProbe : public Probe<OxaAgentInterface::OnServiceRegisteredEvent> {
 public:
  using Probe::Probe;
  void OnReceived(int result) override { record().result = result; }
};

class ServiceStateChangedProbe : public Probe<OxaAgentInterface::OnServiceStateChangedEvent> {
 public:
  using Probe::Probe;
  void OnReceived(bool state) override { record().state = state; }
};

class CommandSentProbe : public Probe<OxaAgentInterface::OnCommandSentEvent> {
 public:
  using Probe::Probe;
  void OnReceived(int result, const CommandRecord &command) override {
    Event &event = record();
    event.result = result;
    event.command = command;
  }
};

class CommandReceivedProbe : public Probe<OxaAgentInterface::OnCommandReceivedEvent> {
 public:
  using Probe::Probe;
  void OnReceived(const CommandRecord &command) override { record().command = command; }
};

class DeviceFoundProbe : public Probe<OxaAgentInterface::OnDeviceFoundEvent> {
 public:
  using Probe::Probe;
  void OnReceived(const DeviceRecord &device) override { record().device = device; }
};

class DeviceLostProbe : public Probe<OxaAgentInterface::OnDeviceLostEvent> {
 public:
  using Probe::Probe;
  void OnReceived(const DeviceRecord &device) override { record().device = device; }
};

class ContextChangedProbe : public Probe<OxaAgentInterface::OnContextChangedEvent> {
 public:
  using Probe::Probe;
  void OnReceived(const DeviceRecord &device) override { record().device = device; }
};

// ---- Wire helpers --------------------------------------------------------------------------

inline fake::Values Reply(const fake::Values &fields) {
  fake::Values values{fake::Int32(0)};
  values.insert(values.end(), fields.begin(), fields.end());
  return values;
}

// A callback parcel: command id 1, the delegate header, then the event fields.
inline fake::Values Callback(int delegateId, int seqId, bool once, const fake::Values &fields) {
  fake::Values values{fake::Int32(1), fake::Int32(delegateId), fake::Int32(seqId),
                      fake::Bool(once)};
  values.insert(values.end(), fields.begin(), fields.end());
  return values;
}

inline fake::Values DeviceValues(const DeviceRecord &device) {
  return {fake::String(device.address.str()), fake::Int32(device.type),
          fake::String(device.name.str())};
}

inline fake::Values CommandValues(const CommandRecord &command) {
  fake::Values values{fake::String(command.address.str()), fake::Int32(command.handlerId),
                      fake::Int32(command.id), fake::Int32(command.type)};
  fake::AppendBytes(values, command.payload);
  values.push_back(fake::Int32(command.seqId));
  return values;
}

inline fake::Values DelegateValues(const OxaAgentInterface::CallbackBase &delegate) {
  return {fake::Int32(delegate.GetId()), fake::Int32(delegate.GetSeqId()),
          fake::Bool(delegate.IsOnce())};
}

inline fake::Values Concat(fake::Values first, const fake::Values &second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// ---- Expected log lines --------------------------------------------------------------------

// The line of src/AgentProxy.cc that logs `message` (the format's text after "> "), read from
// the source at test time so that no line number is written into a test.
inline int SourceLineOf(const std::string &message) {
  std::ifstream source(OXA_SOURCE_DIR "/src/AgentProxy.cc");
  const std::string needle = "\"" + message + "\"";
  std::string text;
  int found = 0;
  for (int line = 1; std::getline(source, text); ++line) {
    if (text.find(needle) != std::string::npos) {
      EXPECT_EQ(found, 0) << message << " is logged from more than one line";
      found = line;
    }
  }
  EXPECT_NE(found, 0) << message << " is not logged in src/AgentProxy.cc";
  return found;
}

// The line the proxy writes for `format` (e.g. "Not connected", "Failed to send parcel.
// result(%d)") from `function`, with `text` the message as formatted.
inline fake::LogLine ProxyLog(const std::string &function, const std::string &format,
                              const std::string &text) {
  return fake::LogLine{
      DLOG_ERROR, "RPC_PORT_PROXY", "%s: %s(%d) > " + format,
      "AgentProxy.cc: " + function + "(" + std::to_string(SourceLineOf(format)) + ") > " + text};
}

inline fake::LogLine ProxyLog(const std::string &function, const std::string &format) {
  return ProxyLog(function, format, format);
}

// ---- Fixture -------------------------------------------------------------------------------

class ProxyTest : public fake::FakePlatformTest {
 protected:
  void SetUp() override {
    FakePlatformTest::SetUp();
    proxy = std::make_unique<OxaAgentInterface>(&listener, kAgentAppId);
  }

  void TearDown() override {
    proxy.reset();
    FakePlatformTest::TearDown();
  }

  void ConnectProxy() {
    proxy->Connect(false);
    ASSERT_TRUE(fake::FireConnected());
  }

  template <typename ProbeType>
  std::unique_ptr<ProbeType> MakeProbe(int delegateId, bool once = false) {
    return std::make_unique<ProbeType>(delegateId, once, observed);
  }

  // Registers a device-found delegate through the proxy (answering its reply) and returns its
  // sequence number.
  int RegisterDeviceFound(int delegateId = 5, bool once = false) {
    auto probe = MakeProbe<DeviceFoundProbe>(delegateId, once);
    const int seqId = probe->GetSeqId();
    fake::QueueReply(Reply({fake::Int32(0)}));
    proxy->RegisterDeviceFoundEvent(1, std::move(probe));
    return seqId;
  }

  Observed observed;
  RecordingListener listener{observed};
  std::unique_ptr<OxaAgentInterface> proxy;
};

}  // namespace proxytest

#endif  // OXA_TESTS_UNIT_PROXY_TEST_SUPPORT_H_
