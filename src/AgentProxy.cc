#include "AgentProxy.h"

#include <dlog.h>

#include <algorithm>
#include <atomic>
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

struct FreeDeleter {
  void operator()(char *text) const { std::free(text); }
};

int readInt32(rpc_port_parcel_h parcel) {
  int value = 0;
  rpc_port_parcel_read_int32(parcel, &value);
  return value;
}

// The agent never sends a null string; if it did, building the std::string throws
// std::logic_error, which is how such a parcel is rejected.
std::string readString(rpc_port_parcel_h parcel) {
  char *raw = nullptr;
  rpc_port_parcel_read_string(parcel, &raw);
  const std::unique_ptr<char, FreeDeleter> owned(raw);
  return {owned.get()};
}

rpc_port_parcel_h writeBytes(rpc_port_parcel_h parcel, const std::vector<unsigned char> &bytes) {
  rpc_port_parcel_write_array_count(parcel, static_cast<int>(bytes.size()));
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
  for (char *at = reinterpret_cast<char *>(bytes.data() + first); at != end; ++at) {
    rpc_port_parcel_read_byte(parcel, at);
  }
  for (size_t index = bytes.size() - first; index < wanted; ++index) {
    bytes.push_back(0);
    rpc_port_parcel_read_byte(parcel, reinterpret_cast<char *>(&bytes.back()));
  }
  return parcel;
}

rpc_port_parcel_h readDevice(rpc_port_parcel_h parcel, DeviceRecord &device) {
  device.address = readString(parcel);
  device.type = readInt32(parcel);
  device.name = readString(parcel);
  return parcel;
}

rpc_port_parcel_h readDeviceList(rpc_port_parcel_h parcel, std::vector<DeviceRecord> &devices) {
  int count = 0;
  rpc_port_parcel_read_array_count(parcel, &count);
  for (int index = 0; index < count; ++index) {
    DeviceRecord device;
    readDevice(parcel, device);
    devices.push_back(std::move(device));
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
  DeviceRecord device;
  readDevice(parcel, device);
  OnReceived(std::move(device));
}

void OxaAgentInterface::OnDeviceLostEvent::OnParcelReceived(rpc_port_parcel_h parcel) {
  DeviceRecord device;
  readDevice(parcel, device);
  OnReceived(std::move(device));
}

void OxaAgentInterface::OnContextChangedEvent::OnParcelReceived(rpc_port_parcel_h parcel) {
  DeviceRecord device;
  readDevice(parcel, device);
  OnReceived(std::move(device));
}

void OxaAgentInterface::AddDelegate(std::unique_ptr<CallbackBase> delegate) {
  const int id = delegate->id_;
  const int seqId = delegate->seqId_;
  delegates.push_back(std::move(delegate));
  delegateIndex.Add(id, seqId, std::prev(delegates.end()));
}

void OxaAgentInterface::RemoveDelegate(DelegateList::iterator position) {
  delegateIndex.Remove((*position)->id_, (*position)->seqId_, position);
  delegates.erase(position);
}

void OxaAgentInterface::ClearDelegates() {
  delegateIndex.Clear();
  delegates.clear();
}

void OxaAgentInterface::DisposeCallback(const std::string &tag) {
  for (auto position = delegates.begin(); position != delegates.end(); ++position) {
    if ((*position)->GetTag() == tag) {
      RemoveDelegate(position);
      return;
    }
  }
}

// Runs on the platform's event thread without the call lock, as the connection callbacks do.
void OxaAgentInterface::Dispatch(rpc_port_parcel_h parcel) {
  int id = 0;
  int seqId = 0;
  bool once = false;  // the parcel's flag takes no part: the delegate's own flag decides
  CallbackBase::ReadDelegate(parcel, id, seqId, once);
  const DelegateList::iterator *found = delegateIndex.Find(id, seqId);
  if (found == nullptr) {
    return;
  }
  const auto position = *found;
  (*position)->OnParcelReceived(parcel);
  if ((*position)->once_) {
    RemoveDelegate(position);
  }
}

void OxaAgentInterface::OnReceivedCB(const char * /*endpoint*/, const char * /*portName*/,
                                     void *data) {
  auto *self = static_cast<OxaAgentInterface *>(data);
  rpc_port_parcel_h raw = nullptr;
  if (rpc_port_parcel_create_from_port(&raw, self->callbackPort) != RPC_PORT_ERROR_NONE) {
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
}

// The members then go in reverse order: the app id, then the delegates.
OxaAgentInterface::~OxaAgentInterface() {
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
  auto *self = static_cast<OxaAgentInterface *>(data);
  self->port = port;
  rpc_port_proxy_get_port(self->proxyHandle, RPC_PORT_PORT_CALLBACK, &self->callbackPort);
  self->listener->OnConnected();
}

// The ports stay set: later calls fail at send time rather than as "not connected".
void OxaAgentInterface::OnDisconnectedCB(const char * /*endpoint*/, const char * /*portName*/,
                                         void *data) {
  auto *self = static_cast<OxaAgentInterface *>(data);
  self->ClearDelegates();
  self->listener->OnDisconnected();
}

void OxaAgentInterface::OnRejectedCB(const char * /*endpoint*/, const char * /*portName*/,
                                     void *data) {
  static_cast<OxaAgentInterface *>(data)->listener->OnRejected();
}

// ---- Call frame --------------------------------------------------------------------------------

OxaAgentInterface::Parcel OxaAgentInterface::BeginRequest(const char *method, int methodId) {
  if (port == nullptr) {
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
  const int result = rpc_port_parcel_send(request.get(), port);
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

// Waits on the main port for the reply (command id 0); anything else there is skipped.
OxaAgentInterface::Parcel OxaAgentInterface::ReadReply(
    const char *method, Parcel &request, std::unique_lock<std::recursive_mutex> &lock) {
  for (;;) {
    rpc_port_parcel_h raw = nullptr;
    if (rpc_port_parcel_create_from_port(&raw, port) != RPC_PORT_ERROR_NONE) {
      break;
    }
    Parcel reply(raw);
    if (readInt32(reply.get()) == kCommandReply) {
      lock.unlock();
      return reply;
    }
  }
  lock.unlock();
  PROXY_LOGE(method, "Invalid protocol");
  // The request parcel is abandoned here, not destroyed: an established trait of this path
  // that the unit tests pin down, so that any change to it is a deliberate one.
  static_cast<void>(request.release());
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
  readDevice(reply.get(), device);
  return readInt32(reply.get());
}

int OxaAgentInterface::GetAdvRawData(const std::string &address, std::vector<unsigned char> &data) {
  Parcel request = BeginRequest(__func__, kGetAdvRawData);
  rpc_port_parcel_write_string(request.get(), address.c_str());
  const Parcel reply = Call(__func__, request);
  readBytes(reply.get(), data);
  return readInt32(reply.get());
}

int OxaAgentInterface::GetContext(const std::string &address, int handlerId, int contextType,
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
