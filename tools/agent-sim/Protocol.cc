#include "Protocol.h"

#include <array>

namespace oxa_sim {

namespace {

using RF = RequestField;
using PF = ReplyField;

const std::array<MethodLayout, kLastMethodId - kFirstMethodId + 1> &layouts() {
  static const std::array<MethodLayout, kLastMethodId - kFirstMethodId + 1> table = {{
      {Method::RegisterService, "RegisterService", {RF::HandlerId, RF::Delegate}, {}, false},
      {Method::UnregisterService, "UnregisterService", {RF::HandlerId}, {}, true},
      {Method::GetServiceState, "GetServiceState", {RF::HandlerId}, {PF::State}, true},
      {Method::RegisterServiceStateChangedEvent,
       "RegisterServiceStateChangedEvent",
       {RF::HandlerId, RF::Delegate},
       {},
       true},
      {Method::UnregisterServiceStateChangedEvent,
       "UnregisterServiceStateChangedEvent",
       {RF::HandlerId},
       {},
       true},
      {Method::SendCommand, "SendCommand", {RF::HandlerId, RF::Command, RF::Delegate}, {}, true},
      {Method::RegisterCommandReceivedEvent,
       "RegisterCommandReceivedEvent",
       {RF::HandlerId, RF::Delegate},
       {},
       true},
      {Method::UnregisterCommandReceivedEvent,
       "UnregisterCommandReceivedEvent",
       {RF::HandlerId},
       {},
       true},
      {Method::RegisterDeviceFoundEvent,
       "RegisterDeviceFoundEvent",
       {RF::HandlerId, RF::Delegate},
       {},
       true},
      {Method::UnregisterDeviceFoundEvent, "UnregisterDeviceFoundEvent", {RF::HandlerId}, {}, true},
      {Method::RegisterDeviceLostEvent,
       "RegisterDeviceLostEvent",
       {RF::HandlerId, RF::Delegate},
       {},
       true},
      {Method::UnregisterDeviceLostEvent, "UnregisterDeviceLostEvent", {RF::HandlerId}, {}, true},
      {Method::RegisterContextChangedEvent,
       "RegisterContextChangedEvent",
       {RF::HandlerId, RF::Delegate},
       {},
       true},
      {Method::UnregisterContextChangedEvent,
       "UnregisterContextChangedEvent",
       {RF::HandlerId},
       {},
       true},
      {Method::StartDiscovery, "StartDiscovery", {RF::HandlerId}, {}, true},
      {Method::StopDiscovery, "StopDiscovery", {RF::HandlerId}, {}, true},
      {Method::GetFoundDeviceList, "GetFoundDeviceList", {RF::HandlerId}, {PF::DeviceList}, true},
      {Method::GetMyDevice, "GetMyDevice", {RF::HandlerId, RF::Address}, {PF::Device}, true},
      {Method::GetAdvRawData, "GetAdvRawData", {RF::Address}, {PF::Bytes}, true},
      {Method::GetContext,
       "GetContext",
       {RF::Address, RF::HandlerId, RF::ContextType},
       {PF::Bytes},
       true},
      {Method::UpdateContext,
       "UpdateContext",
       {RF::HandlerId, RF::ContextType, RF::Bytes},
       {},
       true},
      {Method::SetAppId, "SetAppId", {RF::AppId}, {}, true},
      {Method::Unregister, "Unregister", {}, {}, true},
  }};
  return table;
}

}  // namespace

const MethodLayout &layoutOf(Method method) {
  return layouts()[static_cast<size_t>(static_cast<int>(method) - kFirstMethodId)];
}

std::optional<Method> methodFromId(int id) {
  if (id < kFirstMethodId || id > kLastMethodId) {
    return std::nullopt;
  }
  return static_cast<Method>(id);
}

std::optional<Method> methodFromName(std::string_view name) {
  for (const MethodLayout &layout : layouts()) {
    if (name == layout.name) {
      return layout.method;
    }
  }
  return std::nullopt;
}

const char *methodName(Method method) {
  return layoutOf(method).name;
}

const char *eventName(EventKind kind) {
  switch (kind) {
    case EventKind::ServiceRegistered:
      return "ServiceRegistered";
    case EventKind::ServiceStateChanged:
      return "ServiceStateChanged";
    case EventKind::CommandSent:
      return "CommandSent";
    case EventKind::CommandReceived:
      return "CommandReceived";
    case EventKind::DeviceFound:
      return "DeviceFound";
    case EventKind::DeviceLost:
      return "DeviceLost";
    case EventKind::ContextChanged:
      return "ContextChanged";
  }
  return "Unknown";
}

}  // namespace oxa_sim
