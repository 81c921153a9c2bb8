#ifndef OXA_TOOLS_AGENT_SIM_TRACE_H_
#define OXA_TOOLS_AGENT_SIM_TRACE_H_

#include <string>

#include "Protocol.h"

namespace oxa_sim {

// One readable line per parcel: the method or event name and every field in wire order.
std::string formatRequest(const Request &request);
std::string formatReply(const Reply &reply);
std::string formatEvent(const Event &event);

// Prints parcel lines on stdout when enabled; `peer` names the client connection.
class Trace {
 public:
  explicit Trace(bool enabled) : enabled_(enabled) {}

  void received(const std::string &peer, const Request &request) const;
  void replied(const std::string &peer, const Reply &reply) const;
  void sent(const std::string &peer, const Event &event) const;
  void note(const std::string &peer, const std::string &text) const;

 private:
  static void print(const char *direction, const std::string &peer, const std::string &text);

  bool enabled_;
};

}  // namespace oxa_sim

#endif  // OXA_TOOLS_AGENT_SIM_TRACE_H_
