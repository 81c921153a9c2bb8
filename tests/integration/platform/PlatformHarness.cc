#include "PlatformHarness.h"

#include <capi-base-common.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

#include "MainLoop.h"

namespace oxa::test {

ParcelPtr makeParcel() {
  rpc_port_parcel_h parcel = nullptr;
  if (rpc_port_parcel_create(&parcel) != 0) {
    throw std::runtime_error("rpc_port_parcel_create failed");
  }
  return ParcelPtr(parcel);
}

ParcelPtr parcelWithInt(int value) {
  ParcelPtr parcel = makeParcel();
  rpc_port_parcel_write_int32(parcel.get(), value);
  return parcel;
}

ParcelPtr receiveParcel(rpc_port_h port) {
  rpc_port_parcel_h parcel = nullptr;
  return ParcelPtr(rpc_port_parcel_create_from_port(&parcel, port) == 0 ? parcel : nullptr);
}

std::vector<uint8_t> parcelBytes(rpc_port_parcel_h parcel) {
  std::vector<uint8_t> bytes;
  char byte = 0;
  while (rpc_port_parcel_read_byte(parcel, &byte) == 0) {
    bytes.push_back(static_cast<uint8_t>(byte));
  }
  return bytes;
}

std::string readString(rpc_port_parcel_h parcel) {
  char *text = nullptr;
  EXPECT_EQ(0, rpc_port_parcel_read_string(parcel, &text));
  std::string result = text != nullptr ? text : "<null>";
  std::free(text);
  return result;
}

TransportTest::TransportTest() {
  ::setenv("RPC_PORT_APPID", kAppId, 1);
  ::unsetenv("RPC_PORT_PRIVILEGES");
  ::unsetenv("RPC_PORT_READ_TIMEOUT_MS");
}

TransportTest::~TransportTest() {
  ::unsetenv("RPC_PORT_APPID");
  ::unsetenv("RPC_PORT_PRIVILEGES");
  ::unsetenv("RPC_PORT_READ_TIMEOUT_MS");
}

std::string TransportTest::connect(TestStub &stub, TestProxy &proxy) {
  const size_t before = stub.connected.size();
  EXPECT_EQ(0, proxy.connect());
  EXPECT_TRUE(
      runUntil([&] { return proxy.connectedCount == 1 && stub.connected.size() == before + 1; }));
  return stub.connected.empty() ? std::string() : stub.connected.back();
}

TestStub::TestStub(const char *portName) {
  if (rpc_port_stub_create(&handle_, portName) != 0) {
    throw std::runtime_error("rpc_port_stub_create failed");
  }
  rpc_port_stub_add_connected_event_cb(
      handle_,
      [](const char *sender, const char *instance, void *self) {
        auto *stub = static_cast<TestStub *>(self);
        stub->connected.emplace_back(instance);
        stub->senders.emplace_back(sender);
        if (stub->onConnected) {
          stub->onConnected(instance);
        }
      },
      this);
  rpc_port_stub_add_disconnected_event_cb(
      handle_,
      [](const char * /*sender*/, const char *instance, void *self) {
        static_cast<TestStub *>(self)->disconnected.emplace_back(instance);
      },
      this);
  rpc_port_stub_add_received_event_cb(
      handle_,
      [](const char * /*sender*/, const char *instance, rpc_port_h port, void *self) {
        auto *stub = static_cast<TestStub *>(self);
        return stub->onReceived ? stub->onReceived(instance, port) : stub->answer(instance, port);
      },
      this);
}

TestStub::~TestStub() {
  destroy();
}

void TestStub::destroy() {
  if (handle_ != nullptr) {
    rpc_port_stub_destroy(handle_);
    handle_ = nullptr;
  }
}

int TestStub::sendEvent(const std::string &instance, int value) const {
  rpc_port_h port = nullptr;
  const int result =
      rpc_port_stub_get_port(handle_, RPC_PORT_PORT_CALLBACK, instance.c_str(), &port);
  if (result != 0) {
    return result;
  }
  return rpc_port_parcel_send(parcelWithInt(value).get(), port);
}

int TestStub::answer(const std::string & /*instance*/, rpc_port_h port) {
  rpc_port_parcel_h request = nullptr;
  if (rpc_port_parcel_create_from_port(&request, port) != 0) {
    return -1;
  }
  ParcelPtr owned(request);
  int value = 0;
  rpc_port_parcel_read_int32(request, &value);
  requests.push_back(value);
  return rpc_port_parcel_send(parcelWithInt(value + 1).get(), port) == 0 ? 0 : -1;
}

TestProxy::TestProxy() {
  if (rpc_port_proxy_create(&handle_) != 0) {
    throw std::runtime_error("rpc_port_proxy_create failed");
  }
  rpc_port_proxy_add_connected_event_cb(
      handle_,
      [](const char * /*receiver*/, const char * /*port*/, rpc_port_h port, void *self) {
        static_cast<TestProxy *>(self)->mainPort = port;
        ++static_cast<TestProxy *>(self)->connectedCount;
      },
      this);
  rpc_port_proxy_add_disconnected_event_cb(
      handle_,
      [](const char * /*receiver*/, const char * /*port*/, void *self) {
        auto *proxy = static_cast<TestProxy *>(self);
        ++proxy->disconnectedCount;
        if (proxy->onDisconnected) {
          proxy->onDisconnected();
        }
      },
      this);
  rpc_port_proxy_add_rejected_event_cb(
      handle_,
      [](const char * /*receiver*/, const char * /*port*/, void *self) {
        static_cast<TestProxy *>(self)->rejectResult = get_last_result();
        ++static_cast<TestProxy *>(self)->rejectedCount;
      },
      this);
  rpc_port_proxy_add_received_event_cb(
      handle_,
      [](const char * /*receiver*/, const char * /*port*/, void *self) {
        auto *proxy = static_cast<TestProxy *>(self);
        if (proxy->onReceived) {
          proxy->onReceived();
        } else {
          proxy->readEvent();
        }
      },
      this);
}

TestProxy::~TestProxy() {
  destroy();
}

void TestProxy::destroy() {
  if (handle_ != nullptr) {
    rpc_port_proxy_destroy(handle_);
    handle_ = nullptr;
  }
}

int TestProxy::sendRequest(int value) const {
  return rpc_port_parcel_send(parcelWithInt(value).get(), mainPort);
}

int TestProxy::readReply(int *value) const {
  rpc_port_parcel_h reply = nullptr;
  const int result = rpc_port_parcel_create_from_port(&reply, mainPort);
  if (result != 0) {
    return result;
  }
  ParcelPtr owned(reply);
  return rpc_port_parcel_read_int32(reply, value);
}

void TestProxy::readEvent() {
  rpc_port_h port = nullptr;
  rpc_port_parcel_h event = nullptr;
  if (rpc_port_proxy_get_port(handle_, RPC_PORT_PORT_CALLBACK, &port) != 0 ||
      rpc_port_parcel_create_from_port(&event, port) != 0) {
    ADD_FAILURE() << "no event parcel on the callback port";
    return;
  }
  ParcelPtr owned(event);
  int value = 0;
  rpc_port_parcel_read_int32(event, &value);
  events.push_back(value);
}

ChildProcess spawnStubProcess(const std::function<void(TestStub &)> &configure) {
  ReadyPipe ready;
  ChildProcess child = ChildProcess::spawn([&] {
    ScopedMainContext context;
    TestStub stub;
    if (configure) {
      configure(stub);
    }
    if (stub.listen() != 0) {
      ready.signal('n');
      return 1;
    }
    ready.signal('y');
    for (;;) {
      g_main_context_iteration(context.get(), TRUE);
    }
  });
  if (ready.wait(kDefaultWait) != 'y') {
    throw std::runtime_error("the stub process did not start listening");
  }
  return child;
}

}  // namespace oxa::test
