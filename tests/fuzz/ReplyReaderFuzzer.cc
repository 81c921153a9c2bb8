// Arbitrary reply parcels for every agent method that waits for a reply. The first input byte
// is the method id; the rest is what the agent answers. The library must turn any answer into a
// result code and well-formed out-values.
#include <oxa.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "InMemoryPlatform.h"
#include "LibrarySession.h"

namespace {

constexpr char kAddress[] = "A0:00:00:00:00:02";
// Registrations add delegates that live as long as the connection; a fresh connection now and
// then keeps the fuzzer's memory flat.
constexpr unsigned kCallsPerConnection = 1024;

void onState(oxa_service_h /*service*/, int /*state*/, void * /*data*/) {}
void onDevice(oxa_device_h device, void * /*data*/) {
  fuzz::readDevice(device);
}
void onCommand(oxa_command_h command, void * /*data*/) {
  fuzz::readCommand(command);
}
void onSent(oxa_command_h /*command*/, oxa_error_e /*result*/, void * /*data*/) {}
bool onListed(oxa_device_h device, void * /*data*/) {
  fuzz::readDevice(device);
  return true;
}

void freeBytes(unsigned char *bytes, int length) {
  if (length > 0) {
    std::free(bytes);
  }
}

// Calls the public function that makes the agent request `methodId`.
void callMethod(int methodId, fuzz::LibrarySession &session) {
  oxa_service_h service = session.service;
  int state = 0;
  unsigned char *bytes = nullptr;
  int length = 0;
  oxa_device_h device = nullptr;
  const unsigned char context[] = {'c'};
  switch (methodId) {
    case 3:
      oxa_service_unregister(service);
      break;
    case 4:
      oxa_service_get_state(service, &state);
      break;
    case 5:
      oxa_service_set_state_changed_cb(service, onState, nullptr);
      break;
    case 6:
      oxa_service_unset_state_changed_cb(service);
      break;
    case 7:
      oxa_send_command(service, session.command, onSent, nullptr);
      break;
    case 8:
      oxa_set_command_received_cb(service, onCommand, nullptr);
      break;
    case 9:
      oxa_unset_command_received_cb(service);
      break;
    case 10:
      oxa_set_device_found_cb(service, onDevice, nullptr);
      break;
    case 11:
      oxa_unset_device_found_cb(service);
      break;
    case 12:
      oxa_set_device_lost_cb(service, onDevice, nullptr);
      break;
    case 13:
      oxa_unset_device_lost_cb(service);
      break;
    case 14:
      oxa_set_context_changed_cb(service, onDevice, nullptr);
      break;
    case 15:
      oxa_unset_context_changed_cb(service);
      break;
    case 16:
      oxa_start_discovery(service);
      break;
    case 17:
      oxa_stop_discovery(service);
      break;
    case 18:
      oxa_foreach_found_device(service, onListed, nullptr);
      break;
    case 19:
      if (oxa_get_my_device(service, kAddress, &device) == OXA_ERROR_NONE) {
        fuzz::readDevice(device);
        oxa_device_destroy(device);
      }
      break;
    case 20:
      if (oxa_device_get_raw_context(session.device, &bytes, &length) == OXA_ERROR_NONE) {
        freeBytes(bytes, length);
      }
      break;
    case 21:
      if (oxa_device_get_context(session.device, OXA_SERVICE_TYPE_1, OXA_CONTEXT_TYPE_1, &bytes,
                                 &length) == OXA_ERROR_NONE) {
        freeBytes(bytes, length);
      }
      break;
    case 22:
      oxa_update_context(service, OXA_CONTEXT_TYPE_2, context, sizeof context);
      break;
    case 23:
      oxa_service_set_app_id(service, 7);
      break;
    default:
      oxa_deinitialize();
      fuzz::reconnectLibrary();
      break;
  }
}

}  // namespace

// The session is set up before the first input, so that its lasting allocations are not taken
// for a leak of that input.
extern "C" int LLVMFuzzerInitialize(int * /*argc*/, char *** /*argv*/) {
  fuzz::connectLibrary();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static unsigned calls = 0;
  fuzz::LibrarySession &session = fuzz::connectLibrary();
  if (size == 0) {
    return 0;
  }
  // Method ids 3 to 24: every method but RegisterService, which reads no reply.
  const int methodId = 3 + data[0] % 22;
  fuzz::queueReply(data + 1, size - 1);
  callMethod(methodId, session);
  fuzz::clearQueues();
  if (++calls % kCallsPerConnection == 0) {
    fuzz::reconnectLibrary();
  }
  return 0;
}
