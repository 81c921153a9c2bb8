#ifndef OXA_TESTS_INTEGRATION_RAW_AGENT_CLIENT_H_
#define OXA_TESTS_INTEGRATION_RAW_AGENT_CLIENT_H_

#include <glib.h>
#include <rpc-port.h>

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "DelegateIds.h"

// A client of the agent port that writes and reads parcels value by value, independent of the
// library and of the simulator's own codec, so the tests check the wire itself.
namespace raw_agent {

struct ParcelDeleter {
  void operator()(rpc_port_parcel_h parcel) const { rpc_port_parcel_destroy(parcel); }
};
using Parcel = std::unique_ptr<std::remove_pointer_t<rpc_port_parcel_h>, ParcelDeleter>;

struct Device {
  std::string address;
  int type = 0;
  std::string name;
  bool operator==(const Device &other) const {
    return address == other.address && type == other.type && name == other.name;
  }
};

struct Command {
  std::string address;
  int handlerId = 0;
  int id = 0;
  int type = 0;
  std::vector<unsigned char> payload;
  int seq = 0;
  bool operator==(const Command &other) const {
    return address == other.address && handlerId == other.handlerId && id == other.id &&
           type == other.type && payload == other.payload && seq == other.seq;
  }
};

using namespace oxa::test::delegate_ids;

// One callback parcel, decoded by the kind its delegate id names.
struct Event {
  int delegateId = 0;
  int seq = 0;
  bool once = false;
  int result = 0;
  bool state = false;
  Device device;
  Command command;
};

// Builds a request parcel: the method id, then the values in the order they are added.
class Request {
 public:
  explicit Request(int methodId);
  Request &i32(int value);
  Request &string(const std::string &value);
  Request &bytes(const std::vector<unsigned char> &value);
  Request &command(const Command &value);
  Request &delegate(int id, int seq, bool once = false);
  rpc_port_parcel_h get() const { return parcel_.get(); }

 private:
  Parcel parcel_;
};

// Reads a reply value by value; every read must succeed.
class Reply {
 public:
  explicit Reply(Parcel parcel) : parcel_(std::move(parcel)) {}
  bool valid() const { return parcel_ != nullptr; }
  int i32();
  bool boolean();
  std::string string();
  std::vector<unsigned char> bytes();
  Device device();
  std::vector<Device> devices();
  // True when the whole reply has been read.
  bool exhausted();

 private:
  Parcel parcel_;
};

class Client {
 public:
  // Events are dispatched on `context`, which the caller iterates.
  explicit Client(GMainContext *context);
  ~Client();
  Client(const Client &) = delete;
  Client &operator=(const Client &) = delete;

  // Starts connecting to `appid`'s agent port; the outcome shows in connected()/rejected().
  int connect(const std::string &appid);
  bool connected() const { return port_ != nullptr && !disconnected_; }
  bool rejected() const { return rejected_; }
  int rejectError() const { return rejectError_; }
  bool disconnected() const { return disconnected_; }

  // Sends `request` without waiting (RegisterService has no reply); the platform's result.
  int send(const Request &request);
  // Sends `request` and reads its reply up to and including the command id 0.
  Reply call(const Request &request);

  std::vector<Event> &events() { return events_; }
  // Events with `delegateId`, in arrival order.
  std::vector<Event> eventsOf(int delegateId) const;

 private:
  static void onConnected(const char *, const char *, rpc_port_h port, void *data);
  static void onDisconnected(const char *, const char *, void *data);
  static void onRejected(const char *, const char *, void *data);
  static void onReceived(const char *, const char *, void *data);
  void readEvent();

  rpc_port_proxy_h proxy_ = nullptr;
  rpc_port_h port_ = nullptr;
  rpc_port_h callbackPort_ = nullptr;
  bool rejected_ = false;
  int rejectError_ = 0;
  bool disconnected_ = false;
  std::vector<Event> events_;
};

}  // namespace raw_agent

#endif  // OXA_TESTS_INTEGRATION_RAW_AGENT_CLIENT_H_
