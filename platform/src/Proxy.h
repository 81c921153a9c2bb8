// The client end of a connection to a stub: a main port (requests and their replies) and a
// callback port (events from the stub).
//
// Connecting: connect() makes the main connection at once and returns
// RPC_PORT_ERROR_PERMISSION_DENIED when the socket may not be opened, its directory is not safe
// or the stub runs as a user this process does not accept (see Trust.h); every other outcome is
// reported on the event loop: `connected` once both connections are acknowledged, or `rejected`
// with get_last_result() set to RPC_PORT_ERROR_PERMISSION_DENIED (a privilege the stub requires is
// missing, or the stub does not accept this user), -ECONNREFUSED (nothing listens) or
// RPC_PORT_ERROR_IO_ERROR (the stub broke the handshake or did not answer it within the read
// timeout).
//
// connectSync() runs the same handshake with blocking reads, calls `connected` and returns 0, or
// returns RPC_PORT_ERROR_PERMISSION_DENIED (socket not accessible, privilege missing) or
// RPC_PORT_ERROR_IO_ERROR (anything else, nothing listening included) without any event. The stub
// must be served by another thread or process, as this thread is busy waiting.
//
// Once connected, the event loop watches the callback port for frames (one `received` per frame)
// and both ports for hang-ups. The main port is read only by create_from_port on the caller's
// thread, so replies are never taken by the loop. `disconnected` fires once, on whichever port
// goes first. Ports stay valid until the proxy is destroyed.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "Callback.h"
#include "Handshake.h"
#include "LoopSource.h"
#include "Port.h"

namespace platform {

class Proxy : public std::enable_shared_from_this<Proxy> {
 public:
  Proxy();
  Proxy(const Proxy &) = delete;
  Proxy &operator=(const Proxy &) = delete;
  ~Proxy();

  Callback<rpc_port_proxy_connected_event_cb> connected;
  Callback<rpc_port_proxy_disconnected_event_cb> disconnected;
  Callback<rpc_port_proxy_rejected_event_cb> rejected;
  Callback<rpc_port_proxy_received_event_cb> received;

  int connect(const char *appId, const char *portName);
  int connectSync(const char *appId, const char *portName);
  // The port of `type`, or nullptr before the connection is made.
  Port *port(rpc_port_port_type_e type) const;
  // Ends the connection and every pending event without calling back.
  // Only on the loop's thread, or while no thread runs the loop.
  void close();
  // close() from any thread. While another thread is running the loop, it happens there on the
  // loop's next iteration, and until then no callback starts; one already running may finish.
  void closeFromAnyThread();

 private:
  enum class State { kIdle, kAwaitMainAck, kAwaitCallbackAck, kConnected, kClosed };

  int begin(const char *appId, const char *portName);
  int openPort(std::unique_ptr<Port> *port, const Hello &hello) const;
  int acceptMainAck(Parcel &frame);
  int acceptCallbackAck(Parcel &frame);
  int awaitAck(Port &port, int (Proxy::*accept)(Parcel &));
  void becomeConnected();
  void reject(int error);
  void dispatchCallbackFrames();
  void disconnect();

  static gboolean onMainReadable(int fd, GIOCondition condition, void *data);
  static gboolean onCallbackReadable(int fd, GIOCondition condition, void *data);
  static gboolean onMainHangUp(int fd, GIOCondition condition, void *data);
  static gboolean onDeferredReject(void *data);
  static gboolean onHandshakeTimeout(void *data);
  static gboolean onDrain(void *data);
  static gboolean onClose(void *data);

  GMainContext *context_;
  State state_ = State::kIdle;
  std::string appId_;
  std::string portName_;
  std::string instance_;
  std::unique_ptr<Port> main_;
  std::unique_ptr<Port> callback_;
  LoopSource mainWatch_;
  LoopSource callbackWatch_;
  LoopSource deferred_;
  LoopSource drained_;
  LoopSource handshakeTimer_;
  int pendingError_ = 0;
  // Set by closeFromAnyThread() while another thread runs the loop: no callback may start.
  std::atomic<bool> closing_{false};
};

}  // namespace platform

struct rpc_port_proxy_s {
  std::shared_ptr<platform::Proxy> proxy = std::make_shared<platform::Proxy>();
};
