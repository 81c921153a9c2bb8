#ifndef OXA_TOOLS_OXACTL_SESSION_H_
#define OXA_TOOLS_OXACTL_SESSION_H_

#include <oxa.h>

#include <chrono>
#include <optional>
#include <vector>

#include "MainLoop.h"

namespace oxactl {

// How long connecting to the agent and registering the service may take.
constexpr std::chrono::seconds kAnswerLimit{10};

// The connection to the agent, from oxa_initialize() until oxa_deinitialize().
class Connection {
 public:
  // Connects and waits for the outcome; throws a Failure (connection status) when the
  // connection cannot be made or is rejected.
  explicit Connection(MainLoop &loop);
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;
  ~Connection();

  // Throws a Failure (connection status) once the agent has gone away.
  void checkAlive() const;

 private:
  static void onInitialized(oxa_error_e result, void *self);

  MainLoop &loop_;
  std::optional<int> outcome_;
  bool lost_ = false;
};

// A service created and later destroyed (which unregisters it from the agent).
class Service {
 public:
  explicit Service(int type);
  Service(const Service &) = delete;
  Service &operator=(const Service &) = delete;
  ~Service();

  oxa_service_h get() const { return service_; }
  int type() const { return type_; }

  // Registers with the agent and waits for its answer; throws a Failure when the answer is an
  // error, does not come within kAnswerLimit, or the connection ends.
  void registerWith(MainLoop &loop, const Connection &connection);

 private:
  static void onRegistered(oxa_service_h service, oxa_error_e result, void *self);

  oxa_service_h service_ = nullptr;
  int type_;
  std::optional<int> registration_;
};

// One event subscription of a service, ended with this object.
class Subscription {
 public:
  using Unset = int (*)(oxa_service_h);

  template <typename Callback>
  Subscription(const char *operation, int (*set)(oxa_service_h, Callback, void *), Unset unset,
               oxa_service_h service, Callback callback, void *userData)
      : service_(service), unset_(unset) {
    start(operation, set(service, callback, userData));
  }
  Subscription(const Subscription &) = delete;
  Subscription &operator=(const Subscription &) = delete;
  Subscription(Subscription &&other) noexcept;
  Subscription &operator=(Subscription &&) = delete;
  ~Subscription();

 private:
  void start(const char *operation, int result);

  oxa_service_h service_;
  Unset unset_;
};

// Discovery for a service, stopped with this object.
class Discovery {
 public:
  explicit Discovery(oxa_service_h service);
  Discovery(const Discovery &) = delete;
  Discovery &operator=(const Discovery &) = delete;
  ~Discovery();

 private:
  oxa_service_h service_;
};

// What every command starts from: the main loop, the connection and a service of the chosen
// type. Whatever a command adds (subscriptions, discovery) it declares after its session, so that
// it ends first.
class Session {
 public:
  explicit Session(int serviceType) : connection_(loop_), service_(serviceType) {}

  MainLoop &loop() { return loop_; }
  const Connection &connection() const { return connection_; }
  oxa_service_h service() const { return service_.get(); }
  int serviceType() const { return service_.type(); }

  void registerService() { service_.registerWith(loop_, connection_); }

  // Lets events arrive for `limit` (for ever without one) or until the loop is stopped (a
  // signal); throws a Failure when the connection ends meanwhile.
  void listen(std::optional<std::chrono::milliseconds> limit) {
    loop_.runUntil([] { return false; }, limit);
    connection_.checkAlive();
  }

 private:
  MainLoop loop_;
  Connection connection_;
  Service service_;
};

}  // namespace oxactl

#endif  // OXA_TOOLS_OXACTL_SESSION_H_
