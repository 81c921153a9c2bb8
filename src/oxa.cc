#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "AgentProxyHandler.h"
#include "Exception.h"
#include "Service.h"
#include "oxa.h"

namespace Oxa::Capi {

// Most lines fit here; longer ones are printed again into a string of their size. Debug lines
// are built although the platform mostly filters them out, so this path stays short.
constexpr size_t kStackLine = 512;

// Writes `prefix` followed by the printf of `format`, in one pass when it fits on the stack. A
// message that cannot be printed is left empty.
void writeLogLine(log_priority level, const char *prefix, size_t prefixLength, const char *format,
                  va_list args) {
  char stackLine[kStackLine];
  va_list retry;
  va_copy(retry, args);
  int length = 0;
  if (prefixLength < sizeof stackLine) {
    std::memcpy(stackLine, prefix, prefixLength);
    const size_t room = sizeof stackLine - prefixLength;
    length = std::vsnprintf(stackLine + prefixLength, room, format, args);
    if (length < 0 || static_cast<size_t>(length) < room) {
      stackLine[length < 0 ? prefixLength : prefixLength + static_cast<size_t>(length)] = '\0';
      va_end(retry);
      dlog_print(level, "OXA_API", "%s", stackLine);
      return;
    }
  } else {
    va_list count;
    va_copy(count, retry);
    length = std::max(std::vsnprintf(nullptr, 0, format, count), 0);
    va_end(count);
  }
  std::string longLine(prefix, prefixLength);
  longLine.resize(prefixLength + static_cast<size_t>(length) + 1);
  std::vsnprintf(longLine.data() + prefixLength, static_cast<size_t>(length) + 1, format, retry);
  va_end(retry);
  longLine.pop_back();
  dlog_print(level, "OXA_API", "%s", longLine.c_str());
}

// Only for call sites known at run time (helpers that log in their caller's name), which are
// rare: the prefix is built on each call. OXA_LOG keeps its site's prefix.
void writeLog(log_priority level, const char *file, const char *function, int line,
              const char *format, ...) {
  const std::string prefix =
      std::string(file) + ": " + function + "(" + std::to_string(line) + ") > ";
  va_list args;
  va_start(args, format);
  writeLogLine(level, prefix.c_str(), prefix.size(), format, args);
  va_end(args);
}

}  // namespace Oxa::Capi

// The library is built with hidden visibility; only the exported functions carry this.
#define OXA_EXPORT __attribute__((visibility("default")))

// Makes the exported function it is written in fail with OXA_ERROR_INVALID_PARAMETER unless
// `condition` holds; `message` is logged as that function's own error line.
#define OXA_REQUIRE(condition, message)   \
  do {                                    \
    if (!(condition)) {                   \
      OXA_LOGE(message);                  \
      return OXA_ERROR_INVALID_PARAMETER; \
    }                                     \
  } while (false)

