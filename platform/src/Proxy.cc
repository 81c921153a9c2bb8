#include "Proxy.h"

#include <cerrno>

#include "Runtime.h"
#include "Socket.h"
#include "Trust.h"

namespace platform {

namespace {

constexpr int kNothingListening = -ECONNREFUSED;

// What a failed connect() means to the caller.
int connectOutcome(int error) {
  switch (error) {
    case -EACCES:
    case -EPERM:
      return RPC_PORT_ERROR_PERMISSION_DENIED;
    case -ENOENT:
    case -ENOTDIR:
    case -ECONNREFUSED:
    case -EAGAIN:  // The stub's backlog is full: nobody is taking connections.
      return kNothingListening;
    case -ENAMETOOLONG:
      return RPC_PORT_ERROR_INVALID_PARAMETER;
    default:
      return RPC_PORT_ERROR_IO_ERROR;
  }
}

Proxy *self(void *data) {
  return static_cast<Proxy *>(data);
}

}  // namespace

Proxy::Proxy() : context_(g_main_context_ref_thread_default()) {}

Proxy::~Proxy() {
  close();
  g_main_context_unref(context_);
}

int Proxy::connect(const char *appId, const char *portName) {
  const int error = begin(appId, portName);
  if (error == RPC_PORT_ERROR_INVALID_PARAMETER || error == RPC_PORT_ERROR_PERMISSION_DENIED) {
    return error;
  }
  if (error != 0) {
    pendingError_ = error;
    deferred_.idle(context_, onDeferredReject, this);
    return RPC_PORT_ERROR_NONE;
  }
  mainWatch_.watchFd(context_, main_->fd(),
                     static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR), onMainReadable,
                     this);
  handshakeTimer_.timeout(context_, static_cast<unsigned>(readTimeoutMs()), onHandshakeTimeout,
                          this);
  return RPC_PORT_ERROR_NONE;
}

int Proxy::connectSync(const char *appId, const char *portName) {
  int error = begin(appId, portName);
  if (error == RPC_PORT_ERROR_INVALID_PARAMETER) {
    return error;
  }
  if (error == 0) {
    error = awaitAck(*main_, &Proxy::acceptMainAck);
  }
  if (error == 0) {
    error = awaitAck(*callback_, &Proxy::acceptCallbackAck);
  }
  if (error != 0) {
    // Nothing is pending: the proxy may try again.
    state_ = State::kIdle;
    main_.reset();
    callback_.reset();
    return error == RPC_PORT_ERROR_PERMISSION_DENIED ? error : RPC_PORT_ERROR_IO_ERROR;
  }
  becomeConnected();
  if (state_ == State::kConnected && callback_->bufferedFrame() != FrameState::kIncomplete) {
    // Events that came with the ack are already buffered; the socket will not wake the loop.
    drained_.wake();
  }
  return RPC_PORT_ERROR_NONE;
}

Port *Proxy::port(rpc_port_port_type_e type) const {
  if (state_ != State::kConnected && state_ != State::kClosed) {
    return nullptr;
  }
  return type == RPC_PORT_PORT_MAIN ? main_.get() : callback_.get();
}

void Proxy::closeFromAnyThread() {
  // Holding the context keeps its loop from dispatching while the sources and ports go.
  if (g_main_context_acquire(context_)) {
    close();
    g_main_context_release(context_);
    return;
  }
  closing_.store(true, std::memory_order_release);
  g_main_context_invoke_full(
      context_, G_PRIORITY_DEFAULT, onClose, new std::shared_ptr<Proxy>(shared_from_this()),
      [](void *hold) { delete static_cast<std::shared_ptr<Proxy> *>(hold); });
}

gboolean Proxy::onClose(void *data) {
  (*static_cast<std::shared_ptr<Proxy> *>(data))->close();
  return G_SOURCE_REMOVE;
}

