#include "World.h"

#include <algorithm>

namespace oxa_sim {

void World::add(SimDevice device) {
  devices_.push_back(std::move(device));
}

void World::remove(const std::string &address) {
  devices_.erase(std::remove_if(devices_.begin(), devices_.end(),
                                [&](const SimDevice &d) { return d.record.address == address; }),
                 devices_.end());
}

SimDevice *World::find(const std::string &address) {
  auto it = std::find_if(devices_.begin(), devices_.end(),
                         [&](const SimDevice &d) { return d.record.address == address; });
  return it == devices_.end() ? nullptr : &*it;
}

SimDevice *World::findPresent(const std::string &address) {
  SimDevice *device = find(address);
  return device != nullptr && device->present ? device : nullptr;
}

std::vector<const SimDevice *> World::presentDevices(const std::string &except) const {
  std::vector<const SimDevice *> result;
  for (const SimDevice &device : devices_) {
    if (device.present && device.record.address != except) {
      result.push_back(&device);
    }
  }
  return result;
}

}  // namespace oxa_sim