namespace {

using Oxa::Capi::AgentProxyHandler;
using Oxa::Capi::Command;
using Oxa::Capi::Device;
using Oxa::Capi::Service;
using Oxa::Capi::SimpleMessage;
using Oxa::Capi::writeLog;

// The text form of a six-byte address: two hexadecimal digits per byte, separated by colons.
constexpr std::size_t kAddressLength = 17;

// The public handles are the library's objects, seen through opaque pointer types.
Service *objectOf(oxa_service_h service) {
  return reinterpret_cast<Service *>(service);
}
Device *objectOf(oxa_device_h device) {
  return reinterpret_cast<Device *>(device);
}
Command *objectOf(oxa_command_h command) {
  return reinterpret_cast<Command *>(command);
}
SimpleMessage *objectOf(oxa_simple_message_h message) {
  return reinterpret_cast<SimpleMessage *>(message);
}
oxa_service_h handleOf(Service *service) {
  return reinterpret_cast<oxa_service_h>(service);
}
oxa_device_h handleOf(Device *device) {
  return reinterpret_cast<oxa_device_h>(device);
}
oxa_command_h handleOf(Command *command) {
  return reinterpret_cast<oxa_command_h>(command);
}
oxa_simple_message_h handleOf(SimpleMessage *message) {
  return reinterpret_cast<oxa_simple_message_h>(message);
}

// What an event adapter logs when the event it is given carries no object.
const char *missingObjectMessage(const Device * /*kind*/) {
  return "No device";
}
const char *missingObjectMessage(const Command * /*kind*/) {
  return "No command";
}
const char *missingObjectMessage(const SimpleMessage * /*kind*/) {
  return "No message";
}

AgentProxyHandler &handler() {
  return AgentProxyHandler::GetInstance();
}

// The agent knows a client's service by its type.
int handlerIdOf(oxa_service_h service) {
  return objectOf(service)->getType();
}

// Only the length of an address is checked, not its characters.
bool isAddress(const char *text) {
  return text != nullptr && std::strlen(text) == kAddressLength;
}

// Copies `length` bytes; a negative length raises std::length_error like any oversized vector.
std::vector<unsigned char> copyBytes(const unsigned char *data, int length) {
  std::vector<unsigned char> bytes(static_cast<std::size_t>(length));
  if (!bytes.empty()) {
    std::memcpy(bytes.data(), data, bytes.size());
  }
  return bytes;
}

// The context types an application may publish.
bool isPublishableContext(int contextType) {
  return contextType == OXA_CONTEXT_TYPE_2 || contextType == OXA_CONTEXT_TYPE_3 ||
         contextType == OXA_CONTEXT_TYPE_6;
}

// Which context types a service type may read.
bool isReadableContext(int serviceType, int contextType) {
  switch (contextType) {
    case OXA_CONTEXT_TYPE_1:
    case OXA_CONTEXT_TYPE_2:
      return true;
    case OXA_CONTEXT_TYPE_3:
      return serviceType == OXA_SERVICE_TYPE_1;
    case OXA_CONTEXT_TYPE_6:
      return serviceType == OXA_SERVICE_TYPE_6;
    default:
      return false;
  }
}

// Called from a catch (...) of a function that creates an object: turns the exception being
// handled into its result code. The library's own exception gives its error, an allocation
// failure OXA_ERROR_OUT_OF_MEMORY; anything else is none of these functions' business and goes on.
int creationError() {
  try {
    throw;
  } catch (const Oxa::Capi::Exception &exception) {
    return exception.error;
  } catch (const std::bad_alloc &) {
    return OXA_ERROR_OUT_OF_MEMORY;
  }
}

// Gives the application a malloc() copy of `bytes` and their count; no block when there are none.
// Logs on behalf of the exported function that calls it.
int handOutBytes(const std::vector<unsigned char> &bytes, unsigned char **value, int *len,
                 const char *function = __builtin_FUNCTION(), int line = __builtin_LINE()) {
  *len = static_cast<int>(bytes.size());
  if (bytes.empty()) {
    writeLog(DLOG_DEBUG, __FILE__, function, line, "No context");
    return OXA_ERROR_NONE;
  }
  void *block = std::malloc(bytes.size());
  if (block == nullptr) {
    writeLog(DLOG_ERROR, __FILE__, function, line, "malloc() failed");
    return OXA_ERROR_OUT_OF_MEMORY;
  }
  std::memcpy(block, bytes.data(), bytes.size());
  *value = static_cast<unsigned char *>(block);
  return OXA_ERROR_NONE;
}

// Gives the application a strdup() copy of `text`. Logs on behalf of the exported function that
// calls it.
int handOutText(const Oxa::Capi::Text &text, char **copy,
                const char *function = __builtin_FUNCTION(), int line = __builtin_LINE()) {
  char *duplicate = strdup(text.c_str());
  if (duplicate == nullptr) {
    writeLog(DLOG_ERROR, __FILE__, function, line, "strdup() failed");
    return OXA_ERROR_OUT_OF_MEMORY;
  }
  *copy = duplicate;
  return OXA_ERROR_NONE;
}

// Adapts an application callback of the form (handle, values..., user data) to the library's
// function of (object, values...): devices found, lost or changed, commands received, and the
// outcome of a sent command or message. The object stays whoever's it was.
template <typename Object, typename... Values>
class ObjectCallback {
 public:
  using Function = void (*)(decltype(handleOf(std::declval<Object *>())), Values..., void *);

  ObjectCallback(Function function, void *userData) : function(function), userData(userData) {}
  void operator()(Object *object, Values... values) const { callApplication(object, values...); }

