#include "DeviceInfo.h"

#include "Failure.h"

namespace oxactl {

DeviceInfo describeDevice(oxa_device_h device) {
  DeviceInfo info;
  char *address = nullptr;
  char *name = nullptr;
  oxa_device_type_e type = OXA_DEVICE_TYPE_UNKNOWN;
  check("oxa_device_get_address", oxa_device_get_address(device, &address));
  info.address = takeString(address);
  check("oxa_device_get_name", oxa_device_get_name(device, &name));
  info.name = takeString(name);
  check("oxa_device_get_type", oxa_device_get_type(device, &type));
  info.type = type;
  return info;
}

int readAdvData(oxa_device_h device, DeviceInfo &info) {
  unsigned char *value = nullptr;
  int length = 0;
  const int result = oxa_device_get_raw_context(device, &value, &length);
  Bytes data = takeBuffer(value, length);
  if (result == OXA_ERROR_NONE) {
    info.advData = std::move(data);
  }
  return result;
}

ContextReading readContext(oxa_device_h device, int service, int context) {
  unsigned char *value = nullptr;
  int length = 0;
  const int result =
      oxa_device_get_context(device, static_cast<oxa_service_type_e>(service),
                             static_cast<oxa_context_type_e>(context), &value, &length);
  return {service, context, result, takeBuffer(value, length)};
}

}  // namespace oxactl
