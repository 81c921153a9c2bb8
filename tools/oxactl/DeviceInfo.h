#ifndef OXA_TOOLS_OXACTL_DEVICE_INFO_H_
#define OXA_TOOLS_OXACTL_DEVICE_INFO_H_

#include <oxa.h>

#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "Bytes.h"

namespace oxactl {

// The context data of one (service type, context type) pair, or the error that reading it gave.
struct ContextReading {
  int service = 0;
  int context = 0;
  int result = OXA_ERROR_NONE;
  Bytes data;
};

// What oxactl prints of a device.
struct DeviceInfo {
  std::string address;
  int type = OXA_DEVICE_TYPE_UNKNOWN;
  std::string name;
  std::optional<Bytes> advData;  // unset when not read
  std::vector<ContextReading> contexts;
};

struct DeviceDeleter {
  void operator()(oxa_device_h device) const { oxa_device_destroy(device); }
};
// A device that oxactl owns (cloned, or fetched with oxa_get_my_device()).
using DeviceHandle = std::unique_ptr<std::remove_pointer_t<oxa_device_h>, DeviceDeleter>;

// The address, type and name of `device`; these are read without asking the agent.
DeviceInfo describeDevice(oxa_device_h device);

// Asks the agent for the device's advertised data; stores it in `info` on success and returns
// the request's result.
int readAdvData(oxa_device_h device, DeviceInfo &info);

// Asks the agent for one context of the device.
ContextReading readContext(oxa_device_h device, int service, int context);

}  // namespace oxactl

#endif  // OXA_TOOLS_OXACTL_DEVICE_INFO_H_
