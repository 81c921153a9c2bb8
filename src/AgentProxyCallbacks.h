#ifndef OXA_SRC_AGENT_PROXY_CALLBACKS_H_
#define OXA_SRC_AGENT_PROXY_CALLBACKS_H_

#include <atomic>
#include <functional>
#include <map>
#include <mutex>

#include "AgentProxy.h"
#include "Service.h"
#include "ShortLock.h"
#include "oxa.h"

namespace Oxa::Capi {

using AgentInterface = rpc_port::AgentProxy::proxy::OxaAgentInterface;
using rpc_port::AgentProxy::CommandRecord;
using rpc_port::AgentProxy::DeviceRecord;

// Delegate ids the agent knows the events by.
enum DelegateId : int {
  kServiceRegisteredDelegate = 1,
  kServiceStateChangedDelegate = 2,
  kCommandSentDelegate = 3,
  kCommandReceivedDelegate = 4,
  kDeviceFoundDelegate = 5,
  kDeviceLostDelegate = 6,
  kContextChangedDelegate = 7,
};

// Commands awaiting their sent event, by the sequence number of the record that carried them.
// Shared by the request threads that send and the event thread that reports: every access goes
// through toSentCommandRecord and takeSentCommand, which hold sentCommandsGuard for the insert or
// the lookup and erase only.
extern std::map<int, Command *> sentCommands;
// The application's simple messages awaiting their sent event, by the sequence number of the
// wrapper command that carries each; entered and left by OnSimpleMessageSentCallback.
extern std::map<int, SimpleMessage *> sentMessages;
// Guards sentCommands and sentMessages.
extern ShortLock sentCommandsGuard;
// Sequence number of the next sent command record; the first one of the process is 0.
extern std::atomic<int> sentCommandCounter;

// The record carrying `command` for the service `handlerId`, numbered with the next sequence
// number; `command` is entered in sentCommands under that number.
CommandRecord toSentCommandRecord(int handlerId, Command *command);
// Removes the entry for `seqId` from sentCommands; returns what it held, or nullptr. An entry
// whose command belongs to `refused` is left in place, and nullptr returned.
Command *takeSentCommand(int seqId, Command::Owner refused = Command::Owner::Anyone);
// The application destroys `command` or `message`: a sent event still to come for it then finds
// nothing, and so calls nothing with the freed object.
void forgetSentCommand(const Command *command);
void forgetSentMessage(const SimpleMessage *message);

using ServiceStateChangedCallback = std::function<void(int)>;
using CommandReceivedCallback = std::function<void(Command *)>;
using DeviceCallback = std::function<void(Device *)>;
using SimpleMessageReceivedCallback = std::function<void(const char *, unsigned char *, int)>;

class OnServiceRegisteredCallback : public AgentInterface::OnServiceRegisteredEvent {
 public:
  explicit OnServiceRegisteredCallback(RegisteredCallback callback);
  void OnReceived(int result) override;

 private:
  RegisteredCallback callback;
};

class OnServiceStateChangedCallback : public AgentInterface::OnServiceStateChangedEvent {
 public:
  explicit OnServiceStateChangedCallback(ServiceStateChangedCallback callback);
  void OnReceived(bool state) override;

 private:
  ServiceStateChangedCallback callback;
};

class OnCommandSentCallback : public AgentInterface::OnCommandSentEvent {
 public:
  explicit OnCommandSentCallback(CommandSentCallback callback);
  void OnReceived(int result, const CommandRecord &command) override;

 private:
  CommandSentCallback callback;
};

class OnCommandReceivedCallback : public AgentInterface::OnCommandReceivedEvent {
 public:
  explicit OnCommandReceivedCallback(CommandReceivedCallback callback);
  void OnReceived(const CommandRecord &command) override;
  void OnReceived(CommandRecord &&command) override;

 private:
  CommandReceivedCallback callback;
};

class OnDeviceFoundCallback : public AgentInterface::OnDeviceFoundEvent {
 public:
  explicit OnDeviceFoundCallback(DeviceCallback callback);
  void OnReceived(const DeviceRecord &device) override;
  void OnReceived(DeviceRecord &&device) override;

 private:
  DeviceCallback callback;
};

class OnDeviceLostCallback : public AgentInterface::OnDeviceLostEvent {
 public:
  explicit OnDeviceLostCallback(DeviceCallback callback);
  void OnReceived(const DeviceRecord &device) override;
  void OnReceived(DeviceRecord &&device) override;

 private:
  DeviceCallback callback;
};

class OnContextChangedCallback : public AgentInterface::OnContextChangedEvent {
 public:
  explicit OnContextChangedCallback(DeviceCallback callback);
  void OnReceived(const DeviceRecord &device) override;
  void OnReceived(DeviceRecord &&device) override;

 private:
  DeviceCallback callback;
};

// A simple message travels as a command, the wrapper entered in sentCommands under `wrapperSeq`.
// The wrapper is released by the sent event that names it, or with this delegate when no such
// event can come any more (the proxy drops its delegates on disconnection). The message waits in
// sentMessages under the same number for as long as this delegate lives.
class OnSimpleMessageSentCallback : public AgentInterface::OnCommandSentEvent {
 public:
  OnSimpleMessageSentCallback(SimpleMessageSentCallback callback, SimpleMessage *message,
                              int wrapperSeq);
  ~OnSimpleMessageSentCallback() override;
  OnSimpleMessageSentCallback(const OnSimpleMessageSentCallback &) = delete;
  OnSimpleMessageSentCallback &operator=(const OnSimpleMessageSentCallback &) = delete;
  void OnReceived(int result, const CommandRecord &command) override;

 private:
  SimpleMessageSentCallback callback;
  int wrapperSeq;
};

// Unwraps a received command into a simple message: two header bytes, then the data.
class OnSimpleMessageReceivedCallback : public AgentInterface::OnCommandReceivedEvent {
 public:
  explicit OnSimpleMessageReceivedCallback(SimpleMessageReceivedCallback callback);
  using OnCommandReceivedEvent::OnReceived;
  void OnReceived(const CommandRecord &command) override;

 private:
  SimpleMessageReceivedCallback callback;
};

}  // namespace Oxa::Capi

#endif  // OXA_SRC_AGENT_PROXY_CALLBACKS_H_
