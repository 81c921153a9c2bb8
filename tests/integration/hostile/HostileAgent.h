// An agent that answers the library's requests as a test script says, on the calling thread's
// default main context: well-formed answers, malformed ones, floods, or none at all.
#ifndef OXA_TESTS_INTEGRATION_HOSTILE_HOSTILE_AGENT_H_
#define OXA_TESTS_INTEGRATION_HOSTILE_HOSTILE_AGENT_H_

#include <rpc-port.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Wire.h"

namespace oxa::test {

// Method ids of the agent protocol that the scripts below react to.
enum MethodId : int {
  kRegisterService = 2,
  kSendCommand = 7,
  kStartDiscovery = 16,
  kGetFoundDeviceList = 18,
  kGetAdvRawData = 20,
};

class HostileAgent {
 public:
  struct Request {
    int method = 0;
    int number = 0;  // 1 for the first request of this method, 2 for the second, ...
  };
  // What the agent sends for one request: parcels on the main port (the reply, or anything else;
  // none at all for a reply that never comes), then parcels on the callback port.
  struct Answer {
    std::vector<Body> replies;
    std::vector<Body> events;
  };
  using Script = std::function<Answer(const HostileAgent &agent, const Request &request)>;

  // Listens on the agent's port; requests the script leaves alone get a plain reply {0, result 0}
  // (an empty device list for GetFoundDeviceList, no reply for RegisterService).
  explicit HostileAgent(Script script);
  HostileAgent(const HostileAgent &) = delete;
  HostileAgent &operator=(const HostileAgent &) = delete;
  ~HostileAgent();

  int listenResult() const { return listenResult_; }
  // The sequence number of the latest delegate registered with `delegateId`, or -1.
  int seqOf(int delegateId) const;
  // The sequence numbers of every delegate registered with `delegateId`, oldest first.
  std::vector<int> seqsOf(int delegateId) const;
  int connections() const { return connections_; }

  static Answer defaultAnswer(const Request &request);

 private:
  static void OnConnected(const char *sender, const char *instance, void *data);
  static int OnReceived(const char *sender, const char *instance, rpc_port_h port, void *data);
  int answer(const char *instance, rpc_port_h port);
  void send(const std::vector<Body> &bodies, rpc_port_h port);

  Script script_;
  rpc_port_stub_h stub_ = nullptr;
  int listenResult_ = -1;
  int connections_ = 0;
  std::map<int, std::vector<int>> delegateSeqs_;
  std::map<int, int> requestsSeen_;
};

}  // namespace oxa::test

#endif  // OXA_TESTS_INTEGRATION_HOSTILE_HOSTILE_AGENT_H_
