#include <oxa.h>

#include <algorithm>

#include "Agent.h"

namespace oxa_sim {

namespace {

// The wire form of a simple message: the sender's application id byte and a zero byte lead.
constexpr int kMessageCommandId = 3;
constexpr int kMessageCommandType = OXA_COMMAND_TYPE_3;
constexpr size_t kUsualEventsPerRequest = 4;

Bytes messagePayload(const Bytes &data) {
  Bytes payload(data.size() + 2, 0);
  std::copy(data.begin(), data.end(), payload.begin() + 2);
  return payload;
}

}  // namespace

void Agent::notify(const Client &client, EventKind kind, int handlerId, const Event &event) {
  const auto delegates = client.delegates.find({kind, handlerId});
  if (delegates != client.delegates.end()) {
    replyToEach(client.instance, kind, delegates->second, event);
  }
}

// The record is copied into an event only for a client that has a delegate for it: most
// discoveries and world changes reach clients that never subscribed.
void Agent::notifyDevice(const Client &client, EventKind kind, int handlerId,
                         const DeviceRecord &device) {
  const auto delegates = client.delegates.find({kind, handlerId});
  if (delegates == client.delegates.end()) {
    return;
  }
  Event event;
  event.device = device;
  replyToEach(client.instance, kind, delegates->second, event);
}

void Agent::replyToEach(const std::string &instance, EventKind kind,
                        const std::vector<Delegate> &delegates, const Event &event) {
  for (const Delegate &delegate : delegates) {
    reply(instance, kind, delegate, event);
  }
}

void Agent::reply(const std::string &instance, EventKind kind, const Delegate &delegate,
                  Event event) {
  event.kind = kind;
  event.delegate = delegate;
  // The outbox is handed away after each request; most requests cause a few events.
  if (outbox_.capacity() == 0) {
    outbox_.reserve(kUsualEventsPerRequest);
  }
  outbox_.push_back({instance, std::move(event)});
}

// Found or lost: reported to every other client whose discovery runs for the handlerId.
void Agent::announce(const SimDevice &device, EventKind kind) {
  for (const Client *client : clients_.all()) {
    if (client->instance == device.owner) {
      continue;
    }
    for (const auto &[handlerId, active] : client->discovery) {
      if (active) {
        notifyDevice(*client, kind, handlerId, device.record);
      }
    }
  }
}

void Agent::contextChanged(const SimDevice &device, int serviceType) {
  for (const Client *client : clients_.all()) {
    if (client->instance != device.owner) {
      notifyDevice(*client, EventKind::ContextChanged, serviceType, device.record);
    }
  }
}

// A command that reached a present device: a client receives it from the sender's address, an
// echo peer sends the same command straight back.
void Agent::deliverCommand(const Client &sender, const CommandRecord &command) {
  const SimDevice *target = world_.findPresent(command.address);
  Event event;
  event.command = command;
  if (target->echo) {
    event.command.address = target->record.address;
    notify(sender, EventKind::CommandReceived, command.handlerId, event);
    return;
  }
  if (const Client *receiver = clients_.findByAddress(command.address)) {
    event.command.address = sender.address;
    notify(*receiver, EventKind::CommandReceived, command.handlerId, event);
  }
}

void Agent::commandFromDevice(const SimDevice &device, CommandRecord command) {
  command.address = device.record.address;
  command.seq = commandSeq_++;
  for (const Client *client : clients_.all()) {
    Event event;
    event.command = command;
    notify(*client, EventKind::CommandReceived, command.handlerId, event);
  }
}

std::vector<Outgoing> Agent::play(const TimelineEntry &entry) {
  SimDevice *device = world_.find(entry.address);
  if (device == nullptr) {
    return {};
  }
  switch (entry.action) {
    case TimelineAction::Appear:
      device->present = true;
      announce(*device, EventKind::DeviceFound);
      break;
    case TimelineAction::Disappear:
      device->present = false;
      announce(*device, EventKind::DeviceLost);
      break;
    case TimelineAction::Context:
      device->contexts[{entry.serviceType, entry.contextType}] = entry.data;
      contextChanged(*device, entry.serviceType);
      break;
    case TimelineAction::Command:
      commandFromDevice(*device,
                        {"", entry.serviceType, entry.commandId, entry.commandType, entry.data, 0});
      break;
    case TimelineAction::Message:
      commandFromDevice(*device, {"", entry.serviceType, kMessageCommandId, kMessageCommandType,
                                  messagePayload(entry.data), 0});
      break;
  }
  return takeOutbox();
}

std::vector<Outgoing> Agent::addDevice(SimDevice device) {
  world_.add(std::move(device));
  const SimDevice &added = world_.devices().back();
  if (added.present) {
    announce(added, EventKind::DeviceFound);
  }
  return takeOutbox();
}

std::vector<Outgoing> Agent::removeDevice(const std::string &address) {
  if (const SimDevice *device = world_.findPresent(address)) {
    announce(*device, EventKind::DeviceLost);
  }
  world_.remove(address);
  return takeOutbox();
}

bool Agent::hasSimulatedDevice(const std::string &address) {
  const SimDevice *device = world_.find(address);
  return device != nullptr && device->owner.empty();
}

}  // namespace oxa_sim
