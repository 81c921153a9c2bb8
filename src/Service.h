#ifndef OXA_SRC_SERVICE_H_
#define OXA_SRC_SERVICE_H_

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Text.h"
#include "oxa.h"

namespace Oxa::Capi {

// A peer device known to the agent, or the application's own device.
class Device {
 public:
  Device(Text address, int type, Text name)
      : address(std::move(address)), type(type), name(std::move(name)) {}
  Device(Text address, Text name)
      : Device(std::move(address), OXA_DEVICE_TYPE_UNKNOWN, std::move(name)) {}

  const Text &getAddress() const { return address; }
  int getType() const { return type; }
  const Text &getName() const { return name; }

 private:
  Text address;
  int type;
  Text name;
};

// A typed, numbered command with a byte payload, addressed to (or received from) a device.
class Command {
 public:
  // Who releases the command. A sent event gives a command back only to the kind of delegate its
  // owner sent it with, so that an agent naming the wrong one can neither hand the library's
  // simple-message wrapper to the application, which would never free it, nor make the library
  // free an application's command.
  enum class Owner : unsigned char { Anyone, Application, Library };

  Command(Text address, int type, int id, std::vector<unsigned char> payload,
          Owner owner = Owner::Anyone)
      : address(std::move(address)),
        type(type),
        id(id),
        payload(std::move(payload)),
        owner(owner) {}

  const Text &getAddress() const { return address; }
  int getType() const { return type; }
  int getId() const { return id; }
  const std::vector<unsigned char> &getPayload() const { return payload; }
  Owner getOwner() const { return owner; }

 private:
  Text address;
  int type;
  int id;
  std::vector<unsigned char> payload;
  Owner owner;
};

// A short block of bytes addressed to (or received from) a device.
class SimpleMessage {
 public:
  SimpleMessage(std::string address, std::vector<unsigned char> data)
      : address(std::move(address)), data(std::move(data)) {}

  const std::string &getAddress() const { return address; }
  const std::vector<unsigned char> &getData() const { return data; }

 private:
  std::string address;
  std::vector<unsigned char> data;
};

// Device types the agent reports outside 1..5 are exposed as OXA_DEVICE_TYPE_UNKNOWN.
int toDeviceType(int type);

using RegisteredCallback = std::function<void(oxa_error_e)>;
using CommandSentCallback = std::function<void(Command *, oxa_error_e)>;
using SimpleMessageSentCallback = std::function<void(SimpleMessage *, oxa_error_e)>;

// One service of the application; every agent request it makes carries its type as handler id.
// Its operations may run on several threads at once, and the agent's answer to a registration
// arrives on the event thread, possibly after the service has been destroyed.
class Service {
 public:
  // Throws Exception(OXA_ERROR_INVALID_PARAMETER) for a type other than 1, 3 or 6.
  explicit Service(int type);
  ~Service();
  Service(const Service &) = delete;
  Service &operator=(const Service &) = delete;

  int getRequestedType() const { return requestedType; }
  int getType() const { return type; }
  int getAppId() const { return appId.load(); }
  // True while the service exists: what callbacks that carry its handle check before they run.
  using Presence = std::shared_ptr<const std::atomic<bool>>;
  Presence presence() const { return {registration, &registration->alive}; }

  int registerService(RegisteredCallback callback);
  int unregisterService();
  // Writes the agent's state (0 or 1) into `state`.
  int getState(int &state);
  int setAppId(int id);
  int startDiscovery();
  int stopDiscovery();
  int updateContext(int contextType, const std::vector<unsigned char> &context);
  // `command` stays the caller's; it is handed back to `callback` when the agent reports the send.
  int sendCommand(Command *command, CommandSentCallback callback);
  // `message` stays the caller's; it is handed back to `callback` when the agent reports the send.
  int sendSimpleMessage(SimpleMessage *message, SimpleMessageSentCallback callback);

 private:
  // The registration callback, shared with the completions of pending registrations: they reach
  // it while the service exists and find it empty once the service is gone.
  struct Registration {
    std::mutex guard;
    RegisteredCallback callback;
    std::atomic<bool> alive{true};
  };

  static void onRegistered(Registration &registration, oxa_error_e result);
  static bool permissionDenied(const char *function = __builtin_FUNCTION(),
                               int line = __builtin_LINE());
  // Replaces the registration callback; returns the one it held, to be destroyed by the caller.
  RegisteredCallback exchangeRegistrationCallback(RegisteredCallback callback);

  int requestedType;
  int type;
  std::shared_ptr<Registration> registration = std::make_shared<Registration>();
  std::atomic<int> appId{0};
};

}  // namespace Oxa::Capi

#endif  // OXA_SRC_SERVICE_H_
