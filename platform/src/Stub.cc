#include "Stub.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>

#include "Runtime.h"
#include "Socket.h"
#include "Trust.h"

namespace platform {

namespace {

int listenOutcome(int error) {
  switch (error) {
    case -EACCES:
    case -EPERM:
      return RPC_PORT_ERROR_PERMISSION_DENIED;
    case -ENAMETOOLONG:
      return RPC_PORT_ERROR_INVALID_PARAMETER;
    default:
      return RPC_PORT_ERROR_IO_ERROR;
  }
}

// How long accept() rests after running out of descriptors; short, so that new clients get in
// soon after descriptors are free, and long enough that the loop idles meanwhile.
constexpr unsigned kAcceptBackOffMs = 100;

int sendAck(Port &port, const Ack &ack) {
  const Parcel frame = encodeAck(ack);
  return port.send(frame.bytes.data(), frame.bytes.size());
}

bool outOfDescriptors(int error) {
  return error == -EMFILE || error == -ENFILE || error == -ENOBUFS || error == -ENOMEM;
}

// The number after the last '@' of an instance id, or 0.
unsigned instanceSerial(const std::string &instance) {
  const size_t at = instance.rfind('@');
  if (at == std::string::npos || at + 1 == instance.size()) {
    return 0;
  }
  char *end = nullptr;
  const unsigned long serial = std::strtoul(instance.c_str() + at + 1, &end, 10);
  return *end == '\0' && serial <= UINT32_MAX ? static_cast<unsigned>(serial) : 0;
}

}  // namespace

Stub::Stub(std::string portName)
    : context_(g_main_context_ref_thread_default()), portName_(std::move(portName)) {}

Stub::~Stub() {
  close();
  g_main_context_unref(context_);
}

int Stub::listen() {
  const std::string appId = ownAppId();
  if (listener_.get() >= 0 || !isValidName(appId.c_str())) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  const int unsafe = securePortDirectory(appId, DirectoryUse::kCreate);
  if (unsafe != 0) {
    return listenOutcome(unsafe);
  }
  path_ = socketPath(appId, portName_);
  const int error = listenUnix(path_, &listener_);
  if (error != 0) {
    return listenOutcome(error);
  }
  listenerWatch_.watchFd(context_, listener_.get(), G_IO_IN, onListenerReadable, this);
  return RPC_PORT_ERROR_NONE;
}

Port *Stub::port(rpc_port_port_type_e type, const std::string &instance) const {
  const auto found = clients_.find(instance);
  if (found != clients_.end()) {
    return found->second->port(type);
  }
  return wasClosed(instance) ? &closedPort_ : nullptr;
}

bool Stub::wasClosed(const std::string &instance) const {
  const unsigned serial = instanceSerial(instance);
  return serial != 0 && serial <= nextInstance_ &&
         std::none_of(clients_.begin(), clients_.end(),
                      [serial](const auto &entry) { return entry.second->serial() == serial; });
}

void Stub::close() {
  listenerWatch_.stop();
  acceptRetry_.stop();
  if (listener_.get() >= 0) {
    ::unlink(path_.c_str());
    listener_.reset();
  }
  pending_.clear();
  for (auto &entry : clients_) {
    entry.second->close();
  }
}

void Stub::reportConnected(const StubClient &client) const {
  if (connected.function != nullptr) {
    connected.function(client.sender().c_str(), client.instance().c_str(), connected.userData);
  }
}

int Stub::reportReceived(const StubClient &client) const {
  if (received.function == nullptr) {
    return 0;
  }
  return received.function(client.sender().c_str(), client.instance().c_str(),
                           client.port(RPC_PORT_PORT_MAIN), received.userData);
}

void Stub::reportDisconnected(const StubClient &client) const {
  if (disconnected.function != nullptr) {
    disconnected.function(client.sender().c_str(), client.instance().c_str(),
                          disconnected.userData);
  }
}

void Stub::retire(const StubClient &client) {
  const auto found = clients_.find(client.instance());
  if (found == clients_.end()) {
    return;
  }
  retired_.push_back(std::move(found->second));
  clients_.erase(found);
  if (!reaper_.active()) {
    reaper_.idle(context_, onReap, this);
  }
}

void Stub::acceptAll() {
  UniqueFd fd;
  int error = 0;
  while ((error = acceptConnection(listener_.get(), &fd)) == 0) {
    auto pending = std::make_unique<PendingSocket>();
    pending->stub = this;
    pending->port = std::make_unique<Port>(std::move(fd), readTimeoutMs());
    pending->watch.watchFd(context_, pending->port->fd(),
                           static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR),
                           onPendingReadable, pending.get());
    pending->timer.timeout(context_, static_cast<unsigned>(readTimeoutMs()), onPendingTimeout,
                           pending.get());
    pending_.push_back(std::move(pending));
  }
  if (outOfDescriptors(error)) {
    pauseAccepting();
  }
}

