#ifndef OXA_TOOLS_AGENT_SIM_SCENARIO_H_
#define OXA_TOOLS_AGENT_SIM_SCENARIO_H_

#include <string>
#include <vector>

#include "World.h"

namespace oxa_sim {

enum class TimelineAction { Appear, Disappear, Context, Command, Message };

// One scripted change of the world, `atMs` after the timeline starts.
struct TimelineEntry {
  int atMs = 0;
  TimelineAction action = TimelineAction::Appear;
  std::string address;
  int serviceType = 0;
  int contextType = 0;
  int commandId = 0;
  int commandType = 0;
  Bytes data;
};

struct Scenario {
  std::vector<SimDevice> devices;
  std::vector<TimelineEntry> timeline;
};

// Both throw std::runtime_error with a readable reason on a bad file or document.
Scenario parseScenario(const std::string &json);
Scenario loadScenario(const std::string &path);

// The scenario used without --scenario, as a JSON document.
const char *builtinScenarioJson();

}  // namespace oxa_sim

#endif  // OXA_TOOLS_AGENT_SIM_SCENARIO_H_
