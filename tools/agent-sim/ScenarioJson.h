#ifndef OXA_TOOLS_AGENT_SIM_SCENARIO_JSON_H_
#define OXA_TOOLS_AGENT_SIM_SCENARIO_JSON_H_

#include "JsonFields.h"
#include "Scenario.h"

namespace oxa_sim {

// The readers shared by scenario files and control lines; both throw std::runtime_error with a
// readable reason.

// A device: address, type, name, present, echo, adv_data, contexts.
SimDevice deviceFromJson(const Json &object);
// A world change: action, address and the fields its action needs. `at_ms` is left to the caller.
TimelineEntry actionFromJson(const Json &object);

}  // namespace oxa_sim

#endif  // OXA_TOOLS_AGENT_SIM_SCENARIO_JSON_H_