// The waiting connection stays in the backlog; watching the socket now would only spin.
void Stub::pauseAccepting() {
  listenerWatch_.stop();
  acceptRetry_.timeout(context_, kAcceptBackOffMs, onAcceptRetry, this);
}

// A new connection's first frame says what it is; anything but a hello closes it.
void Stub::readHello(PendingSocket *pending) {
  const bool open = pending->port->fillAvailable();
  const FrameState state = pending->port->bufferedFrame();
  if (state == FrameState::kIncomplete && open) {
    return;
  }
  std::unique_ptr<PendingSocket> owned = takePending(pending);
  owned->watch.stop();
  owned->timer.stop();
  Parcel frame;
  if (state != FrameState::kComplete || owned->port->receive(frame) != 0) {
    return;
  }
  const std::optional<Hello> hello = decodeHello(frame);
  if (hello && hello->kind == HelloKind::kMain) {
    admit(std::move(owned->port), *hello);
  } else if (hello) {
    join(std::move(owned->port), *hello);
  }
}

std::unique_ptr<Stub::PendingSocket> Stub::takePending(PendingSocket *pending) {
  const auto found = std::find_if(
      pending_.begin(), pending_.end(),
      [pending](const std::unique_ptr<PendingSocket> &entry) { return entry.get() == pending; });
  std::unique_ptr<PendingSocket> owned = std::move(*found);
  pending_.erase(found);
  return owned;
}

void Stub::admit(std::unique_ptr<Port> port, const Hello &hello) {
  if (!isAllowedPeer(port->fd()) || !allows(hello.detail)) {
    sendAck(*port, Ack{RPC_PORT_ERROR_PERMISSION_DENIED, std::string()});
    return;
  }
  const unsigned serial = ++nextInstance_;
  std::string instance = hello.appId + "@" + std::to_string(serial);
  if (sendAck(*port, Ack{RPC_PORT_ERROR_NONE, instance}) != 0) {
    return;
  }
  auto client = std::make_unique<StubClient>(*this, hello.appId, instance, serial, std::move(port));
  clients_.emplace(std::move(instance), std::move(client));
}

void Stub::join(std::unique_ptr<Port> port, const Hello &hello) {
  const auto found = clients_.find(hello.detail);
  if (!isAllowedPeer(port->fd()) || found == clients_.end() ||
      !found->second->awaitsCallbackPort() || found->second->sender() != hello.appId ||
      sendAck(*port, Ack{RPC_PORT_ERROR_NONE, hello.detail}) != 0) {
    return;
  }
  StubClient &client = *found->second;
  client.attachCallback(std::move(port));
  reportConnected(client);
}

bool Stub::allows(const std::string &privileges) const {
  return std::all_of(privileges_.begin(), privileges_.end(), [&](const std::string &required) {
    return holdsPrivilege(privileges, required);
  });
}

gboolean Stub::onListenerReadable(int /*fd*/, GIOCondition /*condition*/, void *self) {
  static_cast<Stub *>(self)->acceptAll();
  return G_SOURCE_CONTINUE;
}

gboolean Stub::onPendingReadable(int /*fd*/, GIOCondition /*condition*/, void *pending) {
  auto *socket = static_cast<PendingSocket *>(pending);
  const std::shared_ptr<Stub> stub = socket->stub->shared_from_this();
  stub->readHello(socket);
  return G_SOURCE_CONTINUE;
}

gboolean Stub::onPendingTimeout(void *pending) {
  auto *socket = static_cast<PendingSocket *>(pending);
  // Dropping it closes the socket and destroys this timer.
  socket->stub->takePending(socket);
  return G_SOURCE_REMOVE;
}

gboolean Stub::onAcceptRetry(void *self) {
  auto *stub = static_cast<Stub *>(self);
  stub->listenerWatch_.watchFd(stub->context_, stub->listener_.get(), G_IO_IN, onListenerReadable,
                               stub);
  stub->acceptAll();
  return G_SOURCE_REMOVE;
}

gboolean Stub::onReap(void *self) {
  auto *stub = static_cast<Stub *>(self);
  stub->reaper_.stop();
  stub->retired_.clear();
  return G_SOURCE_REMOVE;
}

}  // namespace platform
