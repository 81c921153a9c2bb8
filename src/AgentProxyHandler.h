#ifndef OXA_SRC_AGENT_PROXY_HANDLER_H_
#define OXA_SRC_AGENT_PROXY_HANDLER_H_

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "AgentProxy.h"
#include "AgentProxyCallbacks.h"
#include "Service.h"
#include "ShortLock.h"
#include "oxa.h"

namespace Oxa::Capi {

// The process-wide link to the agent: owns the proxy, tracks the connection and turns every
// request into one proxy call whose failures become oxa_error_e codes. Requests come from any
// thread, the connection events from the platform's event thread: the state is atomic, and
// `guard` is held only to read or replace the proxy and the completion function, never while
// either is called.
class AgentProxyHandler : public AgentInterface::IEventListener {
 public:
  static AgentProxyHandler &GetInstance();

  AgentProxyHandler(const AgentProxyHandler &) = delete;
  AgentProxyHandler &operator=(const AgentProxyHandler &) = delete;

  // Starts an asynchronous connection; `callback` later gets its outcome and any loss of it.
  int Connect(RegisteredCallback callback);
  int Disconnect();
  // True once the agent has denied this client permission.
  bool IsConnectionFailed() const { return connectionState == kPermissionDenied; }

  void OnConnected() override;
  void OnDisconnected() override;
  void OnRejected() override;

  int UnregisterService(int handlerId);
  int GetServiceState(int handlerId, bool &state);
  int SetAppId(int appId);
  int StartDiscovery(int handlerId);
  int StopDiscovery(int handlerId);
  int RegisterService(int handlerId, RegisteredCallback callback);
  // `command` stays the caller's and comes back to `callback` with the agent's sent event.
  int SendCommand(int handlerId, Command *command, CommandSentCallback callback);
  // Appends the device's advertised bytes to `data`.
  int GetAdvRawData(const Text &address, std::vector<unsigned char> &data);
  // On success `device` holds a new device that the caller owns; untouched otherwise.
  int getMyDevice(int handlerId, const std::string &address, std::unique_ptr<Device> &device);
  // Appends the device's context bytes to `data`.
  int GetContext(const Text &address, int handlerId, int contextType,
                 std::vector<unsigned char> &data);
  int UpdateContext(int handlerId, int contextType, const std::vector<unsigned char> &data);
  // On success appends the found devices, in the agent's order, to `devices`.
  int getFoundDevices(int handlerId, std::vector<Device> &devices);

  int RegisterServiceStateChangedEvent(int handlerId, ServiceStateChangedCallback callback);
  int UnregisterServiceStateChangedEvent(int handlerId);
  int RegisterCommandReceivedEvent(int handlerId, CommandReceivedCallback callback);
  int UnregisterCommandReceivedEvent(int handlerId);
  int RegisterSimpleMessageReceivedEvent(int handlerId, SimpleMessageReceivedCallback callback);
  // Ends command-received delivery for the service as well: both ride on the same agent event.
  int UnregisterSimpleMessageReceivedEvent(int handlerId);
  int RegisterDeviceFoundEvent(int handlerId, DeviceCallback callback);
  int UnregisterDeviceFoundEvent(int handlerId);
  int RegisterDeviceLostEvent(int handlerId, DeviceCallback callback);
  int UnregisterDeviceLostEvent(int handlerId);
  int RegisterContextChangedEvent(int handlerId, DeviceCallback callback);
  int UnregisterContextChangedEvent(int handlerId);

  // Sends `message` as a command of type 3 and id 3 whose payload starts with the low byte of
  // `appId` and a 0 byte. `message` stays the caller's and comes back to `callback`.
  int SendSimpleMessage(int handlerId, int appId, SimpleMessage *message,
                        SimpleMessageSentCallback callback);

 private:
  enum ConnectionState : int {
    kNotConnected = 0,
    kConnected = 1,
    kPermissionDenied = -1,
    kConnectFailed = -2,
  };

  AgentProxyHandler() = default;
  ~AgentProxyHandler() = default;

  // Installs a new proxy and completion function in place of the previous ones.
  void replaceProxy(std::shared_ptr<AgentInterface> fresh, RegisteredCallback callback);
  // Forgets the completion of a Connect that failed and records why it failed.
  int failConnect(int state, int error);
  // The helpers below log in the name of the request method that calls them: `function` and
  // `line` default to the caller's.
  // True when connected; otherwise logs that the handler is not initialized.
  bool isConnected(const char *function = __builtin_FUNCTION(), int line = __builtin_LINE()) const;
  // Runs `call` on the proxy and turns the proxy's failures into codes.
  template <typename Call>
  int callProxy(Call &&call, const char *function = __builtin_FUNCTION(),
                int line = __builtin_LINE());
  // The connection check, then callProxy.
  template <typename Call>
  int request(Call &&call, const char *function = __builtin_FUNCTION(),
              int line = __builtin_LINE());
  // The current proxy, held by the caller for its call.
  std::shared_ptr<AgentInterface> currentProxy() const;
  // A copy of the completion function, called outside the guard.
  RegisteredCallback currentInitializedCallback() const;
  // Creates a Delegate holding `callback` and hands it to the proxy's registration `method`.
  template <typename Delegate, typename Event, typename Function>
  int registerEvent(int (AgentInterface::*method)(int, std::unique_ptr<Event> &&), int handlerId,
                    Function &&callback, const char *function = __builtin_FUNCTION(),
                    int line = __builtin_LINE());

  std::shared_ptr<AgentInterface> proxy;
  RegisteredCallback initializedCallback;
  std::atomic<int> connectionState{kNotConnected};
  mutable ShortLock guard;
};

}  // namespace Oxa::Capi

#endif  // OXA_SRC_AGENT_PROXY_HANDLER_H_
