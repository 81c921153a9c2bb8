// One proxy connection as a stub sees it: the main port (requests in, replies out) and the
// callback port (events out), known by the instance id the stub gave it. Sends on both ports are
// queued and written from the stub's loop (see PortWriter), so a slow reader never blocks it.
// While more than a few MiB of what the stub sent to a connection is still unwritten, the stub
// reads no more of its requests (a proxy keeps taking events while it waits on a request, so it is
// slowed down instead of running its queue into the bound); other connections go on as before.
// A connection whose callback port has not joined within the read timeout is closed.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "LoopSource.h"
#include "Port.h"
#include "PortWriter.h"

namespace platform {

class Stub;

class StubClient {
 public:
  StubClient(Stub &stub, std::string sender, std::string instance, unsigned serial,
             std::unique_ptr<Port> main);
  StubClient(const StubClient &) = delete;
  StubClient &operator=(const StubClient &) = delete;
  ~StubClient() = default;

  const std::string &sender() const { return sender_; }
  const std::string &instance() const { return instance_; }
  unsigned serial() const { return serial_; }
  bool awaitsCallbackPort() const { return state_ == State::kAwaitCallback; }
  // The port of `type`, or nullptr while the callback port has not joined.
  Port *port(rpc_port_port_type_e type) const;

  // Completes the connection with its callback port.
  void attachCallback(std::unique_ptr<Port> callback);
  // Closes both ports without reporting anything.
  void close();

 private:
  enum class State { kAwaitCallback, kConnected, kClosed };

  void dispatchFrames();
  void dispatchHeldFrames();
  void releaseWriters();
  // Watches the main port for requests, or only for a hang-up while reading is paused.
  void watchMain(bool forRequests);
  // Pauses reading requests while too much is unwritten, and resumes once it has been written.
  void pauseReadingIfBacklogged();
  void resumeReadingIfWritten();
  size_t unwrittenBytes();
  // Closes the connection, reports it gone when it had been reported connected, and hands it
  // back to the stub to be freed.
  void end();

  static gboolean onMainReadable(int fd, GIOCondition condition, void *self);
  static gboolean onCallbackHangUp(int fd, GIOCondition condition, void *self);
  static gboolean onJoinTimeout(void *self);

  Stub &stub_;
  const std::string sender_;
  const unsigned serial_;
  const std::string instance_;
  State state_ = State::kAwaitCallback;
  bool readingPaused_ = false;
  std::unique_ptr<Port> main_;
  std::unique_ptr<Port> callback_;
  std::optional<PortWriter> mainWriter_;
  std::optional<PortWriter> callbackWriter_;
  LoopSource mainWatch_;
  LoopSource callbackWatch_;
  LoopSource joinTimer_;
};

}  // namespace platform
