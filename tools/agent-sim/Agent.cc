#include "Agent.h"

#include <oxa.h>

namespace oxa_sim {

namespace {

// Clients show up to each other as devices of this type.
constexpr int kClientDeviceType = OXA_DEVICE_TYPE_1;

Reply resultOnly(Method method, int result) {
  Reply reply;
  reply.method = method;
  reply.result = result;
  return reply;
}

}  // namespace

Agent::Agent(const Scenario &scenario, Policy policy) : policy_(std::move(policy)) {
  for (const SimDevice &device : scenario.devices) {
    world_.add(device);
  }
}

std::vector<Outgoing> Agent::connect(const std::string &sender, const std::string &instance) {
  const Client &client = clients_.add(
      sender, instance, [this](const std::string &address) { return hasDevice(address); });
  SimDevice device;
  device.record = {client.address, kClientDeviceType, sender};
  device.owner = instance;
  world_.add(device);
  announce(*world_.find(client.address), EventKind::DeviceFound);
  return takeOutbox();
}

std::vector<Outgoing> Agent::disconnect(const std::string &instance) {
  const Client *client = clients_.find(instance);
  if (client == nullptr) {
    return {};
  }
  const std::string address = client->address;
  clients_.remove(instance);
  if (SimDevice *device = world_.find(address)) {
    announce(*device, EventKind::DeviceLost);
  }
  world_.remove(address);
  return takeOutbox();
}

Peer Agent::peer(const std::string &instance) {
  const Client *client = clients_.find(instance);
  return client == nullptr ? Peer{"", "", instance}
                           : Peer{client->address, client->sender, instance};
}

Outcome Agent::handle(const std::string &instance, const Request &request) {
  Outcome outcome;
  Client *client = clients_.find(instance);
  if (client == nullptr) {
    return outcome;
  }
  const auto failure = policy_.failures.find(request.method);
  Reply reply = failure != policy_.failures.end() ? resultOnly(request.method, failure->second)
                                                  : dispatch(*client, request);
  if (request.method == Method::RegisterService) {
    Event event;
    event.result = reply.result;
    this->reply(instance, EventKind::ServiceRegistered, request.delegate, event);
  } else {
    outcome.reply = std::move(reply);
  }
  outcome.events = takeOutbox();
  return outcome;
}

Reply Agent::dispatch(Client &client, const Request &request) {
  const Method method = request.method;
  switch (method) {
    case Method::RegisterService:
      return registerService(client, request);
    case Method::UnregisterService:
      return unregisterService(client, request);
    case Method::GetServiceState: {
      Reply reply = resultOnly(method, OXA_ERROR_NONE);
      reply.state = client.services.count(request.handlerId) != 0;
      return reply;
    }
    case Method::RegisterServiceStateChangedEvent:
      if (policy_.refuseStateChanged) {
        return resultOnly(method, OXA_ERROR_NOT_SUPPORTED);
      }
      return registerDelegate(client, EventKind::ServiceStateChanged, request);
    case Method::UnregisterServiceStateChangedEvent:
      return unregisterDelegate(client, EventKind::ServiceStateChanged, request);
    case Method::SendCommand:
      return sendCommand(client, request);
    case Method::RegisterCommandReceivedEvent:
      return registerDelegate(client, EventKind::CommandReceived, request);
    case Method::UnregisterCommandReceivedEvent:
      return unregisterDelegate(client, EventKind::CommandReceived, request);
    case Method::RegisterDeviceFoundEvent:
      return registerDelegate(client, EventKind::DeviceFound, request);
    case Method::UnregisterDeviceFoundEvent:
      return unregisterDelegate(client, EventKind::DeviceFound, request);
    case Method::RegisterDeviceLostEvent:
      return registerDelegate(client, EventKind::DeviceLost, request);
    case Method::UnregisterDeviceLostEvent:
      return unregisterDelegate(client, EventKind::DeviceLost, request);
    case Method::RegisterContextChangedEvent:
      return registerDelegate(client, EventKind::ContextChanged, request);
    case Method::UnregisterContextChangedEvent:
      return unregisterDelegate(client, EventKind::ContextChanged, request);
    case Method::StartDiscovery:
      return startDiscovery(client, request);
    case Method::StopDiscovery:
      client.discovery[request.handlerId] = false;
      return resultOnly(method, OXA_ERROR_NONE);
    case Method::GetFoundDeviceList:
      return foundDevices(client, request);
    case Method::GetMyDevice:
      return myDevice(client, request);
    case Method::GetAdvRawData:
      return advData(request);
    case Method::GetContext:
      return context(request);
    case Method::UpdateContext:
      return updateContext(client, request);
    case Method::SetAppId:
      client.appId = request.appId;
      return resultOnly(method, OXA_ERROR_NONE);
    case Method::Unregister:
      return unregisterClient(client, request);
  }
  return resultOnly(method, OXA_ERROR_NOT_SUPPORTED);
}

Reply Agent::registerService(Client &client, const Request &request) {
  client.services.insert(request.handlerId);
  Event event;
  event.state = true;
  notify(client, EventKind::ServiceStateChanged, request.handlerId, event);
  return resultOnly(request.method, OXA_ERROR_NONE);
}

Reply Agent::unregisterService(Client &client, const Request &request) {
  if (client.services.erase(request.handlerId) == 0) {
    return resultOnly(request.method, OXA_ERROR_INVALID_OPERATION);
  }
  Event event;
  event.state = false;
  notify(client, EventKind::ServiceStateChanged, request.handlerId, event);
  return resultOnly(request.method, OXA_ERROR_NONE);
}

Reply Agent::registerDelegate(Client &client, EventKind kind, const Request &request) {
  client.delegates[{kind, request.handlerId}].push_back(request.delegate);
  return resultOnly(request.method, OXA_ERROR_NONE);
}

Reply Agent::unregisterDelegate(Client &client, EventKind kind, const Request &request) {
  client.delegates.erase({kind, request.handlerId});
  return resultOnly(request.method, OXA_ERROR_NONE);
}

Reply Agent::sendCommand(Client &client, const Request &request) {
  const bool known = world_.findPresent(request.command.address) != nullptr;
  Event sent;
  sent.result = known ? OXA_ERROR_NONE : OXA_ERROR_NO_DEVICE;
  sent.command = request.command;
  reply(client.instance, EventKind::CommandSent, request.delegate, sent);
  if (known) {
    deliverCommand(client, request.command);
  }
  return resultOnly(request.method, OXA_ERROR_NONE);
}

Reply Agent::startDiscovery(Client &client, const Request &request) {
  client.discovery[request.handlerId] = true;
  if (client.delegates.count({EventKind::DeviceFound, request.handlerId}) != 0) {
    const std::vector<const SimDevice *> present = world_.presentDevices(client.address);
    // One found event each, mostly to one delegate: grown once, not once per doubling.
    outbox_.reserve(outbox_.size() + present.size());
    for (const SimDevice *device : present) {
      notifyDevice(client, EventKind::DeviceFound, request.handlerId, device->record);
    }
  }
  if (discoveryStarted_) {
    discoveryStarted_();
  }
  return resultOnly(request.method, OXA_ERROR_NONE);
}

Reply Agent::foundDevices(Client &client, const Request &request) {
  Reply reply = resultOnly(request.method, OXA_ERROR_NONE);
  if (client.discovery.count(request.handlerId) != 0) {
    for (const SimDevice *device : world_.presentDevices(client.address)) {
      reply.devices.push_back(device->record);
    }
  }
  return reply;
}

Reply Agent::myDevice(Client &client, const Request &request) {
  const std::string &address = request.address.empty() ? client.address : request.address;
  const SimDevice *device = world_.findPresent(address);
  Reply reply = resultOnly(request.method, device ? OXA_ERROR_NONE : OXA_ERROR_NO_DEVICE);
  if (device != nullptr) {
    reply.device = device->record;
  }
  return reply;
}

Reply Agent::advData(const Request &request) {
  const SimDevice *device = world_.findPresent(request.address);
  Reply reply = resultOnly(request.method, device ? OXA_ERROR_NONE : OXA_ERROR_NO_DEVICE);
  if (device != nullptr) {
    reply.bytes = device->advData;
  }
  return reply;
}

Reply Agent::context(const Request &request) {
  const SimDevice *device = world_.findPresent(request.address);
  if (device == nullptr) {
    return resultOnly(request.method, OXA_ERROR_NO_DEVICE);
  }
  const auto data = device->contexts.find({request.handlerId, request.contextType});
  if (data == device->contexts.end()) {
    return resultOnly(request.method, OXA_ERROR_NO_DATA);
  }
  Reply reply = resultOnly(request.method, OXA_ERROR_NONE);
  reply.bytes = data->second;
  return reply;
}

Reply Agent::updateContext(Client &client, const Request &request) {
  SimDevice *device = world_.find(client.address);
  device->contexts[{request.handlerId, request.contextType}] = request.bytes;
  contextChanged(*device, request.handlerId);
  return resultOnly(request.method, OXA_ERROR_NONE);
}

Reply Agent::unregisterClient(Client &client, const Request &request) {
  client.services.clear();
  client.discovery.clear();
  client.delegates.clear();
  return resultOnly(request.method, OXA_ERROR_NONE);
}

}  // namespace oxa_sim
