#ifndef OXA_TOOLS_AGENT_SIM_STUB_SERVER_H_
#define OXA_TOOLS_AGENT_SIM_STUB_SERVER_H_

#include <glib.h>
#include <rpc-port.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "Agent.h"
#include "Options.h"
#include "Trace.h"

namespace oxa_sim {

// The agent's end of the port: accepts clients, decodes their requests for the Agent and sends
// its replies and events, applying the delay and drop switches on the way.
class StubServer {
 public:
  StubServer(Agent &agent, const Options &options, const Trace &trace);
  ~StubServer();
  StubServer(const StubServer &) = delete;
  StubServer &operator=(const StubServer &) = delete;

  // Creates the stub on the agent's port and listens; returns the platform's result.
  int listen();
  // Sends events to their client connections, as far as those are still there.
  void deliver(const std::vector<Outgoing> &events);

 private:
  struct Delayed {
    StubServer *server;
    std::string instance;
    Request request;
    guint source;
  };

  static void onConnected(const char *sender, const char *instance, void *data);
  static void onDisconnected(const char *sender, const char *instance, void *data);
  static int onReceived(const char *sender, const char *instance, rpc_port_h port, void *data);
  static gboolean onDelayElapsed(gpointer data);

  int receive(const std::string &instance, rpc_port_h port);
  void answer(const std::string &instance, const Request &request);
  void delay(const std::string &instance, const Request &request);
  rpc_port_h portOf(rpc_port_port_type_e type, const std::string &instance) const;

  Agent &agent_;
  const Options &options_;
  const Trace &trace_;
  rpc_port_stub_h stub_ = nullptr;
  std::map<std::string, int> requestCounts_;
  std::set<guint> delayedSources_;
};

}  // namespace oxa_sim

#endif  // OXA_TOOLS_AGENT_SIM_STUB_SERVER_H_
