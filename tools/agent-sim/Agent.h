#ifndef OXA_TOOLS_AGENT_SIM_AGENT_H_
#define OXA_TOOLS_AGENT_SIM_AGENT_H_

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ClientRegistry.h"
#include "Protocol.h"
#include "Scenario.h"
#include "Trace.h"
#include "World.h"

namespace oxa_sim {

// One event parcel for the client connection `instance`.
struct Outgoing {
  std::string instance;
  Event event;
};

// What handling one request produces: the reply (none for RegisterService) and the events that
// follow it, in order.
struct Outcome {
  std::optional<Reply> reply;
  std::vector<Outgoing> events;
};

struct Policy {
  std::map<Method, int> failures;
  bool refuseStateChanged = false;
};

// The agent's behaviour, free of any transport: requests and world changes in, replies and
// events out.
class Agent {
 public:
  Agent(const Scenario &scenario, Policy policy);

  std::vector<Outgoing> connect(const std::string &sender, const std::string &instance);
  std::vector<Outgoing> disconnect(const std::string &instance);
  Outcome handle(const std::string &instance, const Request &request);
  std::vector<Outgoing> play(const TimelineEntry &entry);
  // A device joins the world; if present, clients whose discovery runs are told it was found.
  std::vector<Outgoing> addDevice(SimDevice device);
  // A device leaves the world; if it was present, clients whose discovery runs are told it is
  // lost.
  std::vector<Outgoing> removeDevice(const std::string &address);
  // Whether `address` is a device of the world other than a connected client.
  bool hasSimulatedDevice(const std::string &address);
  // Whether `address` names any device, simulated or a connected client.
  bool hasDevice(const std::string &address) { return world_.find(address) != nullptr; }

  // Called whenever a client starts discovery (the timeline starts with the first).
  void onDiscoveryStarted(std::function<void()> hook) { discoveryStarted_ = std::move(hook); }
  // The client of a connection, for traces.
  Peer peer(const std::string &instance);

 private:
  Reply dispatch(Client &client, const Request &request);
  Reply registerService(Client &client, const Request &request);
  Reply unregisterService(Client &client, const Request &request);
  Reply registerDelegate(Client &client, EventKind kind, const Request &request);
  Reply unregisterDelegate(Client &client, EventKind kind, const Request &request);
  Reply sendCommand(Client &client, const Request &request);
  Reply startDiscovery(Client &client, const Request &request);
  Reply foundDevices(Client &client, const Request &request);
  Reply myDevice(Client &client, const Request &request);
  Reply advData(const Request &request);
  Reply context(const Request &request);
  Reply updateContext(Client &client, const Request &request);
  Reply unregisterClient(Client &client, const Request &request);

  std::vector<Outgoing> takeOutbox() { return std::exchange(outbox_, {}); }

  // Event fan-out (AgentEvents.cc).
  void notify(const Client &client, EventKind kind, int handlerId, const Event &event);
  // notify() with an event that carries `device`.
  void notifyDevice(const Client &client, EventKind kind, int handlerId,
                    const DeviceRecord &device);
  void replyToEach(const std::string &instance, EventKind kind,
                   const std::vector<Delegate> &delegates, const Event &event);
  void reply(const std::string &instance, EventKind kind, const Delegate &delegate, Event event);
  void announce(const SimDevice &device, EventKind kind);
  void contextChanged(const SimDevice &device, int serviceType);
  void deliverCommand(const Client &sender, const CommandRecord &command);
  void commandFromDevice(const SimDevice &device, CommandRecord command);

  World world_;
  ClientRegistry clients_;
  Policy policy_;
  std::vector<Outgoing> outbox_;
  std::function<void()> discoveryStarted_;
  int commandSeq_ = 0;
};

}  // namespace oxa_sim

#endif  // OXA_TOOLS_AGENT_SIM_AGENT_H_