void Proxy::close() {
  state_ = State::kClosed;
  mainWatch_.stop();
  callbackWatch_.stop();
  deferred_.stop();
  drained_.stop();
  handshakeTimer_.stop();
  for (Port *port : {main_.get(), callback_.get()}) {
    if (port != nullptr) {
      port->shutdown();
    }
  }
}

// Validates the target and opens the main connection with its hello.
int Proxy::begin(const char *appId, const char *portName) {
  if (!isValidName(appId) || !isValidName(portName) || state_ != State::kIdle) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  appId_ = appId;
  portName_ = portName;
  const int unsafe = securePortDirectory(appId_, DirectoryUse::kCheck);
  const int error = unsafe != 0
                        ? connectOutcome(unsafe)
                        : openPort(&main_, Hello{HelloKind::kMain, ownAppId(), ownPrivileges()});
  if (error == RPC_PORT_ERROR_PERMISSION_DENIED || error == RPC_PORT_ERROR_INVALID_PARAMETER) {
    // Reported at once; the proxy may be connected again.
    main_.reset();
    return error;
  }
  state_ = State::kAwaitMainAck;
  return error;
}

int Proxy::openPort(std::unique_ptr<Port> *port, const Hello &hello) const {
  UniqueFd fd;
  const int error = connectUnix(socketPath(appId_, portName_), &fd);
  if (error != 0) {
    return connectOutcome(error);
  }
  if (!isAllowedPeer(fd.get())) {
    return RPC_PORT_ERROR_PERMISSION_DENIED;
  }
  *port = std::make_unique<Port>(std::move(fd), readTimeoutMs());
  const Parcel frame = encodeHello(hello);
  return (*port)->send(frame.bytes.data(), frame.bytes.size());
}

int Proxy::acceptMainAck(Parcel &frame) {
  const std::optional<Ack> ack = decodeAck(frame);
  if (!ack || ack->status == RPC_PORT_ERROR_PERMISSION_DENIED) {
    return ack ? ack->status : RPC_PORT_ERROR_IO_ERROR;
  }
  if (ack->status != 0) {
    return RPC_PORT_ERROR_IO_ERROR;
  }
  instance_ = ack->instance;
  state_ = State::kAwaitCallbackAck;
  return openPort(&callback_, Hello{HelloKind::kCallback, ownAppId(), instance_});
}

int Proxy::acceptCallbackAck(Parcel &frame) {
  const std::optional<Ack> ack = decodeAck(frame);
  return (ack && ack->status == 0) ? RPC_PORT_ERROR_NONE : RPC_PORT_ERROR_IO_ERROR;
}

int Proxy::awaitAck(Port &port, int (Proxy::*accept)(Parcel &)) {
  Parcel frame;
  const int error = port.receive(frame);
  return error != 0 ? error : (this->*accept)(frame);
}

void Proxy::becomeConnected() {
  state_ = State::kConnected;
  handshakeTimer_.stop();
  // A thread blocked on the main port keeps taking events, so the stub never waits on this
  // proxy; the loop hands them out when it runs again.
  drained_.onWake(context_, onDrain, this);
  main_->drainWhileBlocked(callback_.get(), [this] { drained_.wake(); });
  // The main port is read only by create_from_port; the loop only notices it hang up.
  mainWatch_.watchFd(context_, main_->fd(), static_cast<GIOCondition>(G_IO_HUP | G_IO_ERR),
                     onMainHangUp, this);
  if (!callbackWatch_.active()) {
    callbackWatch_.watchFd(context_, callback_->fd(),
                           static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR),
                           onCallbackReadable, this);
  }
  if (connected.function != nullptr && !closing_.load(std::memory_order_acquire)) {
    connected.function(appId_.c_str(), portName_.c_str(), main_.get(), connected.userData);
  }
}

void Proxy::reject(int error) {
  close();
  // Nobody holds these ports yet, and the proxy may try again.
  state_ = State::kIdle;
  main_.reset();
  callback_.reset();
  set_last_result(error);
  if (rejected.function != nullptr && !closing_.load(std::memory_order_acquire)) {
    rejected.function(appId_.c_str(), portName_.c_str(), rejected.userData);
  }
}

