#ifndef OXA_TOOLS_AGENT_SIM_TRACE_JSON_H_
#define OXA_TOOLS_AGENT_SIM_TRACE_JSON_H_

#include <string>

#include "Protocol.h"
#include "Trace.h"

namespace oxa_sim {

// One JSON object per parcel, for tools and tests: "direction" ("received" or "sent"), "kind"
// ("request", "reply", "event" or "connection"), "client" {"address", "appid"}, the "method" or
// "event" name, and "fields": every field after the method or command id, as an object whose keys
// are in wire order (bytes as a hex string). A request also carries its "method_id".
std::string requestJson(const Peer &peer, const Request &request);
std::string replyJson(const Peer &peer, const Reply &reply);
std::string eventJson(const Peer &peer, const Event &event);
// A connection note ("connected", "disconnected", why the simulator closed it), under "note".
std::string noteJson(const Peer &peer, const std::string &text);

}  // namespace oxa_sim

#endif  // OXA_TOOLS_AGENT_SIM_TRACE_JSON_H_
