#ifndef OXA_TOOLS_AGENT_SIM_JSON_FIELDS_H_
#define OXA_TOOLS_AGENT_SIM_JSON_FIELDS_H_

#include <nlohmann/json.hpp>
#include <string>

#include "Protocol.h"

namespace oxa_sim {

using Json = nlohmann::json;

// Typed reads of a JSON object's fields. Each throws std::runtime_error naming the field when it
// is missing (the require* ones) or of the wrong type, so that a scenario file and a control line
// get the same readable reasons.
std::string requireString(const Json &object, const char *key);
int requireInt(const Json &object, const char *key);
int optionalInt(const Json &object, const char *key, int fallback);
bool optionalBool(const Json &object, const char *key, bool fallback);
std::string optionalString(const Json &object, const char *key, const std::string &fallback);
// The data of an object, written as "text" (its bytes) or "hex" digits; empty when neither is
// there. Longer data than kMaxDataBytes is refused.
Bytes dataOf(const Json &object);

}  // namespace oxa_sim

#endif  // OXA_TOOLS_AGENT_SIM_JSON_FIELDS_H_
