#ifndef OXA_TOOLS_AGENT_SIM_PROTOCOL_H_
#define OXA_TOOLS_AGENT_SIM_PROTOCOL_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace oxa_sim {

using Bytes = std::vector<unsigned char>;

// The agent methods as the library numbers them on the wire.
enum class Method {
  RegisterService = 2,
  UnregisterService,
  GetServiceState,
  RegisterServiceStateChangedEvent,
  UnregisterServiceStateChangedEvent,
  SendCommand,
  RegisterCommandReceivedEvent,
  UnregisterCommandReceivedEvent,
  RegisterDeviceFoundEvent,
  UnregisterDeviceFoundEvent,
  RegisterDeviceLostEvent,
  UnregisterDeviceLostEvent,
  RegisterContextChangedEvent,
  UnregisterContextChangedEvent,
  StartDiscovery,
  StopDiscovery,
  GetFoundDeviceList,
  GetMyDevice,
  GetAdvRawData,
  GetContext,
  UpdateContext,
  SetAppId,
  Unregister,
};

constexpr int kFirstMethodId = static_cast<int>(Method::RegisterService);
constexpr int kLastMethodId = static_cast<int>(Method::Unregister);

// Values of a request, in the order they travel after the method id.
enum class RequestField { HandlerId, Address, ContextType, AppId, Bytes, Command, Delegate };
// Out-values of a reply, before the int32 result that ends every reply.
enum class ReplyField { State, Device, DeviceList, Bytes };

struct MethodLayout {
  Method method;
  const char *name;
  std::vector<RequestField> request;
  std::vector<ReplyField> reply;
  bool replies;
};

const MethodLayout &layoutOf(Method method);
std::optional<Method> methodFromId(int id);
std::optional<Method> methodFromName(std::string_view name);
const char *methodName(Method method);

// The event kinds an agent reports; the client chooses the delegate id it is addressed with.
enum class EventKind {
  ServiceRegistered,
  ServiceStateChanged,
  CommandSent,
  CommandReceived,
  DeviceFound,
  DeviceLost,
  ContextChanged,
};

const char *eventName(EventKind kind);

struct Delegate {
  int id = 0;
  int seq = 0;
  bool once = false;
};

struct DeviceRecord {
  std::string address;
  int type = 0;
  std::string name;
};

// Wire order: the command id travels before the command type.
struct CommandRecord {
  std::string address;
  int handlerId = 0;
  int id = 0;
  int type = 0;
  Bytes payload;
  int seq = 0;
};

struct Request {
  Method method = Method::Unregister;
  int handlerId = 0;
  std::string address;
  int contextType = 0;
  int appId = 0;
  Bytes bytes;
  CommandRecord command;
  Delegate delegate;
};

struct Reply {
  Method method = Method::Unregister;
  bool state = false;
  DeviceRecord device;
  std::vector<DeviceRecord> devices;
  Bytes bytes;
  int result = 0;
};

struct Event {
  EventKind kind = EventKind::ServiceRegistered;
  Delegate delegate;
  int result = 0;
  bool state = false;
  CommandRecord command;
  DeviceRecord device;
};

// Parcels start with a command id: replies on the main port, events on the callback port.
constexpr int kReplyCommandId = 0;
constexpr int kEventCommandId = 1;

}  // namespace oxa_sim

#endif  // OXA_TOOLS_AGENT_SIM_PROTOCOL_H_
