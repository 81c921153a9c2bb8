// Shared pieces of the platform tests: parcel helpers, a recording stub and proxy, and a fixture
// that gives each test its own runtime dir, main context and application id.
#pragma once

#include <rpc-port.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "RuntimeDir.h"

namespace oxa::test {

constexpr const char *kAppId = "org.oxa.platformtest";
constexpr const char *kPortName = "TestPort";

struct ParcelDeleter {
  void operator()(rpc_port_parcel_h parcel) const { rpc_port_parcel_destroy(parcel); }
};
using ParcelPtr = std::unique_ptr<rpc_port_parcel_s, ParcelDeleter>;

ParcelPtr makeParcel();
ParcelPtr parcelWithInt(int value);
// The next parcel read from `port`, or null when the read fails.
ParcelPtr receiveParcel(rpc_port_h port);
// Reads the rest of the parcel byte by byte (consuming it).
std::vector<uint8_t> parcelBytes(rpc_port_parcel_h parcel);
// The next string of the parcel, freed; fails the test when the read fails.
std::string readString(rpc_port_parcel_h parcel);

class TestStub;
class TestProxy;

// Fixture: private runtime dir and main context, RPC_PORT_APPID = kAppId, no privileges.
class TransportTest : public PlatformTest {
 protected:
  TransportTest();
  ~TransportTest() override;
  // Connects `proxy` to `stub` and returns the stub's instance id for it.
  std::string connect(TestStub &stub, TestProxy &proxy);
};

// A stub on kPortName that records its events. By default it answers each request (a parcel
// holding one int32) with that int32 + 1 on the main port.
class TestStub {
 public:
  explicit TestStub(const char *portName = kPortName);
  TestStub(const TestStub &) = delete;
  TestStub &operator=(const TestStub &) = delete;
  ~TestStub();

  rpc_port_stub_h get() const { return handle_; }
  int listen() { return rpc_port_stub_listen(handle_); }
  // Destroys the stub now (events stop).
  void destroy();
  // Sends a parcel holding `value` to connection `instance` on its callback port.
  int sendEvent(const std::string &instance, int value) const;

  std::function<int(const std::string &instance, rpc_port_h port)> onReceived;
  std::function<void(const std::string &instance)> onConnected;
  std::vector<std::string> connected;
  std::vector<std::string> disconnected;
  std::vector<std::string> senders;
  std::vector<int> requests;

 private:
  int answer(const std::string &instance, rpc_port_h port);

  rpc_port_stub_h handle_ = nullptr;
};

// A proxy that records its events. By default each callback parcel (one int32) is read from the
// callback port into `events`.
class TestProxy {
 public:
  TestProxy();
  TestProxy(const TestProxy &) = delete;
  TestProxy &operator=(const TestProxy &) = delete;
  ~TestProxy();

  rpc_port_proxy_h get() const { return handle_; }
  int connect(const char *appId = kAppId, const char *portName = kPortName) {
    return rpc_port_proxy_connect(handle_, appId, portName);
  }
  int connectSync(const char *appId = kAppId, const char *portName = kPortName) {
    return rpc_port_proxy_connect_sync(handle_, appId, portName);
  }
  // Sends a request parcel holding `value` on the main port.
  int sendRequest(int value) const;
  // Reads one parcel from the main port into `value` (its first int32).
  int readReply(int *value) const;
  // Destroys the proxy now (events stop).
  void destroy();

  std::function<void()> onReceived;
  std::function<void()> onDisconnected;
  int connectedCount = 0;
  int disconnectedCount = 0;
  int rejectedCount = 0;
  int rejectResult = 0;
  rpc_port_h mainPort = nullptr;
  std::vector<int> events;

 private:
  void readEvent();

  rpc_port_proxy_h handle_ = nullptr;
};

// Runs a TestStub in a forked child until it is killed; returns once the stub listens.
// `configure` may change the stub (privileges, handlers) before it listens.
ChildProcess spawnStubProcess(const std::function<void(TestStub &)> &configure = {});

}  // namespace oxa::test