 private:
  void callApplication(Object *object, Values... values) const {
    if (object == nullptr) {
      OXA_LOGE("%s", missingObjectMessage(object));
      return;
    }
    if (function != nullptr) {
      function(handleOf(object), values..., userData);
    }
  }

  Function function;
  void *userData;
};

// Adapts an application callback of the form (service, value, user data) to the library's
// function of the value: the registration outcome and the service state. Once the service has
// been destroyed its events call nothing.
template <typename Value>
class ServiceCallback {
 public:
  using Function = void (*)(oxa_service_h, Value, void *);

  ServiceCallback(Function function, oxa_service_h service, void *userData)
      : function(function),
        service(service),
        presence(objectOf(service)->presence()),
        userData(userData) {}
  void operator()(Value value) const {
    if (function != nullptr && presence->load()) {
      function(service, value, userData);
    }
  }

 private:
  Function function;
  oxa_service_h service;
  Service::Presence presence;
  void *userData;
};

// Adapts an oxa_simple_message_received_cb. A message without data is not worth a call.
class MessageReceivedCallback {
 public:
  MessageReceivedCallback(oxa_simple_message_received_cb function, void *userData)
      : function(function), userData(userData) {}
  void operator()(const char *address, unsigned char *data, int length) const {
    callApplication(address, data, length);
  }

 private:
  void callApplication(const char *address, const unsigned char *data, int length) const {
    if (data == nullptr) {
      OXA_LOGE("No message");
      return;
    }
    if (function != nullptr) {
      function(address, data, length, userData);
    }
  }

  oxa_simple_message_received_cb function;
  void *userData;
};

}  // namespace

extern "C" {

OXA_EXPORT int oxa_initialize(oxa_initialized_cb callback, void *user_data) {
  OXA_LOGD("+");
  auto &handler = Oxa::Capi::AgentProxyHandler::GetInstance();
  return handler.Connect([callback, user_data](oxa_error_e result) {
    if (callback != nullptr) {
      callback(result, user_data);
    }
  });
}

OXA_EXPORT int oxa_deinitialize(void) {
  OXA_LOGD("+");
  return Oxa::Capi::AgentProxyHandler::GetInstance().Disconnect();
}

OXA_EXPORT int oxa_service_create(oxa_service_type_e type, oxa_service_h *service) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "service is NULL");
  try {
    *service = handleOf(new Service(type));
  } catch (...) {
    return creationError();
  }
  return OXA_ERROR_NONE;
}

OXA_EXPORT int oxa_service_destroy(oxa_service_h service) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "No service");
  delete objectOf(service);
  return OXA_ERROR_NONE;
}

OXA_EXPORT int oxa_service_register(oxa_service_h service, oxa_service_registered_cb callback,
                                    void *user_data) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "No service");
  return objectOf(service)->registerService(
      ServiceCallback<oxa_error_e>(callback, service, user_data));
}

OXA_EXPORT int oxa_service_unregister(oxa_service_h service) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "No service");
  return objectOf(service)->unregisterService();
}

OXA_EXPORT int oxa_service_get_state(oxa_service_h service, int *state) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "service is NULL");
  OXA_REQUIRE(state != nullptr, "state is NULL");
  return objectOf(service)->getState(*state);
}

OXA_EXPORT int oxa_service_set_app_id(oxa_service_h service, int app_id) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "No service");
  return objectOf(service)->setAppId(app_id);
}

OXA_EXPORT int oxa_service_set_state_changed_cb(oxa_service_h service,
                                                oxa_service_state_changed_cb callback,
                                                void *user_data) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "service is NULL");
  OXA_REQUIRE(callback != nullptr, "callback is NULL");
  return handler().RegisterServiceStateChangedEvent(
      handlerIdOf(service), ServiceCallback<int>(callback, service, user_data));
}

OXA_EXPORT int oxa_service_unset_state_changed_cb(oxa_service_h service) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "service is NULL");
  return handler().UnregisterServiceStateChangedEvent(handlerIdOf(service));
}

OXA_EXPORT int oxa_start_discovery(oxa_service_h service) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "service is NULL");
  return objectOf(service)->startDiscovery();
}

OXA_EXPORT int oxa_stop_discovery(oxa_service_h service) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "service is NULL");
  return objectOf(service)->stopDiscovery();
}

