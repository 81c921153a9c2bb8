#include "AgentProxy.h"

#include <dlog.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <utility>

namespace rpc_port::AgentProxy::proxy {

namespace {

constexpr const char *baseName(const char *path) {
  const char *base = path;
  for (const char *cursor = path; *cursor != '\0'; ++cursor) {
    if (*cursor == '/') {
      base = cursor + 1;
    }
  }
  return base;
}

constexpr const char *kFileName = baseName(__FILE__);
constexpr const char *kLogTag = "RPC_PORT_PROXY";
constexpr const char *kPortName = "OxaAgentInterface";

}  // namespace

// Every proxy line names this file, the agent method (or callback) and the line of the call.
#define PROXY_LOGE(function, format, ...)                                                \
  dlog_print(DLOG_ERROR, kLogTag, "%s: %s(%d) > " format, kFileName, function, __LINE__, \
             ##__VA_ARGS__)

namespace {

// A frame body never exceeds 16 MiB on this transport.
constexpr size_t kMaxFrameBody = size_t{16} << 20;
// First int32 of every parcel the agent sends.
constexpr int kCommandReply = 0;
constexpr int kCommandCallback = 1;

enum MethodId : int {
  kRegisterService = 2,
  kUnregisterService,
  kGetServiceState,
  kRegisterServiceStateChangedEvent,
  kUnregisterServiceStateChangedEvent,
  kSendCommand,
  kRegisterCommandReceivedEvent,
  kUnregisterCommandReceivedEvent,
  kRegisterDeviceFoundEvent,
  kUnregisterDeviceFoundEvent,
  kRegisterDeviceLostEvent,
  kUnregisterDeviceLostEvent,
  kRegisterContextChangedEvent,
  kUnregisterContextChangedEvent,
  kStartDiscovery,
  kStopDiscovery,
  kGetFoundDeviceList,
  kGetMyDevice,
  kGetAdvRawData,
  kGetContext,
  kUpdateContext,
  kSetAppId,
  kUnregister,
};

// Numbers every delegate of the process, across all proxies and kinds; never reset.
std::atomic<int> delegateCounter{0};

// Every proxy between the end of its construction and the start of its destruction. A port event
// names its proxy by a plain pointer, and the application may drop a proxy on one thread just as
// the event loop is called back for it on another: the event checks here before touching it.
Oxa::Capi::ShortLock liveProxiesGuard;
std::vector<const OxaAgentInterface *> liveProxies;

constexpr std::chrono::milliseconds kDefaultCallTimeout{10000};

// How long a call may wait for its reply in all, however many other parcels arrive meanwhile:
// OXA_CALL_TIMEOUT_MS (a positive number of milliseconds), read once, else 10 s.
std::chrono::milliseconds callTimeout() {
  static const std::chrono::milliseconds timeout = [] {
    const char *text = std::getenv("OXA_CALL_TIMEOUT_MS");
    if (text == nullptr) {
      return kDefaultCallTimeout;
    }
    char *end = nullptr;
    const long long value = std::strtoll(text, &end, 10);
    return (end != text && *end == '\0' && value > 0) ? std::chrono::milliseconds(value)
                                                      : kDefaultCallTimeout;
  }();
  return timeout;
}

int readInt32(rpc_port_parcel_h parcel) {
  int value = 0;
  rpc_port_parcel_read_int32(parcel, &value);
  return value;
}

// The agent never sends a null string; if it did, taking it throws std::logic_error, which is
// how such a parcel is rejected. The text is kept, not copied.
Oxa::Capi::Text readString(rpc_port_parcel_h parcel) {
  char *raw = nullptr;
  rpc_port_parcel_read_string(parcel, &raw);
  return Oxa::Capi::Text::adopt(raw);
}

rpc_port_parcel_h writeBytes(rpc_port_parcel_h parcel, const std::vector<unsigned char> &bytes) {
  rpc_port_parcel_write_array_count(parcel, static_cast<int>(bytes.size()));
  // Unrolled: the loop's own count and branch are a fifth of what each byte costs.
#pragma GCC unroll 8
  for (unsigned char byte : bytes) {
    rpc_port_parcel_write_byte(parcel, static_cast<char>(byte));
  }
  return parcel;
}

// Sized once, up to what a frame can carry, and read in place; bytes past that read as before.
rpc_port_parcel_h readBytes(rpc_port_parcel_h parcel, std::vector<unsigned char> &bytes) {
  int count = 0;
  rpc_port_parcel_read_array_count(parcel, &count);
  const size_t wanted = count > 0 ? static_cast<size_t>(count) : 0;
  const size_t first = bytes.size();
  bytes.resize(first + std::min(wanted, kMaxFrameBody));
  char *const end = reinterpret_cast<char *>(bytes.data() + bytes.size());
#pragma GCC unroll 8
  for (char *at = reinterpret_cast<char *>(bytes.data() + first); at != end; ++at) {
    rpc_port_parcel_read_byte(parcel, at);
  }
  for (size_t index = bytes.size() - first; index < wanted; ++index) {
    bytes.push_back(0);
    rpc_port_parcel_read_byte(parcel, reinterpret_cast<char *>(&bytes.back()));
  }
  return parcel;
}

// Built in place: the members of a braced list are read in order.
DeviceRecord readDevice(rpc_port_parcel_h parcel) {
  return DeviceRecord{readString(parcel), readInt32(parcel), readString(parcel)};
}

rpc_port_parcel_h readDeviceList(rpc_port_parcel_h parcel, std::vector<DeviceRecord> &devices) {
  int count = 0;
  rpc_port_parcel_read_array_count(parcel, &count);
  for (int index = 0; index < count; ++index) {
    devices.push_back(readDevice(parcel));
  }
  return parcel;
}

rpc_port_parcel_h writeCommand(rpc_port_parcel_h parcel, const CommandRecord &command) {
  rpc_port_parcel_write_string(parcel, command.address.c_str());
  rpc_port_parcel_write_int32(parcel, command.handlerId);
  rpc_port_parcel_write_int32(parcel, command.id);
  rpc_port_parcel_write_int32(parcel, command.type);
  writeBytes(parcel, command.payload);
  rpc_port_parcel_write_int32(parcel, command.seqId);
  return parcel;
}

rpc_port_parcel_h readCommand(rpc_port_parcel_h parcel, CommandRecord &command) {
  command.address = readString(parcel);
  command.handlerId = readInt32(parcel);
  command.id = readInt32(parcel);
  command.type = readInt32(parcel);
  readBytes(parcel, command.payload);
  command.seqId = readInt32(parcel);
  return parcel;
}

}  // namespace

// ---- Delegates ---------------------------------------------------------------------------------

OxaAgentInterface::CallbackBase::CallbackBase(int delegateId, bool once)
    : id_(delegateId), seqId_(delegateCounter.fetch_add(1)), once_(once) {}

std::string OxaAgentInterface::CallbackBase::GetTag() const {
  return std::to_string(id_) + "::" + std::to_string(seqId_);
}

void OxaAgentInterface::CallbackBase::WriteDelegate(rpc_port_parcel_h parcel,
                                                    const CallbackBase &delegate) {
  rpc_port_parcel_write_int32(parcel, delegate.id_);
  rpc_port_parcel_write_int32(parcel, delegate.seqId_);
  rpc_port_parcel_write_bool(parcel, delegate.once_);
}

void OxaAgentInterface::CallbackBase::ReadDelegate(rpc_port_parcel_h parcel, int &id, int &seqId,
                                                   bool &once) {
  rpc_port_parcel_read_int32(parcel, &id);
  rpc_port_parcel_read_int32(parcel, &seqId);
  rpc_port_parcel_read_bool(parcel, &once);
}

void OxaAgentInterface::OnCommandSentEvent::OnParcelReceived(rpc_port_parcel_h parcel) {
  const int result = readInt32(parcel);
  CommandRecord command;
  readCommand(parcel, command);
  OnReceived(result, command);
}

void OxaAgentInterface::OnCommandReceivedEvent::OnParcelReceived(rpc_port_parcel_h parcel) {
  CommandRecord command;
  readCommand(parcel, command);
  OnReceived(std::move(command));
}

void OxaAgentInterface::OnDeviceFoundEvent::OnParcelReceived(rpc_port_parcel_h parcel) {
  OnReceived(readDevice(parcel));
}

void OxaAgentInterface::OnDeviceLostEvent::OnParcelReceived(rpc_port_parcel_h parcel) {
  OnReceived(readDevice(parcel));
}

void OxaAgentInterface::OnContextChangedEvent::OnParcelReceived(rpc_port_parcel_h parcel) {
  OnReceived(readDevice(parcel));
}

void OxaAgentInterface::AddDelegate(std::unique_ptr<CallbackBase> delegate) {
  const int id = delegate->id_;
  const int seqId = delegate->seqId_;
  const std::lock_guard<Oxa::Capi::ShortLock> guard(delegatesGuard);
  delegates.push_back(std::move(delegate));
  delegateIndex.Add(id, seqId, std::prev(delegates.end()));
}

std::unique_ptr<OxaAgentInterface::CallbackBase> OxaAgentInterface::UnlinkDelegate(
    DelegateList::iterator position) {
  std::unique_ptr<CallbackBase> delegate = std::move(*position);
  delegateIndex.Remove(delegate->id_, delegate->seqId_, position);
  delegates.erase(position);
  if (delegate->dispatchDepth_ > 0) {
    orphans.push_back(std::move(delegate));
  }
  return delegate;
}

// The delegates are destroyed in list order once the guard is released; one whose call is in
// progress waits for the end of that call.
void OxaAgentInterface::ClearDelegates() {
  DelegateList removed;
  {
    const std::lock_guard<Oxa::Capi::ShortLock> guard(delegatesGuard);
    delegateIndex.Clear();
    removed.swap(delegates);
    for (std::unique_ptr<CallbackBase> &delegate : removed) {
      if (delegate->dispatchDepth_ > 0) {
        orphans.push_back(std::move(delegate));
      }
    }
  }
}

void OxaAgentInterface::DisposeCallback(const std::string &tag) {
  std::unique_ptr<CallbackBase> removed;
  const std::lock_guard<Oxa::Capi::ShortLock> guard(delegatesGuard);
  for (auto position = delegates.begin(); position != delegates.end(); ++position) {
    if ((*position)->GetTag() == tag) {
      removed = UnlinkDelegate(position);
      break;
    }
  }
}

// Destroys the delegate if it was removed during its call.
class OxaAgentInterface::DispatchEnd {
 public:
  DispatchEnd(OxaAgentInterface &proxy, CallbackBase &delegate)
      : proxy(proxy), delegate(delegate) {}
  ~DispatchEnd() { proxy.EndDispatch(&delegate); }
  DispatchEnd(const DispatchEnd &) = delete;
  DispatchEnd &operator=(const DispatchEnd &) = delete;

 private:
  OxaAgentInterface &proxy;
  CallbackBase &delegate;
};

// Runs on the platform's event thread without the call lock, as the connection callbacks do. The
// delegate guard is held for the lookup only: the delegate's call may call back into the proxy.
void OxaAgentInterface::Dispatch(rpc_port_parcel_h parcel) {
  int id = 0;
  int seqId = 0;
  bool once = false;  // the parcel's flag takes no part: the delegate's own flag decides
  CallbackBase::ReadDelegate(parcel, id, seqId, once);
  CallbackBase *delegate = nullptr;
  {
    const std::lock_guard<Oxa::Capi::ShortLock> guard(delegatesGuard);
    const DelegateList::iterator *found = delegateIndex.Find(id, seqId);
    if (found == nullptr) {
      return;
    }
    delegate = (*found)->get();
    ++delegate->dispatchDepth_;
  }
  const DispatchEnd end(*this, *delegate);
  delegate->OnParcelReceived(parcel);
}

std::unique_ptr<OxaAgentInterface::CallbackBase> OxaAgentInterface::EndDispatch(
    CallbackBase *delegate) {
  const std::lock_guard<Oxa::Capi::ShortLock> guard(delegatesGuard);
  if (--delegate->dispatchDepth_ > 0) {
    return nullptr;
  }
  for (auto orphan = orphans.begin(); orphan != orphans.end(); ++orphan) {
    if (orphan->get() == delegate) {
      std::unique_ptr<CallbackBase> removed = std::move(*orphan);
      orphans.erase(orphan);
      return removed;
    }
  }
  if (!delegate->once_) {
    return nullptr;
  }
  const DelegateList::iterator *found = delegateIndex.Find(delegate->id_, delegate->seqId_);
  if (found == nullptr || (*found)->get() != delegate) {
    return nullptr;
  }
  return UnlinkDelegate(*found);
}

// Holds the proxy named by a port event for the event's duration, so that whoever drops the
// last other reference meanwhile does not free it under the event.
class OxaAgentInterface::EventScope {
 public:
  explicit EventScope(void *data) {
    auto *named = static_cast<OxaAgentInterface *>(data);
    const std::lock_guard<Oxa::Capi::ShortLock> guard(liveProxiesGuard);
    if (std::find(liveProxies.begin(), liveProxies.end(), named) == liveProxies.end()) {
      return;
    }
    if (named->sharedOwnership) {
      try {
        // One atomic increment; weak_from_this().lock() would add a weak reference and drop it.
        hold = named->shared_from_this();
      } catch (const std::bad_weak_ptr &) {
        return;  // its last owner is destroying it
      }
    }
    if (named->listener.load() != nullptr) {
      proxy = named;
    }
  }

  OxaAgentInterface *get() const { return proxy; }

 private:
  std::shared_ptr<OxaAgentInterface> hold;
  OxaAgentInterface *proxy = nullptr;
};

void OxaAgentInterface::OnReceivedCB(const char * /*endpoint*/, const char * /*portName*/,
                                     void *data) {
  const EventScope scope(data);
  OxaAgentInterface *self = scope.get();
  if (self == nullptr) {
    return;
  }
  rpc_port_parcel_h raw = nullptr;
  if (rpc_port_parcel_create_from_port(&raw, self->callbackPort.load()) != RPC_PORT_ERROR_NONE) {
    PROXY_LOGE(__func__, "Failed to create parcel from port");
    return;
  }
  const Parcel parcel(raw);
  if (readInt32(parcel.get()) == kCommandCallback) {
    self->Dispatch(parcel.get());
  }
}

// ---- Connection --------------------------------------------------------------------------------

void OxaAgentInterface::ParcelDeleter::operator()(rpc_port_parcel_h parcel) const {
  rpc_port_parcel_destroy(parcel);
}

OxaAgentInterface::OxaAgentInterface(IEventListener *listener, std::string targetAppId)
    : listener(listener), targetAppId(std::move(targetAppId)) {
  if (rpc_port_proxy_create(&proxyHandle) != RPC_PORT_ERROR_NONE) {
    PROXY_LOGE(__func__, "Failed to create proxy");
    throw InvalidIOException();
  }
  // Registration cannot fail for a handle just created; the results carry nothing to act on.
  rpc_port_proxy_add_connected_event_cb(proxyHandle, OnConnectedCB, this);
  rpc_port_proxy_add_disconnected_event_cb(proxyHandle, OnDisconnectedCB, this);
  rpc_port_proxy_add_rejected_event_cb(proxyHandle, OnRejectedCB, this);
  rpc_port_proxy_add_received_event_cb(proxyHandle, OnReceivedCB, this);
  const std::lock_guard<Oxa::Capi::ShortLock> guard(liveProxiesGuard);
  liveProxies.push_back(this);
}

std::shared_ptr<OxaAgentInterface> OxaAgentInterface::Create(IEventListener *listener,
                                                             std::string targetAppId) {
  auto proxy = std::make_shared<OxaAgentInterface>(listener, std::move(targetAppId));
  const std::lock_guard<Oxa::Capi::ShortLock> guard(liveProxiesGuard);
  proxy->sharedOwnership = true;
  return proxy;
}

void OxaAgentInterface::Detach() {
  listener.store(nullptr);
}

// The members then go in reverse order: the app id, then the delegates.
OxaAgentInterface::~OxaAgentInterface() {
  {
    const std::lock_guard<Oxa::Capi::ShortLock> guard(liveProxiesGuard);
    liveProxies.erase(std::find(liveProxies.begin(), liveProxies.end(), this));
  }
  if (proxyHandle != nullptr) {
    rpc_port_proxy_destroy(proxyHandle);
  }
}

void OxaAgentInterface::Connect(bool sync) {
  const int result = sync ? rpc_port_proxy_connect_sync(proxyHandle, targetAppId.c_str(), kPortName)
                          : rpc_port_proxy_connect(proxyHandle, targetAppId.c_str(), kPortName);
  if (result == RPC_PORT_ERROR_NONE) {
    return;
  }
  PROXY_LOGE(__func__, "Failed to connect OxaAgentInterface");
  switch (result) {
    case RPC_PORT_ERROR_IO_ERROR:
      throw InvalidIOException();
    case RPC_PORT_ERROR_INVALID_PARAMETER:
      throw InvalidIDException();
    case RPC_PORT_ERROR_PERMISSION_DENIED:
      throw PermissionDeniedException();
    default:
      // Other codes are left to the connected or rejected event that follows.
      return;
  }
}

void OxaAgentInterface::OnConnectedCB(const char * /*endpoint*/, const char * /*portName*/,
                                      rpc_port_h port, void *data) {
  const EventScope scope(data);
  OxaAgentInterface *self = scope.get();
  if (self == nullptr) {
    return;
  }
  self->port = port;
  rpc_port_h callbackPort = self->callbackPort.load();
  rpc_port_proxy_get_port(self->proxyHandle, RPC_PORT_PORT_CALLBACK, &callbackPort);
  self->callbackPort = callbackPort;
  self->disconnectionReported = false;
  self->NotifyListener(&IEventListener::OnConnected);
}

// The ports stay set: later calls fail at send time rather than as "not connected".
void OxaAgentInterface::OnDisconnectedCB(const char * /*endpoint*/, const char * /*portName*/,
                                         void *data) {
  const EventScope scope(data);
  OxaAgentInterface *self = scope.get();
  if (self != nullptr && self->ClaimDisconnection()) {
    self->ClearDelegates();
    self->NotifyListener(&IEventListener::OnDisconnected);
  }
}

void OxaAgentInterface::OnRejectedCB(const char * /*endpoint*/, const char * /*portName*/,
                                     void *data) {
  const EventScope scope(data);
  if (OxaAgentInterface *self = scope.get()) {
    self->NotifyListener(&IEventListener::OnRejected);
  }
}

bool OxaAgentInterface::ClaimDisconnection() {
  return !disconnectionReported.exchange(true);
}

void OxaAgentInterface::NotifyListener(void (IEventListener::*event)()) {
  if (IEventListener *current = listener.load()) {
    (current->*event)();
  }
}

// Reported on the thread whose call gave up, as the platform reports nothing for a connection
// that is merely no longer used.
void OxaAgentInterface::AbandonConnection() {
  if (ClaimDisconnection()) {
    ClearDelegates();
    NotifyListener(&IEventListener::OnDisconnected);
  }
}

// ---- Call frame --------------------------------------------------------------------------------

OxaAgentInterface::Parcel OxaAgentInterface::BeginRequest(const char *method, int methodId) {
  if (port.load() == nullptr) {
    PROXY_LOGE(method, "Not connected");
    throw NotConnectedSocketException();
  }
  rpc_port_parcel_h raw = nullptr;
  rpc_port_parcel_create(&raw);
  Parcel request(raw);
  rpc_port_parcel_write_int32(request.get(), methodId);
  return request;
}

OxaAgentInterface::Parcel OxaAgentInterface::Call(const char *method, Parcel &request) {
  std::unique_lock<std::recursive_mutex> lock(mutex);
  return SendRequest(method, request, lock, true);
}

// The delegate changes hands only once the lock is held: if taking it throws, the caller keeps it.
template <typename Delegate>
OxaAgentInterface::Parcel OxaAgentInterface::CallWithDelegate(const char *method, Parcel &request,
                                                              std::unique_ptr<Delegate> &delegate) {
  std::unique_lock<std::recursive_mutex> lock(mutex);
  AddDelegate(std::move(delegate));
  return SendRequest(method, request, lock, true);
}

OxaAgentInterface::Parcel OxaAgentInterface::SendRequest(
    const char *method, Parcel &request, std::unique_lock<std::recursive_mutex> &lock,
    bool waitForReply) {
  // An abandoned connection fails as one that the peer has closed.
  const int result =
      abandoned.load() ? RPC_PORT_ERROR_IO_ERROR : rpc_port_parcel_send(request.get(), port.load());
  if (result != RPC_PORT_ERROR_NONE) {
    PROXY_LOGE(method, "Failed to send parcel. result(%d)", result);
    request.reset();
    lock.unlock();
    throw InvalidIOException();
  }
  if (!waitForReply) {
    lock.unlock();
    request.reset();
    return nullptr;
  }
  return ReadReply(method, request, lock);
}

// Waits on the main port for the reply (command id 0); anything else there is skipped, but only
// until the call deadline: a call that cannot end within it gives up on the connection, so that no
// later call takes this call's late reply for its own.
OxaAgentInterface::Parcel OxaAgentInterface::ReadReply(
    const char *method, Parcel &request, std::unique_lock<std::recursive_mutex> &lock) {
  const auto deadline = std::chrono::steady_clock::now() + callTimeout();
  const rpc_port_h mainPort = port.load();
  bool deadlinePassed = false;
  while (!deadlinePassed) {
    rpc_port_parcel_h raw = nullptr;
    if (rpc_port_parcel_create_from_port(&raw, mainPort) != RPC_PORT_ERROR_NONE) {
      break;
    }
    Parcel reply(raw);
    if (readInt32(reply.get()) == kCommandReply) {
      lock.unlock();
      return reply;
    }
    deadlinePassed = std::chrono::steady_clock::now() >= deadline;
  }
  if (deadlinePassed) {
    abandoned = true;
  }
  lock.unlock();
  PROXY_LOGE(method, "Invalid protocol");
  // The request parcel is abandoned here, not destroyed: an established trait of this path
  // that the unit tests pin down, so that any change to it is a deliberate one.
  static_cast<void>(request.release());
  if (deadlinePassed) {
    AbandonConnection();
  }
  throw InvalidProtocolException();
}

int OxaAgentInterface::CallWithHandlerId(const char *method, int methodId, int handlerId) {
  Parcel request = BeginRequest(method, methodId);
  rpc_port_parcel_write_int32(request.get(), handlerId);
  const Parcel reply = Call(method, request);
  return readInt32(reply.get());
}

template <typename Delegate>
int OxaAgentInterface::RegisterEvent(const char *method, int methodId, int handlerId,
                                     std::unique_ptr<Delegate> &delegate) {
  Parcel request = BeginRequest(method, methodId);
  rpc_port_parcel_write_int32(request.get(), handlerId);
  CallbackBase::WriteDelegate(request.get(), *delegate);
  const Parcel reply = CallWithDelegate(method, request, delegate);
  return readInt32(reply.get());
}

// ---- Agent methods -----------------------------------------------------------------------------

void OxaAgentInterface::RegisterService(int handlerId,
                                        std::unique_ptr<OnServiceRegisteredEvent> &&callback) {
  Parcel request = BeginRequest(__func__, kRegisterService);
  rpc_port_parcel_write_int32(request.get(), handlerId);
  CallbackBase::WriteDelegate(request.get(), *callback);
  std::unique_lock<std::recursive_mutex> lock(mutex);
  AddDelegate(std::move(callback));
  SendRequest(__func__, request, lock, false);
}

int OxaAgentInterface::UnregisterService(int handlerId) {
  return CallWithHandlerId(__func__, kUnregisterService, handlerId);
}

int OxaAgentInterface::GetServiceState(int handlerId, bool &state) {
  Parcel request = BeginRequest(__func__, kGetServiceState);
  rpc_port_parcel_write_int32(request.get(), handlerId);
  const Parcel reply = Call(__func__, request);
  rpc_port_parcel_read_bool(reply.get(), &state);
  return readInt32(reply.get());
}

int OxaAgentInterface::RegisterServiceStateChangedEvent(
    int handlerId, std::unique_ptr<OnServiceStateChangedEvent> &&callback) {
  return RegisterEvent(__func__, kRegisterServiceStateChangedEvent, handlerId, callback);
}

int OxaAgentInterface::UnregisterServiceStateChangedEvent(int handlerId) {
  return CallWithHandlerId(__func__, kUnregisterServiceStateChangedEvent, handlerId);
}

int OxaAgentInterface::SendCommand(int handlerId, const CommandRecord &command,
                                   std::unique_ptr<OnCommandSentEvent> &&callback) {
  Parcel request = BeginRequest(__func__, kSendCommand);
  rpc_port_parcel_write_int32(request.get(), handlerId);
  writeCommand(request.get(), command);
  CallbackBase::WriteDelegate(request.get(), *callback);
  const Parcel reply = CallWithDelegate(__func__, request, callback);
  return readInt32(reply.get());
}

int OxaAgentInterface::RegisterCommandReceivedEvent(
    int handlerId, std::unique_ptr<OnCommandReceivedEvent> &&callback) {
  return RegisterEvent(__func__, kRegisterCommandReceivedEvent, handlerId, callback);
}

int OxaAgentInterface::UnregisterCommandReceivedEvent(int handlerId) {
  return CallWithHandlerId(__func__, kUnregisterCommandReceivedEvent, handlerId);
}

int OxaAgentInterface::RegisterDeviceFoundEvent(int handlerId,
                                                std::unique_ptr<OnDeviceFoundEvent> &&callback) {
  return RegisterEvent(__func__, kRegisterDeviceFoundEvent, handlerId, callback);
}

int OxaAgentInterface::UnregisterDeviceFoundEvent(int handlerId) {
  return CallWithHandlerId(__func__, kUnregisterDeviceFoundEvent, handlerId);
}

int OxaAgentInterface::RegisterDeviceLostEvent(int handlerId,
                                               std::unique_ptr<OnDeviceLostEvent> &&callback) {
  return RegisterEvent(__func__, kRegisterDeviceLostEvent, handlerId, callback);
}

int OxaAgentInterface::UnregisterDeviceLostEvent(int handlerId) {
  return CallWithHandlerId(__func__, kUnregisterDeviceLostEvent, handlerId);
}

int OxaAgentInterface::RegisterContextChangedEvent(
    int handlerId, std::unique_ptr<OnContextChangedEvent> &&callback) {
  return RegisterEvent(__func__, kRegisterContextChangedEvent, handlerId, callback);
}

int OxaAgentInterface::UnregisterContextChangedEvent(int handlerId) {
  return CallWithHandlerId(__func__, kUnregisterContextChangedEvent, handlerId);
}

int OxaAgentInterface::StartDiscovery(int handlerId) {
  return CallWithHandlerId(__func__, kStartDiscovery, handlerId);
}

int OxaAgentInterface::StopDiscovery(int handlerId) {
  return CallWithHandlerId(__func__, kStopDiscovery, handlerId);
}

int OxaAgentInterface::GetFoundDeviceList(int handlerId, std::vector<DeviceRecord> &devices) {
  Parcel request = BeginRequest(__func__, kGetFoundDeviceList);
  rpc_port_parcel_write_int32(request.get(), handlerId);
  const Parcel reply = Call(__func__, request);
  readDeviceList(reply.get(), devices);
  return readInt32(reply.get());
}

int OxaAgentInterface::GetMyDevice(int handlerId, const std::string &address,
                                   DeviceRecord &device) {
  Parcel request = BeginRequest(__func__, kGetMyDevice);
  rpc_port_parcel_write_int32(request.get(), handlerId);
  rpc_port_parcel_write_string(request.get(), address.c_str());
  const Parcel reply = Call(__func__, request);
  device = readDevice(reply.get());
  return readInt32(reply.get());
}

int OxaAgentInterface::GetAdvRawData(const Oxa::Capi::Text &address,
                                     std::vector<unsigned char> &data) {
  Parcel request = BeginRequest(__func__, kGetAdvRawData);
  rpc_port_parcel_write_string(request.get(), address.c_str());
  const Parcel reply = Call(__func__, request);
  readBytes(reply.get(), data);
  return readInt32(reply.get());
}

int OxaAgentInterface::GetContext(const Oxa::Capi::Text &address, int handlerId, int contextType,
                                  std::vector<unsigned char> &data) {
  Parcel request = BeginRequest(__func__, kGetContext);
  rpc_port_parcel_write_string(request.get(), address.c_str());
  rpc_port_parcel_write_int32(request.get(), handlerId);
  rpc_port_parcel_write_int32(request.get(), contextType);
  const Parcel reply = Call(__func__, request);
  readBytes(reply.get(), data);
  return readInt32(reply.get());
}

int OxaAgentInterface::UpdateContext(int handlerId, int contextType,
                                     const std::vector<unsigned char> &data) {
  Parcel request = BeginRequest(__func__, kUpdateContext);
  rpc_port_parcel_write_int32(request.get(), handlerId);
  rpc_port_parcel_write_int32(request.get(), contextType);
  writeBytes(request.get(), data);
  const Parcel reply = Call(__func__, request);
  return readInt32(reply.get());
}

int OxaAgentInterface::SetAppId(int appId) {
  Parcel request = BeginRequest(__func__, kSetAppId);
  rpc_port_parcel_write_int32(request.get(), appId);
  const Parcel reply = Call(__func__, request);
  return readInt32(reply.get());
}

int OxaAgentInterface::Unregister() {
  Parcel request = BeginRequest(__func__, kUnregister);
  const Parcel reply = Call(__func__, request);
  return readInt32(reply.get());
}

// ---- Service event decoders ------------------------------------------------------------------

void OxaAgentInterface::OnServiceRegisteredEvent::OnParcelReceived(rpc_port_parcel_h parcel) {
  OnReceived(readInt32(parcel));
}

void OxaAgentInterface::OnServiceStateChangedEvent::OnParcelReceived(rpc_port_parcel_h parcel) {
  bool state = false;
  rpc_port_parcel_read_bool(parcel, &state);
  OnReceived(state);
}

}  // namespace rpc_port::AgentProxy::proxy
