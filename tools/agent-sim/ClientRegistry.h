#ifndef OXA_TOOLS_AGENT_SIM_CLIENT_REGISTRY_H_
#define OXA_TOOLS_AGENT_SIM_CLIENT_REGISTRY_H_

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Protocol.h"

namespace oxa_sim {

// The delegates of one client are keyed by event kind and the handlerId they were registered for.
using DelegateKey = std::pair<EventKind, int>;

// What the agent keeps for one connected library instance.
struct Client {
  std::string instance;
  std::string sender;
  std::string address;
  std::set<int> services;
  int appId = 0;
  // handlerId -> whether discovery runs now; an entry exists once discovery was started.
  std::map<int, bool> discovery;
  // Every delegate registered per event kind and handlerId, in registration order; an event goes
  // to all of them, as the library keeps each registration's delegate.
  std::map<DelegateKey, std::vector<Delegate>> delegates;
};

class ClientRegistry {
 public:
  // Adds a client with the next address of the form 02:00:00:00:HH:LL for which `taken` is
  // false: the counter wraps after 65,535 connections, and a long-lived client (or a device
  // added at run time) may still hold an address of the earlier round.
  Client &add(const std::string &sender, const std::string &instance,
              const std::function<bool(const std::string &)> &taken);
  void remove(const std::string &instance);
  Client *find(const std::string &instance);
  Client *findByAddress(const std::string &address);
  // Clients in the order they connected.
  std::vector<Client *> all();

 private:
  std::vector<std::unique_ptr<Client>> clients_;
  unsigned connections_ = 0;
};

}  // namespace oxa_sim

#endif  // OXA_TOOLS_AGENT_SIM_CLIENT_REGISTRY_H_