// Each device is lent to the callback as a copy of its own, so nothing the callback does with
// the handle reaches the list being walked.
OXA_EXPORT int oxa_foreach_found_device(oxa_service_h service, oxa_found_device_cb callback,
                                        void *user_data) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "service is NULL");
  OXA_REQUIRE(callback != nullptr, "callback is NULL");
  std::vector<Device> devices;
  const int result = handler().getFoundDevices(handlerIdOf(service), devices);
  if (result != OXA_ERROR_NONE) {
    OXA_LOGE("getFoundDevices() failed.");
    return result;
  }
  for (const Device &device : devices) {
    Device lent(device);
    if (!callback(handleOf(&lent), user_data)) {
      break;
    }
  }
  return OXA_ERROR_NONE;
}

OXA_EXPORT int oxa_get_my_device(oxa_service_h service, const char *address, oxa_device_h *device) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "service is NULL");
  OXA_REQUIRE(address != nullptr, "address is NULL");
  OXA_REQUIRE(device != nullptr, "device is NULL");
  std::unique_ptr<Device> mine;
  const int result = handler().getMyDevice(handlerIdOf(service), address, mine);
  if (result != OXA_ERROR_NONE) {
    OXA_LOGE("getMyDevice() failed.");
    return result;
  }
  *device = handleOf(mine.release());
  return OXA_ERROR_NONE;
}

OXA_EXPORT int oxa_update_context(oxa_service_h service, oxa_context_type_e context_type,
                                  const unsigned char *data, int size) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "service is NULL");
  OXA_REQUIRE(isPublishableContext(context_type), "Invalid context type");
  return objectOf(service)->updateContext(context_type, copyBytes(data, size));
}

OXA_EXPORT int oxa_device_clone(oxa_device_h source, oxa_device_h *target) {
  OXA_LOGD("+");
  OXA_REQUIRE(source != nullptr, "No device");
  const Device &original = *objectOf(source);
  try {
    *target = handleOf(new Device(original.getAddress(), original.getType(), original.getName()));
  } catch (...) {
    return creationError();
  }
  return OXA_ERROR_NONE;
}

OXA_EXPORT int oxa_device_destroy(oxa_device_h device) {
  OXA_LOGD("+");
  OXA_REQUIRE(device != nullptr, "No device");
  delete objectOf(device);
  return OXA_ERROR_NONE;
}

OXA_EXPORT int oxa_device_get_type(oxa_device_h device, oxa_device_type_e *type) {
  OXA_LOGD("+");
  OXA_REQUIRE(device != nullptr, "device is NULL");
  OXA_REQUIRE(type != nullptr, "type is NULL");
  *type = static_cast<oxa_device_type_e>(objectOf(device)->getType());
  return OXA_ERROR_NONE;
}

OXA_EXPORT int oxa_device_get_name(oxa_device_h device, char **name) {
  OXA_LOGD("+");
  OXA_REQUIRE(device != nullptr, "No device");
  OXA_REQUIRE(name != nullptr, "name is nullptr");
  return handOutText(objectOf(device)->getName(), name);
}

// Only the 17-character text form of an address is handed out.
OXA_EXPORT int oxa_device_get_address(oxa_device_h device, char **address) {
  OXA_LOGD("+");
  OXA_REQUIRE(device != nullptr, "No device");
  const Oxa::Capi::Text &text = objectOf(device)->getAddress();
  OXA_REQUIRE(text.size() == kAddressLength, "No address");
  return handOutText(text, address);
}

OXA_EXPORT int oxa_device_get_raw_context(oxa_device_h device, unsigned char **value, int *len) {
  OXA_LOGD("+");
  OXA_REQUIRE(device != nullptr, "No device");
  OXA_REQUIRE(value != nullptr, "value is nullptr");
  OXA_REQUIRE(len != nullptr, "len is nullptr");
  std::vector<unsigned char> bytes;
  const int result = handler().GetAdvRawData(objectOf(device)->getAddress(), bytes);
  if (result != OXA_ERROR_NONE) {
    OXA_LOGE("getAdvRawData() fails");
    return result;
  }
  return handOutBytes(bytes, value, len);
}

