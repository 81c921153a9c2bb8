// The control API of FakePlatform.h: what tests script, fire and inspect.

#include <capi-base-common.h>

#include <iomanip>
#include <ostream>

#include "FakeState.h"

namespace fake {

namespace {

char mainPortToken;
char callbackPortToken;

// Copies a field out of the state under its lock.
template <typename Read>
auto snapshot(Read read) {
  State &current = state();
  std::lock_guard<std::mutex> lock(current.mutex);
  return read(current);
}

// The newest live proxy, copied, so that its callback runs without the fake's lock held.
bool newestProxy(rpc_port_proxy_s &proxy) {
  return snapshot([&proxy](State &current) {
    if (current.proxies.empty()) {
      return false;
    }
    proxy = *current.proxies.back();
    return true;
  });
}

// Starts (values) or ends (null) serving a repeated parcel on one port.
bool setRepeated(State::Incoming &incoming, const Values *values) {
  incoming.repeat = values != nullptr;
  incoming.repeated = values != nullptr ? *values : Values{};
  return incoming.repeat;
}

}  // namespace

// Never destroyed: the library's handler singleton destroys its proxy through the fake at exit,
// and static destruction order across the test and the library is not ours to choose.
State &state() {
  static State &current = *new State;
  return current;
}

rpc_port_h MainPort() {
  return &mainPortToken;
}
rpc_port_h CallbackPort() {
  return &callbackPortToken;
}

std::ostream &operator<<(std::ostream &out, Port port) {
  switch (port) {
    case Port::Main:
      return out << "Main";
    case Port::Callback:
      return out << "Callback";
    case Port::Other:
      break;
  }
  return out << "Other";
}

bool operator==(const SentParcel &left, const SentParcel &right) {
  return left.port == right.port && left.values == right.values;
}

std::ostream &operator<<(std::ostream &out, const SentParcel &parcel) {
  out << parcel.port << " {";
  const char *separator = "";
  for (const Value &value : parcel.values) {
    out << separator << value;
    separator = ", ";
  }
  return out << "} result " << parcel.result;
}

std::vector<SentParcel> SentParcels() {
  return snapshot([](State &current) { return current.sent; });
}

void SetRecordSentParcels(bool record) {
  snapshot([record](State &current) { return current.recordSent = record; });
}

void QueueReply(const Values &values) {
  snapshot([&values](State &current) { return &current.replies.queue.emplace_back(values); });
}

void QueueCallback(const Values &values) {
  snapshot([&values](State &current) { return &current.callbacks.queue.emplace_back(values); });
}

void SetRepeatedReply(const Values &values) {
  snapshot([&values](State &current) { return setRepeated(current.replies, &values); });
}

void ClearRepeatedReply() {
  snapshot([](State &current) { return setRepeated(current.replies, nullptr); });
}

void SetRepeatedCallback(const Values &values) {
  snapshot([&values](State &current) { return setRepeated(current.callbacks, &values); });
}

void ClearRepeatedCallback() {
  snapshot([](State &current) { return setRepeated(current.callbacks, nullptr); });
}

size_t PendingReplies() {
  return snapshot([](State &current) { return current.replies.queue.size(); });
}

size_t PendingCallbacks() {
  return snapshot([](State &current) { return current.callbacks.queue.size(); });
}

void SetResult(Call call, int result, Mode mode) {
  snapshot([=](State &current) {
    ResultScript &script = current.results[call];
    if (mode == Mode::Once) {
      script.once.push_back(result);
    } else {
      script.sticky = result;
    }
    return result;
  });
}

std::vector<std::string> Faults() {
  return snapshot([](State &current) { return current.faults; });
}

size_t LiveParcels() {
  return snapshot([](State &current) { return current.parcels.size(); });
}

size_t ParcelsCreated() {
  return snapshot([](State &current) { return current.parcelsCreated; });
}

bool operator==(const ConnectCall &left, const ConnectCall &right) {
  return left.sync == right.sync && left.appId == right.appId && left.portName == right.portName;
}

std::ostream &operator<<(std::ostream &out, const ConnectCall &call) {
  return out << (call.sync ? "connect_sync(" : "connect(") << std::quoted(call.appId) << ", "
             << std::quoted(call.portName) << ')';
}

int ProxiesCreated() {
  return snapshot([](State &current) { return current.proxiesCreated; });
}

int ProxiesDestroyed() {
  return snapshot([](State &current) { return current.proxiesDestroyed; });
}

std::vector<ConnectCall> ConnectCalls() {
  return snapshot([](State &current) { return current.connectCalls; });
}

std::vector<rpc_port_port_type_e> GetPortCalls() {
  return snapshot([](State &current) { return current.getPortCalls; });
}

bool FireConnected() {
  rpc_port_proxy_s proxy;
  if (!newestProxy(proxy) || proxy.connected == nullptr) {
    return false;
  }
  proxy.connected(proxy.appId.c_str(), proxy.portName.c_str(), MainPort(), proxy.connectedData);
  return true;
}

bool FireDisconnected() {
  rpc_port_proxy_s proxy;
  if (!newestProxy(proxy) || proxy.disconnected == nullptr) {
    return false;
  }
  proxy.disconnected(proxy.appId.c_str(), proxy.portName.c_str(), proxy.disconnectedData);
  return true;
}

bool FireRejected(int lastResult) {
  rpc_port_proxy_s proxy;
  if (!newestProxy(proxy) || proxy.rejected == nullptr) {
    return false;
  }
  set_last_result(lastResult);
  proxy.rejected(proxy.appId.c_str(), proxy.portName.c_str(), proxy.rejectedData);
  return true;
}

bool FireReceived() {
  rpc_port_proxy_s proxy;
  if (!newestProxy(proxy) || proxy.received == nullptr) {
    return false;
  }
  proxy.received(proxy.appId.c_str(), proxy.portName.c_str(), proxy.receivedData);
  return true;
}

bool FireReceived(const Values &values) {
  QueueCallback(values);
  return FireReceived();
}

bool operator==(const LogLine &left, const LogLine &right) {
  return left.level == right.level && left.tag == right.tag && left.format == right.format &&
         left.message == right.message;
}

std::ostream &operator<<(std::ostream &out, const LogLine &line) {
  return out << "level " << static_cast<int>(line.level) << ", tag " << std::quoted(line.tag)
             << ", format " << std::quoted(line.format) << ", message "
             << std::quoted(line.message);
}

std::vector<LogLine> Logs() {
  return snapshot([](State &current) { return current.logs; });
}

void Reset() {
  State &current = state();
  {
    std::lock_guard<std::mutex> lock(current.mutex);
    current.parcels.clear();
    current.parcelsCreated = 0;
    for (auto &proxy : current.proxies) {
      current.retiredProxies.push_back(std::move(proxy));
    }
    current.proxies.clear();
    current.stubs.clear();
    current.proxiesCreated = 0;
    current.proxiesDestroyed = 0;
    current.connectCalls.clear();
    current.getPortCalls.clear();
    current.sent.clear();
    current.recordSent = true;
    current.replies = {};
    current.callbacks = {};
    current.results.clear();
    current.faults.clear();
    current.logs.clear();
  }
  set_last_result(0);
}

}  // namespace fake
