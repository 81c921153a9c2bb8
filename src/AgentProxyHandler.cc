#include "AgentProxyHandler.h"

#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <utility>

#include "Exception.h"

// The platform's last error of the calling thread; its header drags in more than this one call.
extern "C" int get_last_result(void);

namespace Oxa::Capi {

namespace {

using rpc_port::AgentProxy::proxy::InvalidIOException;
using rpc_port::AgentProxy::proxy::InvalidProtocolException;
using rpc_port::AgentProxy::proxy::PermissionDeniedException;

constexpr int kSimpleMessageCommandType = OXA_COMMAND_TYPE_3;
constexpr int kSimpleMessageCommandId = 3;

// Rejection reasons that the application can act on; any other one is an internal error.
bool isReportableRejection(int error) {
  return error == OXA_ERROR_NONE || error == OXA_ERROR_IO_ERROR ||
         error == OXA_ERROR_PERMISSION_DENIED || error == OXA_ERROR_INVALID_OPERATION;
}

// "<count>: <byte> <byte> ..." with each byte as two hexadecimal digits.
std::string toHex(const std::vector<unsigned char> &data) {
  std::string text = std::to_string(data.size()) + ":";
  text.reserve(text.size() + data.size() * 3);
  for (unsigned char byte : data) {
    char digits[4];
    std::snprintf(digits, sizeof(digits), " %02x", byte);
    text += digits;
  }
  return text;
}

Device toDevice(const DeviceRecord &record) {
  return {record.address, toDeviceType(record.type), record.name};
}

// The low byte of the sender's application id and a 0 byte, then the message's data.
std::vector<unsigned char> toSimpleMessagePayload(int appId, const SimpleMessage &message) {
  const std::vector<unsigned char> &data = message.getData();
  std::vector<unsigned char> payload;
  payload.reserve(data.size() + 2);
  payload.push_back(static_cast<unsigned char>(appId & 0xff));
  payload.push_back(0);
  payload.insert(payload.end(), data.begin(), data.end());
  return payload;
}

// The wrapper command of a simple message belongs to sentCommands from the moment it is entered
// there; if the send does not go through, nobody will take it back, so this removes it again.
class SentWrapperGuard {
 public:
  explicit SentWrapperGuard(int seqId) : seqId(seqId) {}
  ~SentWrapperGuard() {
    if (!sent) {
      delete takeSentCommand(seqId);
    }
  }
  SentWrapperGuard(const SentWrapperGuard &) = delete;
  SentWrapperGuard &operator=(const SentWrapperGuard &) = delete;

  void markSent() { sent = true; }