void Proxy::disconnect() {
  if (state_ != State::kConnected) {
    return;
  }
  close();
  if (disconnected.function != nullptr && !closing_.load(std::memory_order_acquire)) {
    disconnected.function(appId_.c_str(), portName_.c_str(), disconnected.userData);
  }
}

// One `received` per complete frame; a frame the callback leaves is dropped so the loop moves on.
void Proxy::dispatchCallbackFrames() {
  while (state_ == State::kConnected && !closing_.load(std::memory_order_acquire) &&
         callback_->bufferedFrame() == FrameState::kComplete) {
    const uint64_t taken = callback_->framesTaken();
    if (received.function != nullptr) {
      received.function(appId_.c_str(), portName_.c_str(), received.userData);
    }
    if (state_ == State::kConnected && callback_->framesTaken() == taken) {
      callback_->dropFrame();
    }
  }
}

gboolean Proxy::onMainReadable(int /*fd*/, GIOCondition /*condition*/, void *data) {
  const std::shared_ptr<Proxy> proxy = self(data)->shared_from_this();
  const bool open = proxy->main_->fillAvailable();
  if (proxy->main_->bufferedFrame() == FrameState::kComplete) {
    Parcel frame;
    proxy->main_->receive(frame);
    proxy->mainWatch_.stop();
    const int error = proxy->acceptMainAck(frame);
    if (error != 0) {
      proxy->reject(error);
      return G_SOURCE_REMOVE;
    }
    proxy->callbackWatch_.watchFd(proxy->context_, proxy->callback_->fd(),
                                  static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR),
                                  onCallbackReadable, data);
  } else if (!open || proxy->main_->bufferedFrame() == FrameState::kBroken) {
    proxy->reject(RPC_PORT_ERROR_IO_ERROR);
  }
  return G_SOURCE_CONTINUE;
}

gboolean Proxy::onCallbackReadable(int /*fd*/, GIOCondition /*condition*/, void *data) {
  const std::shared_ptr<Proxy> proxy = self(data)->shared_from_this();
  const bool open = proxy->callback_->fillAvailable();
  if (proxy->state_ == State::kAwaitCallbackAck) {
    if (proxy->callback_->bufferedFrame() == FrameState::kComplete) {
      Parcel frame;
      proxy->callback_->receive(frame);
      const int error = proxy->acceptCallbackAck(frame);
      if (error != 0) {
        proxy->reject(error);
        return G_SOURCE_CONTINUE;
      }
      proxy->becomeConnected();
    } else if (!open || proxy->callback_->bufferedFrame() == FrameState::kBroken) {
      proxy->reject(RPC_PORT_ERROR_IO_ERROR);
      return G_SOURCE_CONTINUE;
    }
  }
  proxy->dispatchCallbackFrames();
  if (proxy->state_ == State::kConnected &&
      (!open || proxy->callback_->bufferedFrame() == FrameState::kBroken)) {
    proxy->disconnect();
  }
  return G_SOURCE_CONTINUE;
}

gboolean Proxy::onMainHangUp(int /*fd*/, GIOCondition /*condition*/, void *data) {
  const std::shared_ptr<Proxy> proxy = self(data)->shared_from_this();
  proxy->disconnect();
  return G_SOURCE_CONTINUE;
}

gboolean Proxy::onDeferredReject(void *data) {
  const std::shared_ptr<Proxy> proxy = self(data)->shared_from_this();
  proxy->reject(proxy->pendingError_);
  return G_SOURCE_REMOVE;
}

gboolean Proxy::onHandshakeTimeout(void *data) {
  const std::shared_ptr<Proxy> proxy = self(data)->shared_from_this();
  proxy->reject(RPC_PORT_ERROR_IO_ERROR);
  return G_SOURCE_REMOVE;
}

gboolean Proxy::onDrain(void *data) {
  onCallbackReadable(-1, G_IO_IN, data);
  return G_SOURCE_CONTINUE;
}

}  // namespace platform
