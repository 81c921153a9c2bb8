#include "Service.h"

#include <utility>

#include "AgentProxyHandler.h"
#include "Exception.h"

namespace Oxa::Capi {

int toDeviceType(int type) {
  if (type >= OXA_DEVICE_TYPE_1 && type <= OXA_DEVICE_TYPE_5) {
    return type;
  }
  return OXA_DEVICE_TYPE_UNKNOWN;
}

Service::Service(int type) : requestedType(type), type(checkServiceType(type)) {}

Service::~Service() {
  registration->alive = false;
  bool registered = false;
  {
    const std::lock_guard<std::mutex> guard(registration->guard);
    registered = static_cast<bool>(registration->callback);
  }
  if (registered) {
    AgentProxyHandler::GetInstance().UnregisterService(type);
    exchangeRegistrationCallback(nullptr);
  }
}

RegisteredCallback Service::exchangeRegistrationCallback(RegisteredCallback callback) {
  const std::lock_guard<std::mutex> guard(registration->guard);
  return std::exchange(registration->callback, std::move(callback));
}

bool Service::permissionDenied(const char *function, int line) {
  if (!AgentProxyHandler::GetInstance().IsConnectionFailed()) {
    return false;
  }
  writeLog(DLOG_ERROR, __FILE__, function, line, "Permission denied");
  return true;
}

int Service::registerService(RegisteredCallback callback) {
  if (permissionDenied()) {
    return OXA_ERROR_PERMISSION_DENIED;
  }
  exchangeRegistrationCallback(std::move(callback));
  return AgentProxyHandler::GetInstance().RegisterService(
      type, [shared = registration](oxa_error_e result) { onRegistered(*shared, result); });
}

// A pending registration reports through whichever callback the latest registerService stored,
// called without the guard so that it may use the service, destroy it included.
void Service::onRegistered(Registration &registration, oxa_error_e result) {
  OXA_LOGI("Service is registered. result[%d]", result);
  RegisteredCallback callback;
  {
    const std::lock_guard<std::mutex> guard(registration.guard);
    callback = registration.callback;
  }
  if (callback) {
    callback(result);
  }
}

int Service::unregisterService() {
  exchangeRegistrationCallback(nullptr);
  return AgentProxyHandler::GetInstance().UnregisterService(type);
}

int Service::getState(int &state) {
  bool agentState = false;
  const int result = AgentProxyHandler::GetInstance().GetServiceState(type, agentState);
  // An agent that cannot tell the state is reported as a service that is not running.
  if (result == OXA_ERROR_INTERNAL_ERROR) {
    state = 0;
    return OXA_ERROR_NONE;
  }
  state = agentState ? 1 : 0;
  return result;
}

int Service::setAppId(int id) {
  if (type != OXA_SERVICE_TYPE_6) {
    OXA_LOGE("Invalid service type");
    return OXA_ERROR_NOT_SUPPORTED;
  }
  appId = id;
  return AgentProxyHandler::GetInstance().SetAppId(id);
}

int Service::startDiscovery() {
  if (permissionDenied()) {
    return OXA_ERROR_PERMISSION_DENIED;
  }
  return AgentProxyHandler::GetInstance().StartDiscovery(type);
}

int Service::stopDiscovery() {
  if (permissionDenied()) {
    return OXA_ERROR_PERMISSION_DENIED;
  }
  return AgentProxyHandler::GetInstance().StopDiscovery(type);
}

int Service::updateContext(int contextType, const std::vector<unsigned char> &context) {
  if (permissionDenied()) {
    return OXA_ERROR_PERMISSION_DENIED;
  }
  return AgentProxyHandler::GetInstance().UpdateContext(type, contextType, context);
}

int Service::sendCommand(Command *command, CommandSentCallback callback) {
  if (command == nullptr) {
    OXA_LOGE("No command");
    return OXA_ERROR_INVALID_PARAMETER;
  }
  if (permissionDenied()) {
    return OXA_ERROR_PERMISSION_DENIED;
  }
  return AgentProxyHandler::GetInstance().SendCommand(type, command, std::move(callback));
}

int Service::sendSimpleMessage(SimpleMessage *message, SimpleMessageSentCallback callback) {
  if (message == nullptr) {
    OXA_LOGE("No message");
    return OXA_ERROR_INVALID_PARAMETER;
  }
  if (permissionDenied()) {
    return OXA_ERROR_PERMISSION_DENIED;
  }
  return AgentProxyHandler::GetInstance().SendSimpleMessage(type, appId.load(), message,
                                                            std::move(callback));
}

}  // namespace Oxa::Capi
