#ifndef OXA_TOOLS_AGENT_SIM_WORLD_H_
#define OXA_TOOLS_AGENT_SIM_WORLD_H_

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Protocol.h"

namespace oxa_sim {

// (service type, context type): the key of a device's published context data.
using ContextKey = std::pair<int, int>;

struct SimDevice {
  DeviceRecord record;
  Bytes advData;
  std::map<ContextKey, Bytes> contexts;
  bool present = true;
  // Answers every command and message with the same command, back to its sender.
  bool echo = false;
  // The connection this device stands for; empty for a device of the scenario.
  std::string owner;
};

// Every device the agent knows: the scenario's and one per connected client.
class World {
 public:
  void add(SimDevice device);
  void remove(const std::string &address);
  // The device with `address`, present or not; null when unknown.
  SimDevice *find(const std::string &address);
  // The device with `address` if it is present now; null otherwise.
  SimDevice *findPresent(const std::string &address);
  // Present devices in the order they were added, without the one at `except`.
  std::vector<const SimDevice *> presentDevices(const std::string &except) const;
  // Every device, in the order they were added.
  const std::vector<SimDevice> &devices() const { return devices_; }

 private:
  std::vector<SimDevice> devices_;
};

}  // namespace oxa_sim

#endif  // OXA_TOOLS_AGENT_SIM_WORLD_H_