OXA_EXPORT int oxa_device_get_context(oxa_device_h device, oxa_service_type_e service_type,
                                      oxa_context_type_e context_type, unsigned char **value,
                                      int *len) {
  OXA_LOGD("+");
  OXA_REQUIRE(device != nullptr, "No device");
  OXA_REQUIRE(value != nullptr, "value is nullptr");
  OXA_REQUIRE(len != nullptr, "len is nullptr");
  if (!isReadableContext(service_type, context_type)) {
    OXA_LOGE("Invalid context type for the service");
    return OXA_ERROR_INVALID_OPERATION;
  }
  try {
    const int handlerId = Oxa::Capi::checkServiceType(service_type);
    std::vector<unsigned char> bytes;
    const int result =
        handler().GetContext(objectOf(device)->getAddress(), handlerId, context_type, bytes);
    if (result != OXA_ERROR_NONE) {
      OXA_LOGE("getContext() fails");
      return result;
    }
    return handOutBytes(bytes, value, len);
  } catch (...) {
    return creationError();
  }
}

OXA_EXPORT int oxa_command_create(const char *address, int type, int id,
                                  const unsigned char *payload, int payload_len,
                                  oxa_command_h *command) {
  OXA_LOGD("+");
  OXA_REQUIRE(command != nullptr, "command is NULL");
  OXA_REQUIRE(type >= OXA_COMMAND_TYPE_1 && type <= OXA_COMMAND_TYPE_3, "Invalid type");
  OXA_REQUIRE(isAddress(address), "Invalid adress");
  try {
    *command = handleOf(new Command(address, type, id, copyBytes(payload, payload_len),
                                    Command::Owner::Application));
  } catch (...) {
    return creationError();
  }
  return OXA_ERROR_NONE;
}

OXA_EXPORT int oxa_command_destroy(oxa_command_h command) {
  OXA_LOGD("+");
  OXA_REQUIRE(command != nullptr, "No command");
  Oxa::Capi::forgetSentCommand(objectOf(command));
  delete objectOf(command);
  return OXA_ERROR_NONE;
}

OXA_EXPORT int oxa_command_get_id(oxa_command_h command, int *id) {
  OXA_LOGD("+");
  OXA_REQUIRE(command != nullptr, "No command");
  *id = objectOf(command)->getId();
  return OXA_ERROR_NONE;
}

OXA_EXPORT int oxa_command_get_type(oxa_command_h command, oxa_command_type_e *type) {
  OXA_LOGD("+");
  OXA_REQUIRE(command != nullptr, "No command");
  *type = static_cast<oxa_command_type_e>(objectOf(command)->getType());
  return OXA_ERROR_NONE;
}

// An empty payload still gets its (empty) block, so the caller can always free() it.
OXA_EXPORT int oxa_command_get_payload(oxa_command_h command, unsigned char **payload,
                                       int *payload_len) {
  OXA_LOGD("+");
  OXA_REQUIRE(command != nullptr, "No command");
  const std::vector<unsigned char> &bytes = objectOf(command)->getPayload();
  *payload = static_cast<unsigned char *>(std::malloc(bytes.size()));
  if (*payload == nullptr) {
    OXA_LOGE("malloc() failed");
    return OXA_ERROR_OUT_OF_MEMORY;
  }
  std::copy(bytes.begin(), bytes.end(), *payload);
  *payload_len = static_cast<int>(bytes.size());
  return OXA_ERROR_NONE;
}

// A command received from the agent may carry an address of any length; only a real one is
// handed out.
OXA_EXPORT int oxa_command_get_address(oxa_command_h command, char **address) {
  OXA_LOGD("+");
  OXA_REQUIRE(command != nullptr, "No command");
  const Oxa::Capi::Text &text = objectOf(command)->getAddress();
  if (text.size() != kAddressLength) {
    OXA_LOGE("Invalid MAC address length[%d]", static_cast<int>(text.size()));
    return OXA_ERROR_INTERNAL_ERROR;
  }
  *address = static_cast<char *>(std::malloc(kAddressLength + 1));
  if (*address == nullptr) {
    OXA_LOGE("malloc() failed");
    return OXA_ERROR_OUT_OF_MEMORY;
  }
  std::memcpy(*address, text.c_str(), kAddressLength + 1);
  return OXA_ERROR_NONE;
}