 private:
  int seqId;
  bool sent = false;
};

}  // namespace

AgentProxyHandler &AgentProxyHandler::GetInstance() {
  static AgentProxyHandler instance;
  return instance;
}

int AgentProxyHandler::Connect(RegisteredCallback callback) {
  OXA_LOGI("OXA CAPI %s", OXA_VERSION);
  if (connectionState == kConnected) {
    OXA_LOGI("Already connected");
    return OXA_ERROR_NONE;
  }
  try {
    std::shared_ptr<AgentInterface> fresh = AgentInterface::Create(this, OXA_AGENT_APPID);
    replaceProxy(fresh, std::move(callback));
    fresh->Connect(false);
    return OXA_ERROR_NONE;
  } catch (const PermissionDeniedException &) {
    return failConnect(kPermissionDenied, OXA_ERROR_PERMISSION_DENIED);
  } catch (const InvalidIOException &) {
    return failConnect(kConnectFailed, OXA_ERROR_IO_ERROR);
  } catch (const std::exception &) {
    return failConnect(kConnectFailed, OXA_ERROR_IO_ERROR);
  }
}

// The previous proxy goes now unless a request in flight or an event in progress still holds
// it; it is detached first, so that nothing of it reaches this handler any more.
void AgentProxyHandler::replaceProxy(std::shared_ptr<AgentInterface> fresh,
                                     RegisteredCallback callback) {
  std::shared_ptr<AgentInterface> previous;
  RegisteredCallback replaced;
  {
    const std::lock_guard<ShortLock> lock(guard);
    previous = std::exchange(proxy, std::move(fresh));
    if (previous) {
      previous->Detach();
    }
    replaced = std::exchange(initializedCallback, std::move(callback));
  }
}

int AgentProxyHandler::failConnect(int state, int error) {
  RegisteredCallback forgotten;
  {
    const std::lock_guard<ShortLock> lock(guard);
    forgotten = std::exchange(initializedCallback, nullptr);
  }
  connectionState = state;
  return error;
}

std::shared_ptr<AgentInterface> AgentProxyHandler::currentProxy() const {
  const std::lock_guard<ShortLock> lock(guard);
  return proxy;
}

RegisteredCallback AgentProxyHandler::currentInitializedCallback() const {
  const std::lock_guard<ShortLock> lock(guard);
  return initializedCallback;
}

void AgentProxyHandler::OnConnected() {
  OXA_LOGI("App is connected to OXA Agent");
  if (!currentProxy()) {
    OXA_LOGE("No AgentProxyHandler");
    currentInitializedCallback()(OXA_ERROR_INTERNAL_ERROR);
    return;
  }
  connectionState = kConnected;
  currentInitializedCallback()(OXA_ERROR_NONE);
}

void AgentProxyHandler::OnDisconnected() {
  OXA_LOGE("Connection is disconnected");
  connectionState = kNotConnected;
  currentInitializedCallback()(OXA_ERROR_INTERNAL_ERROR);
}

void AgentProxyHandler::OnRejected() {
  const int error = get_last_result();
  OXA_LOGE("Connection is rejected. error[%d]", error);
  currentInitializedCallback()(isReportableRejection(error) ? static_cast<oxa_error_e>(error)
                                                            : OXA_ERROR_INTERNAL_ERROR);
}

int AgentProxyHandler::Disconnect() {
  if (connectionState != kConnected) {
    OXA_LOGI("Already disconnected");
    return OXA_ERROR_NONE;
  }
  connectionState = kNotConnected;
  // The agent's answer to Unregister does not matter; only a failed exchange is reported.
  const int result = callProxy([](AgentInterface &agent) {
    agent.Unregister();
    return OXA_ERROR_NONE;
  });
  if (result == OXA_ERROR_PERMISSION_DENIED) {
    connectionState = kPermissionDenied;
  } else if (result == OXA_ERROR_IO_ERROR) {
    connectionState = kConnectFailed;
  }
  return result;
}

bool AgentProxyHandler::isConnected(const char *function, int line) const {
  if (connectionState == kConnected) {
    return true;
  }
  writeLog(DLOG_ERROR, __FILE__, function, line, "AgentProxyHandler is not initialized");
  return false;
}

// The one place where the proxy's failures become codes. NotConnectedSocketException is not
// caught: the proxy only throws it when called before any connection, which the state check
// of every request already rules out.
template <typename Call>
int AgentProxyHandler::callProxy(Call &&call, const char *function, int line) {
  const std::shared_ptr<AgentInterface> agent = currentProxy();
  try {
    return call(*agent);
  } catch (const PermissionDeniedException &) {
    return OXA_ERROR_PERMISSION_DENIED;
  } catch (const InvalidIOException &) {
    return OXA_ERROR_IO_ERROR;
  } catch (const InvalidProtocolException &) {
    writeLog(DLOG_ERROR, __FILE__, function, line, "InvalidProtocolException");
    return OXA_ERROR_INTERNAL_ERROR;
  } catch (const std::exception &e) {
    writeLog(DLOG_ERROR, __FILE__, function, line, "Exception: %s", e.what());
    return OXA_ERROR_INTERNAL_ERROR;
  }
}

template <typename Call>
int AgentProxyHandler::request(Call &&call, const char *function, int line) {
  if (!isConnected(function, line)) {
    return OXA_ERROR_INTERNAL_ERROR;
  }
  return callProxy(std::forward<Call>(call), function, line);
}

template <typename Delegate, typename Event, typename Function>
int AgentProxyHandler::registerEvent(int (AgentInterface::*method)(int, std::unique_ptr<Event> &&),
                                     int handlerId, Function &&callback, const char *function,
                                     int line) {
  return request(
      [&](AgentInterface &agent) {
        return (agent.*method)(handlerId,
                               std::make_unique<Delegate>(std::forward<Function>(callback)));
      },
      function, line);
}

int AgentProxyHandler::UnregisterService(int handlerId) {
  return request([&](AgentInterface &agent) { return agent.UnregisterService(handlerId); });
}

int AgentProxyHandler::GetServiceState(int handlerId, bool &state) {
  return request([&](AgentInterface &agent) { return agent.GetServiceState(handlerId, state); });
}

int AgentProxyHandler::SetAppId(int appId) {
  return request([&](AgentInterface &agent) { return agent.SetAppId(appId); });
}

int AgentProxyHandler::StartDiscovery(int handlerId) {
  return request([&](AgentInterface &agent) { return agent.StartDiscovery(handlerId); });
}

int AgentProxyHandler::StopDiscovery(int handlerId) {
  return request([&](AgentInterface &agent) { return agent.StopDiscovery(handlerId); });
}

// The agent answers a registration through the delegate only.
int AgentProxyHandler::RegisterService(int handlerId, RegisteredCallback callback) {
  return request([&](AgentInterface &agent) {
    agent.RegisterService(handlerId,
                          std::make_unique<OnServiceRegisteredCallback>(std::move(callback)));
    return OXA_ERROR_NONE;
  });
}

int AgentProxyHandler::SendCommand(int handlerId, Command *command, CommandSentCallback callback) {
  if (command == nullptr) {
    OXA_LOGE("No command");
    return OXA_ERROR_INVALID_PARAMETER;
  }
  // The entry stays in sentCommands even if the exchange fails: a command the agent did take
  // may still be reported.
  return request([&](AgentInterface &agent) {
    const CommandRecord record = toSentCommandRecord(handlerId, command);
    return agent.SendCommand(handlerId, record,
                             std::make_unique<OnCommandSentCallback>(std::move(callback)));
  });
}

int AgentProxyHandler::GetAdvRawData(const Text &address, std::vector<unsigned char> &data) {
  if (!isConnected()) {
    return OXA_ERROR_INTERNAL_ERROR;
  }
  OXA_LOGD("+");
  std::optional<int> agentResult;
  const int result = callProxy(
      [&](AgentInterface &agent) { return *(agentResult = agent.GetAdvRawData(address, data)); });
  if (agentResult.value_or(OXA_ERROR_NONE) != OXA_ERROR_NONE) {
    OXA_LOGE("GetMyDevice() failed.");
  }
  return result;
}

int AgentProxyHandler::getMyDevice(int handlerId, const std::string &address,
                                   std::unique_ptr<Device> &device) {
  DeviceRecord record;
  std::optional<int> agentResult;
  const int result = request([&](AgentInterface &agent) {
    return *(agentResult = agent.GetMyDevice(handlerId, address, record));
  });
  if (agentResult.value_or(OXA_ERROR_NONE) != OXA_ERROR_NONE) {
    OXA_LOGE("GetMyDevice() failed.");
  }
  if (result == OXA_ERROR_NONE) {
    device = std::make_unique<Device>(toDevice(record));
  }
  return result;
}

int AgentProxyHandler::GetContext(const Text &address, int handlerId, int contextType,
                                  std::vector<unsigned char> &data) {
  std::optional<int> agentResult;
  const int result = request([&](AgentInterface &agent) {
    return *(agentResult = agent.GetContext(address, handlerId, contextType, data));
  });
  if (!agentResult) {
    return result;
  }
  OXA_LOGD("data(%s)", toHex(data).c_str());
  if (*agentResult != OXA_ERROR_NONE) {
    OXA_LOGE("GetMyDevice() failed.");
  }
  return result;
}

int AgentProxyHandler::UpdateContext(int handlerId, int contextType,
                                     const std::vector<unsigned char> &data) {
  if (!isConnected()) {
    return OXA_ERROR_INTERNAL_ERROR;
  }
  OXA_LOGI("handlerId[%d] contextType[%d]", handlerId, contextType);
  OXA_LOGI("data(%s)", toHex(data).c_str());
  return callProxy(
      [&](AgentInterface &agent) { return agent.UpdateContext(handlerId, contextType, data); });
}

int AgentProxyHandler::getFoundDevices(int handlerId, std::vector<Device> &devices) {
  std::vector<DeviceRecord> records;
  std::optional<int> agentResult;
  const int result = request([&](AgentInterface &agent) {
    return *(agentResult = agent.GetFoundDeviceList(handlerId, records));
  });
  if (agentResult.value_or(OXA_ERROR_NONE) != OXA_ERROR_NONE) {
    OXA_LOGE("GetFoundDeviceList() failed.");
  }
  if (result == OXA_ERROR_NONE) {
    devices.reserve(devices.size() + records.size());
    for (const DeviceRecord &record : records) {
      devices.push_back(toDevice(record));
    }
  }
  return result;
}

// A refused state-change registration still reports success: the service works without it.
int AgentProxyHandler::RegisterServiceStateChangedEvent(int handlerId,
                                                        ServiceStateChangedCallback callback) {
  return request([&](AgentInterface &agent) {
    agent.RegisterServiceStateChangedEvent(
        handlerId, std::make_unique<OnServiceStateChangedCallback>(std::move(callback)));
    return OXA_ERROR_NONE;
  });
}

int AgentProxyHandler::UnregisterServiceStateChangedEvent(int handlerId) {
  return request(
      [&](AgentInterface &agent) { return agent.UnregisterServiceStateChangedEvent(handlerId); });
}

int AgentProxyHandler::RegisterCommandReceivedEvent(int handlerId,
                                                    CommandReceivedCallback callback) {
  return registerEvent<OnCommandReceivedCallback>(&AgentInterface::RegisterCommandReceivedEvent,
                                                  handlerId, std::move(callback));
}

int AgentProxyHandler::UnregisterCommandReceivedEvent(int handlerId) {
  return request(
      [&](AgentInterface &agent) { return agent.UnregisterCommandReceivedEvent(handlerId); });
}

int AgentProxyHandler::RegisterSimpleMessageReceivedEvent(int handlerId,
                                                          SimpleMessageReceivedCallback callback) {
  return registerEvent<OnSimpleMessageReceivedCallback>(
      &AgentInterface::RegisterCommandReceivedEvent, handlerId, std::move(callback));
}

int AgentProxyHandler::UnregisterSimpleMessageReceivedEvent(int handlerId) {
  return request(
      [&](AgentInterface &agent) { return agent.UnregisterCommandReceivedEvent(handlerId); });
}

int AgentProxyHandler::RegisterDeviceFoundEvent(int handlerId, DeviceCallback callback) {
  return registerEvent<OnDeviceFoundCallback>(&AgentInterface::RegisterDeviceFoundEvent, handlerId,
                                              std::move(callback));
}

int AgentProxyHandler::UnregisterDeviceFoundEvent(int handlerId) {
  return request(
      [&](AgentInterface &agent) { return agent.UnregisterDeviceFoundEvent(handlerId); });
}

int AgentProxyHandler::RegisterDeviceLostEvent(int handlerId, DeviceCallback callback) {
  return registerEvent<OnDeviceLostCallback>(&AgentInterface::RegisterDeviceLostEvent, handlerId,
                                             std::move(callback));
}

int AgentProxyHandler::UnregisterDeviceLostEvent(int handlerId) {
  return request([&](AgentInterface &agent) { return agent.UnregisterDeviceLostEvent(handlerId); });
}

int AgentProxyHandler::RegisterContextChangedEvent(int handlerId, DeviceCallback callback) {
  return registerEvent<OnContextChangedCallback>(&AgentInterface::RegisterContextChangedEvent,
                                                 handlerId, std::move(callback));
}

int AgentProxyHandler::UnregisterContextChangedEvent(int handlerId) {
  return request(
      [&](AgentInterface &agent) { return agent.UnregisterContextChangedEvent(handlerId); });
}

int AgentProxyHandler::SendSimpleMessage(int handlerId, int appId, SimpleMessage *message,
                                         SimpleMessageSentCallback callback) {
  if (message == nullptr) {
    OXA_LOGE("No message");
    return OXA_ERROR_INVALID_PARAMETER;
  }
  return request([&](AgentInterface &agent) {
    auto wrapper = std::make_unique<Command>(
        message->getAddress(), kSimpleMessageCommandType, kSimpleMessageCommandId,
        toSimpleMessagePayload(appId, *message), Command::Owner::Library);
    const CommandRecord record = toSentCommandRecord(handlerId, wrapper.get());
    SentWrapperGuard guard(record.seqId);
    static_cast<void>(wrapper.release());  // sentCommands owns it now
    const int result = agent.SendCommand(
        handlerId, record,
        std::make_unique<OnSimpleMessageSentCallback>(std::move(callback), message, record.seqId));
    guard.markSent();
    return result;
  });
}

}  // namespace Oxa::Capi
