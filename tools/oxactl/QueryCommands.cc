// me, devices, info: read what the agent knows and print it.
#include <algorithm>
#include <vector>

#include "Commands.h"
#include "Session.h"

namespace oxactl {

namespace {

constexpr std::chrono::seconds kDefaultDiscoveryWait{2};

// The device the agent knows under `address`; "" is this application's own device.
DeviceHandle fetchDevice(const Session &session, const std::string &address) {
  oxa_device_h device = nullptr;
  check("oxa_get_my_device", oxa_get_my_device(session.service(), address.c_str(), &device));
  return DeviceHandle(device);
}

// A device with its address, type, name and advertised data, every read required to succeed.
DeviceInfo describeFully(oxa_device_h device) {
  DeviceInfo info = describeDevice(device);
  check("oxa_device_get_raw_context", readAdvData(device, info));
  return info;
}

bool keepClone(oxa_device_h device, void *clones) {
  oxa_device_h clone = nullptr;
  if (oxa_device_clone(device, &clone) == OXA_ERROR_NONE) {
    static_cast<std::vector<DeviceHandle> *>(clones)->emplace_back(clone);
  }
  return true;
}

// The devices the agent lists, copied out of the iteration so that they can be asked about.
std::vector<DeviceHandle> foundDevices(const Session &session) {
  std::vector<DeviceHandle> clones;
  check("oxa_foreach_found_device",
        oxa_foreach_found_device(session.service(), &keepClone, &clones));
  return clones;
}

}  // namespace

ExitStatus runMe(const Options &options, const Printer &printer) {
  Session session(options.serviceType);
  session.registerService();
  const DeviceHandle device = fetchDevice(session, "");
  printer.device(describeFully(device.get()));
  return ExitStatus::kSuccess;
}

ExitStatus runDevices(const Options &options, const Printer &printer) {
  Session session(options.serviceType);
  session.registerService();
  const Discovery discovery(session.service());
  session.listen(options.timeoutOr(kDefaultDiscoveryWait));
  std::vector<DeviceInfo> devices;
  for (const DeviceHandle &device : foundDevices(session)) {
    DeviceInfo info = describeDevice(device.get());
    // A device may be gone by now; it is listed without its advertised data.
    readAdvData(device.get(), info);
    devices.push_back(std::move(info));
  }
  printer.devices(devices);
  return ExitStatus::kSuccess;
}

ExitStatus runInfo(const Options &options, const Printer &printer) {
  Session session(options.serviceType);
  session.registerService();
  const DeviceHandle device = fetchDevice(session, options.address);
  DeviceInfo info = describeFully(device.get());
  for (const ContextPair &pair : options.contexts) {
    info.contexts.push_back(readContext(device.get(), pair.service, pair.context));
  }
  printer.device(info);
  const bool allRead = std::all_of(info.contexts.begin(), info.contexts.end(),
                                   [](const ContextReading &r) { return r.result == 0; });
  return allRead ? ExitStatus::kSuccess : ExitStatus::kOperation;
}

}  // namespace oxactl
