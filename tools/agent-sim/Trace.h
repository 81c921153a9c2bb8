#ifndef OXA_TOOLS_AGENT_SIM_TRACE_H_
#define OXA_TOOLS_AGENT_SIM_TRACE_H_

#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "Protocol.h"

namespace oxa_sim {

// One readable line per parcel: the method or event name and every field in wire order.
std::string formatRequest(const Request &request);
std::string formatReply(const Reply &reply);
std::string formatEvent(const Event &event);

// The client at the other end of a connection, as traces name it.
struct Peer {
  std::string address;
  std::string appId;
  // The connection's own name, for a connection the agent does not know (any more).
  std::string instance;
};

// Writes every parcel that passes, as a text line on stdout (--trace) and/or as a JSON line
// (--trace-json). With both off nothing is looked up or formatted.
class Trace {
 public:
  using Describe = std::function<Peer(const std::string &instance)>;

  struct Sinks {
    bool text = false;
    // A file for the JSON lines: "-" for stdout, empty for none.
    std::string jsonPath;
  };

  // Throws std::runtime_error when the JSON file cannot be opened.
  Trace(const Sinks &sinks, Describe describe);

  void received(const std::string &instance, const Request &request) const;
  void replied(const std::string &instance, const Reply &reply) const;
  void sent(const std::string &instance, const Event &event) const;
  void note(const std::string &instance, const std::string &text) const;

 private:
  struct FileCloser {
    void operator()(std::FILE *file) const;
  };

  bool enabled() const { return text_ || json_ != nullptr; }
  void print(const char *direction, const Peer &peer, const std::string &text) const;
  void writeJson(const std::string &line) const;

  bool text_;
  std::unique_ptr<std::FILE, FileCloser> json_;
  Describe describe_;
};

}  // namespace oxa_sim

#endif  // OXA_TOOLS_AGENT_SIM_TRACE_H_