OXA_EXPORT int oxa_send_command(oxa_service_h service, oxa_command_h command,
                                oxa_command_sent_cb callback, void *user_data) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "service is NULL");
  OXA_REQUIRE(command != nullptr, "No command");
  return objectOf(service)->sendCommand(objectOf(command),
                                        ObjectCallback<Command, oxa_error_e>(callback, user_data));
}

OXA_EXPORT int oxa_simple_message_create(const char *address, const unsigned char *data,
                                         int data_len, oxa_simple_message_h *message) {
  OXA_LOGD("+");
  OXA_REQUIRE(message != nullptr, "handle is NULL");
  OXA_REQUIRE(isAddress(address), "Invalid address");
  try {
    *message = handleOf(new SimpleMessage(address, copyBytes(data, data_len)));
  } catch (...) {
    return creationError();
  }
  return OXA_ERROR_NONE;
}

OXA_EXPORT int oxa_simple_message_destroy(oxa_simple_message_h message) {
  OXA_LOGD("+");
  OXA_REQUIRE(message != nullptr, "No message");
  Oxa::Capi::forgetSentMessage(objectOf(message));
  delete objectOf(message);
  return OXA_ERROR_NONE;
}

OXA_EXPORT int oxa_send_simple_message(oxa_service_h service, oxa_simple_message_h message,
                                       oxa_simple_message_sent_cb callback, void *user_data) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "service is NULL");
  OXA_REQUIRE(message != nullptr, "No message");
  return objectOf(service)->sendSimpleMessage(
      objectOf(message), ObjectCallback<SimpleMessage, oxa_error_e>(callback, user_data));
}

OXA_EXPORT int oxa_set_device_found_cb(oxa_service_h service, oxa_device_found_cb callback,
                                       void *user_data) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "service is NULL");
  return handler().RegisterDeviceFoundEvent(handlerIdOf(service),
                                            ObjectCallback<Device>(callback, user_data));
}

OXA_EXPORT int oxa_unset_device_found_cb(oxa_service_h service) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "service is NULL");
  return handler().UnregisterDeviceFoundEvent(handlerIdOf(service));
}

OXA_EXPORT int oxa_set_device_lost_cb(oxa_service_h service, oxa_device_lost_cb callback,
                                      void *user_data) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "service is NULL");
  return handler().RegisterDeviceLostEvent(handlerIdOf(service),
                                           ObjectCallback<Device>(callback, user_data));
}

OXA_EXPORT int oxa_unset_device_lost_cb(oxa_service_h service) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "service is NULL");
  return handler().UnregisterDeviceLostEvent(handlerIdOf(service));
}

OXA_EXPORT int oxa_set_context_changed_cb(oxa_service_h service, oxa_context_changed_cb callback,
                                          void *user_data) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "service is NULL");
  return handler().RegisterContextChangedEvent(handlerIdOf(service),
                                               ObjectCallback<Device>(callback, user_data));
}

OXA_EXPORT int oxa_unset_context_changed_cb(oxa_service_h service) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "service is NULL");
  return handler().UnregisterContextChangedEvent(handlerIdOf(service));
}

OXA_EXPORT int oxa_set_command_received_cb(oxa_service_h service, oxa_command_received_cb callback,
                                           void *user_data) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "service is NULL");
  return handler().RegisterCommandReceivedEvent(handlerIdOf(service),
                                                ObjectCallback<Command>(callback, user_data));
}

OXA_EXPORT int oxa_unset_command_received_cb(oxa_service_h service) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "service is NULL");
  return handler().UnregisterCommandReceivedEvent(handlerIdOf(service));
}

OXA_EXPORT int oxa_set_simple_message_received_cb(oxa_service_h service,
                                                  oxa_simple_message_received_cb callback,
                                                  void *user_data) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "service is NULL");
  return handler().RegisterSimpleMessageReceivedEvent(handlerIdOf(service),
                                                      MessageReceivedCallback(callback, user_data));
}

OXA_EXPORT int oxa_unset_simple_message_received_cb(oxa_service_h service) {
  OXA_LOGD("+");
  OXA_REQUIRE(service != nullptr, "service is NULL");
  return handler().UnregisterSimpleMessageReceivedEvent(handlerIdOf(service));
}

}  // extern "C"
