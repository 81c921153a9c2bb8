#ifndef OXA_TESTS_UNIT_FAKE_FAKE_STATE_H_
#define OXA_TESTS_UNIT_FAKE_FAKE_STATE_H_

// The fake platform's shared state, used by its C entry points and its control API.

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "FakePlatform.h"

struct rpc_port_parcel_s {
  fake::Values values;
  size_t next = 0;
};

struct rpc_port_proxy_s {
  rpc_port_proxy_connected_event_cb connected = nullptr;
  void *connectedData = nullptr;
  rpc_port_proxy_disconnected_event_cb disconnected = nullptr;
  void *disconnectedData = nullptr;
  rpc_port_proxy_rejected_event_cb rejected = nullptr;
  void *rejectedData = nullptr;
  rpc_port_proxy_received_event_cb received = nullptr;
  void *receivedData = nullptr;
  std::string appId;
  std::string portName;
};

struct rpc_port_stub_s {
  std::string portName;
};

namespace fake {

// One-shot results first, in order, then the sticky one.
struct ResultScript {
  std::deque<int> once;
  int sticky = 0;

  int Next() {
    if (once.empty()) {
      return sticky;
    }
    const int result = once.front();
    once.pop_front();
    return result;
  }
};

struct State {
  std::mutex mutex;
  std::unordered_map<rpc_port_parcel_s *, std::unique_ptr<rpc_port_parcel_s>> parcels;
  size_t parcelsCreated = 0;
  std::vector<std::unique_ptr<rpc_port_proxy_s>> proxies;  // live, in creation order
  // Handles live at a Reset: kept allocated (and unknown) so that no later handle gets the same
  // address while the handler singleton may still hold one of them.
  std::vector<std::unique_ptr<rpc_port_proxy_s>> retiredProxies;
  std::vector<std::unique_ptr<rpc_port_stub_s>> stubs;
  int proxiesCreated = 0;
  int proxiesDestroyed = 0;
  std::vector<ConnectCall> connectCalls;
  std::vector<rpc_port_port_type_e> getPortCalls;
  std::vector<SentParcel> sent;
  bool recordSent = true;
  // What create_from_port serves on one port: the queue first, then the repeated parcel if set.
  struct Incoming {
    std::deque<Values> queue;
    bool repeat = false;
    Values repeated;
  };
  Incoming replies;
  Incoming callbacks;
  std::map<Call, ResultScript> results;
  std::vector<std::string> faults;
  std::vector<LogLine> logs;
};

State &state();

// Looks up a live parcel; records a fault and returns null for an unknown handle.
// The caller holds state().mutex.
rpc_port_parcel_s *findParcel(State &current, rpc_port_parcel_h handle, const char *operation);

}  // namespace fake

#endif  // OXA_TESTS_UNIT_FAKE_FAKE_STATE_H_
