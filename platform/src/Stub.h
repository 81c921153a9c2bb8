// The serving end of a port: listens on its socket, runs the handshake of each proxy connection
// (see Handshake.h), refuses proxies that lack a required privilege, and reports each joined
// connection by its instance id. All events run on the main context that was thread-default when
// the stub was created.
//
// A connection that does not complete its handshake within the read timeout is closed. A closed
// connection is freed on the next loop iteration; its ports then read as a closed port. When
// accept() runs out of descriptors, the stub stops watching its socket for a short back-off.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "Callback.h"
#include "Handshake.h"
#include "LoopSource.h"
#include "Port.h"
#include "StubClient.h"

namespace platform {

class Stub : public std::enable_shared_from_this<Stub> {
 public:
  explicit Stub(std::string portName);
  Stub(const Stub &) = delete;
  Stub &operator=(const Stub &) = delete;
  ~Stub();

  Callback<rpc_port_stub_connected_event_cb> connected;
  Callback<rpc_port_stub_disconnected_event_cb> disconnected;
  Callback<rpc_port_stub_received_event_cb> received;

  int listen();
  void addPrivilege(std::string privilege) { privileges_.push_back(std::move(privilege)); }
  // The port of `type` of connection `instance`, or nullptr when there is none.
  Port *port(rpc_port_port_type_e type, const std::string &instance) const;
  // Stops listening and closes every connection without calling back.
  void close();

  GMainContext *context() const { return context_; }
  void reportConnected(const StubClient &client) const;
  int reportReceived(const StubClient &client) const;
  void reportDisconnected(const StubClient &client) const;
  // Takes a closed connection out of the stub; it is freed once the current event is over.
  void retire(const StubClient &client);

 private:
  struct PendingSocket {
    Stub *stub;
    std::unique_ptr<Port> port;
    LoopSource watch;
    LoopSource timer;
  };

  void acceptAll();
  void pauseAccepting();
  // True when `instance` names a connection this stub made and has closed since.
  bool wasClosed(const std::string &instance) const;
  void readHello(PendingSocket *pending);
  std::unique_ptr<PendingSocket> takePending(PendingSocket *pending);
  void admit(std::unique_ptr<Port> port, const Hello &hello);
  void join(std::unique_ptr<Port> port, const Hello &hello);
  bool allows(const std::string &privileges) const;

  static gboolean onListenerReadable(int fd, GIOCondition condition, void *self);
  static gboolean onPendingReadable(int fd, GIOCondition condition, void *pending);
  static gboolean onPendingTimeout(void *pending);
  static gboolean onAcceptRetry(void *self);
  static gboolean onReap(void *self);

  GMainContext *context_;
  const std::string portName_;
  std::string path_;
  std::vector<std::string> privileges_;
  UniqueFd listener_;
  LoopSource listenerWatch_;
  LoopSource acceptRetry_;
  std::vector<std::unique_ptr<PendingSocket>> pending_;
  std::unordered_map<std::string, std::unique_ptr<StubClient>> clients_;
  std::vector<std::unique_ptr<StubClient>> retired_;
  LoopSource reaper_;
  // What the ports of a closed connection read as: every send and read fails.
  mutable Port closedPort_{UniqueFd(), 0};
  unsigned nextInstance_ = 0;
};

}  // namespace platform

struct rpc_port_stub_s {
  std::shared_ptr<platform::Stub> stub;
};
