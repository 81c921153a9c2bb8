#include "AgentProxyCallbacks.h"

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <utility>

#include "Exception.h"

namespace Oxa::Capi {

namespace {

constexpr size_t kAddressLength = 17;
// Bytes in front of a simple message's data inside its command payload.
constexpr size_t kSimpleMessageHeaderSize = 2;

struct FreeDeleter {
  void operator()(unsigned char *data) const { std::free(data); }
};

Device toDevice(DeviceRecord &&record) {
  return {std::move(record.address), toDeviceType(record.type), std::move(record.name)};
}

// Calls `callback` with a device built from `record`; the device lives for the call only.
void deliverDevice(const DeviceCallback &callback, DeviceRecord &&record) {
  Device device = toDevice(std::move(record));
  if (callback) {
    callback(&device);
  }
}

}  // namespace

std::map<int, Command *> sentCommands;
std::map<int, SimpleMessage *> sentMessages;
ShortLock sentCommandsGuard;
std::atomic<int> sentCommandCounter{0};

CommandRecord toSentCommandRecord(int handlerId, Command *command) {
  CommandRecord record;
  record.address = command->getAddress();
  record.handlerId = handlerId;
  record.id = command->getId();
  record.type = command->getType();
  record.payload = command->getPayload();
  record.seqId = sentCommandCounter++;
  // Last, so that a failure above leaves no entry behind.
  const std::lock_guard<ShortLock> guard(sentCommandsGuard);
  sentCommands[record.seqId] = command;
  return record;
}

Command *takeSentCommand(int seqId, Command::Owner refused) {
  const std::lock_guard<ShortLock> guard(sentCommandsGuard);
  auto entry = sentCommands.find(seqId);
  if (entry == sentCommands.end() ||
      (refused != Command::Owner::Anyone && entry->second->getOwner() == refused)) {
    return nullptr;
  }
  Command *command = entry->second;
  sentCommands.erase(entry);
  return command;
}

namespace {

template <typename Object>
void forgetEntries(std::map<int, Object *> &table, const Object *object) {
  const std::lock_guard<ShortLock> guard(sentCommandsGuard);
  for (auto entry = table.begin(); entry != table.end();) {
    entry = entry->second == object ? table.erase(entry) : std::next(entry);
  }
}

}  // namespace

void forgetSentCommand(const Command *command) {
  forgetEntries(sentCommands, command);
}

void forgetSentMessage(const SimpleMessage *message) {
  forgetEntries(sentMessages, message);
}

OnServiceRegisteredCallback::OnServiceRegisteredCallback(RegisteredCallback callback)
    : OnServiceRegisteredEvent(kServiceRegisteredDelegate, false), callback(std::move(callback)) {}

void OnServiceRegisteredCallback::OnReceived(int result) {
  if (callback) {
    callback(static_cast<oxa_error_e>(result));
  }
}

OnServiceStateChangedCallback::OnServiceStateChangedCallback(ServiceStateChangedCallback callback)
    : OnServiceStateChangedEvent(kServiceStateChangedDelegate, false),
      callback(std::move(callback)) {}

void OnServiceStateChangedCallback::OnReceived(bool state) {
  if (callback) {
    callback(state ? 1 : 0);
  }
}

OnCommandSentCallback::OnCommandSentCallback(CommandSentCallback callback)
    : OnCommandSentEvent(kCommandSentDelegate, false), callback(std::move(callback)) {}

// Without a function the entry stays in sentCommands: nobody would take the command back.
void OnCommandSentCallback::OnReceived(int result, const CommandRecord &command) {
  if (!callback) {
    return;
  }
  callback(takeSentCommand(command.seqId, Command::Owner::Library),
           static_cast<oxa_error_e>(result));
}

OnCommandReceivedCallback::OnCommandReceivedCallback(CommandReceivedCallback callback)
    : OnCommandReceivedEvent(kCommandReceivedDelegate, false), callback(std::move(callback)) {}

void OnCommandReceivedCallback::OnReceived(const CommandRecord &command) {
  Command received(command.address, command.type, command.id, command.payload);
  if (callback) {
    callback(&received);
  }
}

OnDeviceFoundCallback::OnDeviceFoundCallback(DeviceCallback callback)
    : OnDeviceFoundEvent(kDeviceFoundDelegate, false), callback(std::move(callback)) {}

void OnDeviceFoundCallback::OnReceived(const DeviceRecord &device) {
  deliverDevice(callback, DeviceRecord(device));
}

OnDeviceLostCallback::OnDeviceLostCallback(DeviceCallback callback)
    : OnDeviceLostEvent(kDeviceLostDelegate, false), callback(std::move(callback)) {}

void OnDeviceLostCallback::OnReceived(const DeviceRecord &device) {
  deliverDevice(callback, DeviceRecord(device));
}

OnContextChangedCallback::OnContextChangedCallback(DeviceCallback callback)
    : OnContextChangedEvent(kContextChangedDelegate, false), callback(std::move(callback)) {}

void OnContextChangedCallback::OnReceived(const DeviceRecord &device) {
  deliverDevice(callback, DeviceRecord(device));
}

OnSimpleMessageSentCallback::OnSimpleMessageSentCallback(SimpleMessageSentCallback callback,
                                                         SimpleMessage *message, int wrapperSeq)
    : OnCommandSentEvent(kCommandSentDelegate, false),
      callback(std::move(callback)),
      wrapperSeq(wrapperSeq) {
  const std::lock_guard<ShortLock> guard(sentCommandsGuard);
  sentMessages[wrapperSeq] = message;
}

OnSimpleMessageSentCallback::~OnSimpleMessageSentCallback() {
  delete takeSentCommand(wrapperSeq);
  const std::lock_guard<ShortLock> guard(sentCommandsGuard);
  sentMessages.erase(wrapperSeq);
}

// The wrapper is the library's own, so it goes whether or not anyone listens; the agent names
// it by the sequence number of the record it sends back.
void OnSimpleMessageSentCallback::OnReceived(int result, const CommandRecord &command) {
  delete takeSentCommand(command.seqId, Command::Owner::Application);
  if (!callback) {
    return;
  }
  SimpleMessage *message = nullptr;
  {
    const std::lock_guard<ShortLock> guard(sentCommandsGuard);
    const auto entry = sentMessages.find(wrapperSeq);
    message = entry == sentMessages.end() ? nullptr : entry->second;
  }
  callback(message, static_cast<oxa_error_e>(result));
}

OnSimpleMessageReceivedCallback::OnSimpleMessageReceivedCallback(
    SimpleMessageReceivedCallback callback)
    : OnCommandReceivedEvent(kCommandReceivedDelegate, false), callback(std::move(callback)) {}

void OnSimpleMessageReceivedCallback::OnReceived(const CommandRecord &command) {
  const Text &address = command.address;
  if (address.size() != kAddressLength) {
    OXA_LOGE("Invalid MAC address length[%d]", static_cast<int>(address.size()));
    return;
  }
  const std::vector<unsigned char> &payload = command.payload;
  if (payload.size() < kSimpleMessageHeaderSize) {
    OXA_LOGE("Invalid data. payload size[%d]", static_cast<int>(payload.size()));
    return;
  }
  const size_t length = payload.size() - kSimpleMessageHeaderSize;
  OXA_LOGI("Data length[%d]", static_cast<int>(length));
  std::unique_ptr<unsigned char, FreeDeleter> data;
  if (length != 0) {
    data.reset(static_cast<unsigned char *>(std::malloc(length)));
    if (!data) {
      OXA_LOGE("malloc() failed");
      return;
    }
    std::memcpy(data.get(), payload.data() + kSimpleMessageHeaderSize, length);
  }
  if (callback) {
    callback(address.c_str(), data.get(), static_cast<int>(length));
  }
}

// The decoder's own records: their strings and bytes move into the object that is lent.

void OnCommandReceivedCallback::OnReceived(CommandRecord &&command) {
  Command received(std::move(command.address), command.type, command.id,
                   std::move(command.payload));
  if (callback) {
    callback(&received);
  }
}

void OnDeviceFoundCallback::OnReceived(DeviceRecord &&device) {
  deliverDevice(callback, std::move(device));
}

void OnDeviceLostCallback::OnReceived(DeviceRecord &&device) {
  deliverDevice(callback, std::move(device));
}

void OnContextChangedCallback::OnReceived(DeviceRecord &&device) {
  deliverDevice(callback, std::move(device));
}

}  // namespace Oxa::Capi
