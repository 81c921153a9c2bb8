#ifndef OXA_TOOLS_AGENT_SIM_CONTROLLER_H_
#define OXA_TOOLS_AGENT_SIM_CONTROLLER_H_

#include <functional>
#include <string>
#include <vector>

#include "Agent.h"

namespace oxa_sim {

// Changes the world while the simulator runs, one JSON action per line: the timeline's actions
// (appear, disappear, context, command, message) on a device of the world, plus "add" (a device
// with the fields of a scenario device) and "remove" (by address).
class Controller {
 public:
  using Deliver = std::function<void(const std::vector<Outgoing> &)>;

  // `deliver` sends the events an action causes to their clients.
  Controller(Agent &agent, Deliver deliver);

  // Applies one line and returns its answer: {"ok": true}, or {"ok": false, "error": "<why>"}
  // with nothing changed.
  std::string handle(const std::string &line);

 private:
  std::vector<Outgoing> apply(const std::string &line);
  void checkSimulated(const std::string &address);

  Agent &agent_;
  Deliver deliver_;
};

}  // namespace oxa_sim

#endif  // OXA_TOOLS_AGENT_SIM_CONTROLLER_H_
