// The fake platform's own behaviour, which every other unit test relies on.

#include <capi-base-common.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "FakePlatform.h"
#include "FakePlatformTest.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class FakePlatformSelfTest : public fake::FakePlatformTest {};

std::string printed(const fake::Value &value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

TEST_F(FakePlatformSelfTest, ValuesPrintReadably) {
  EXPECT_EQ(printed(fake::Int32(7)), "Int32(7)");
  EXPECT_EQ(printed(fake::String("a\"b")), "String(\"a\\\"b\")");
  EXPECT_EQ(printed(fake::Bool(false)), "Bool(false)");
  EXPECT_EQ(printed(fake::Byte('A')), "Byte(0x41)");
  EXPECT_EQ(printed(fake::Byte('\xff')), "Byte(0xff)");
  EXPECT_EQ(printed(fake::Count(3)), "Count(3)");
  EXPECT_EQ(printed(fake::NullString()), "NullString()");
}

TEST_F(FakePlatformSelfTest, ValuesCompareByKindAndContent) {
  EXPECT_EQ(fake::Int32(1), fake::Int32(1));
  EXPECT_NE(fake::Int32(1), fake::Count(1));
  EXPECT_NE(fake::Int32(1), fake::Bool(true));
  EXPECT_NE(fake::String("a"), fake::String("b"));
}

TEST_F(FakePlatformSelfTest, RecordsWrittenValuesOfSentParcels) {
  rpc_port_parcel_h parcel = nullptr;
  ASSERT_EQ(rpc_port_parcel_create(&parcel), 0);
  rpc_port_parcel_write_int32(parcel, 7);
  rpc_port_parcel_write_string(parcel, "x");
  rpc_port_parcel_write_bool(parcel, true);
  rpc_port_parcel_write_array_count(parcel, 1);
  rpc_port_parcel_write_byte(parcel, 'A');
  EXPECT_EQ(rpc_port_parcel_write_string(parcel, nullptr), -22);
  EXPECT_EQ(rpc_port_parcel_send(parcel, fake::CallbackPort()), 0);
  EXPECT_EQ(fake::LiveParcels(), 1U);
  EXPECT_EQ(rpc_port_parcel_destroy(parcel), 0);
  EXPECT_EQ(fake::LiveParcels(), 0U);
  EXPECT_THAT(fake::SentParcels(),
              ElementsAre(fake::SentParcel{fake::Port::Callback,
                                           {fake::Int32(7), fake::String("x"), fake::Bool(true),
                                            fake::Count(1), fake::Byte('A')}}));
}

TEST_F(FakePlatformSelfTest, ServesRepliesInOrderAndFailsWhenEmpty) {
  fake::QueueReply({fake::Int32(1)});
  fake::QueueReply({fake::Int32(2)});
  for (int expected : {1, 2}) {
    rpc_port_parcel_h parcel = nullptr;
    ASSERT_EQ(rpc_port_parcel_create_from_port(&parcel, fake::MainPort()), 0);
    int value = 0;
    EXPECT_EQ(rpc_port_parcel_read_int32(parcel, &value), 0);
    EXPECT_EQ(value, expected);
    rpc_port_parcel_destroy(parcel);
  }
  rpc_port_parcel_h parcel = nullptr;
  EXPECT_EQ(rpc_port_parcel_create_from_port(&parcel, fake::MainPort()), -5);
  EXPECT_EQ(rpc_port_parcel_create_from_port(&parcel, fake::CallbackPort()), -5);
}

TEST_F(FakePlatformSelfTest, WrongKindAndPastEndReadsAreFaults) {
  expectFaults = true;
  fake::QueueReply({fake::Int32(5)});
  rpc_port_parcel_h parcel = nullptr;
  ASSERT_EQ(rpc_port_parcel_create_from_port(&parcel, fake::MainPort()), 0);
  bool flag = true;
  EXPECT_EQ(rpc_port_parcel_read_bool(parcel, &flag), -5);
  EXPECT_FALSE(flag);
  char *text = nullptr;
  EXPECT_EQ(rpc_port_parcel_read_string(parcel, &text), -5);
  ASSERT_NE(text, nullptr);
  EXPECT_STREQ(text, "");
  std::free(text);
  rpc_port_parcel_destroy(parcel);
  EXPECT_EQ(rpc_port_parcel_destroy(parcel), -22);
  EXPECT_THAT(fake::Faults(),
              ElementsAre("read Bool at index 0, found Int32(5)",
                          "read String past the end (1 values)", "destroy on an unknown parcel"));
}

TEST_F(FakePlatformSelfTest, NullStringReadsAsNullPointer) {
  fake::QueueCallback({fake::NullString()});
  rpc_port_parcel_h parcel = nullptr;
  ASSERT_EQ(rpc_port_parcel_create_from_port(&parcel, fake::CallbackPort()), 0);
  char *text = reinterpret_cast<char *>(1);
  EXPECT_EQ(rpc_port_parcel_read_string(parcel, &text), 0);
  EXPECT_EQ(text, nullptr);
  rpc_port_parcel_destroy(parcel);
}

TEST_F(FakePlatformSelfTest, ScriptedResultsOnceThenSticky) {
  fake::SetResult(fake::Call::Send, -1, fake::Mode::Sticky);
  fake::SetResult(fake::Call::Send, -5, fake::Mode::Once);
  rpc_port_parcel_h parcel = nullptr;
  ASSERT_EQ(rpc_port_parcel_create(&parcel), 0);
  EXPECT_EQ(rpc_port_parcel_send(parcel, fake::MainPort()), -5);
  EXPECT_EQ(rpc_port_parcel_send(parcel, fake::MainPort()), -1);
  EXPECT_EQ(rpc_port_parcel_send(parcel, fake::MainPort()), -1);
  rpc_port_parcel_destroy(parcel);
  const auto sent = fake::SentParcels();
  ASSERT_EQ(sent.size(), 3U);
  EXPECT_EQ(sent[0].result, -5);
  EXPECT_EQ(sent[2].result, -1);
}

TEST_F(FakePlatformSelfTest, RepeatedParcelsAreServedAfterTheQueue) {
  fake::QueueCallback({fake::Int32(1)});
  fake::SetRepeatedCallback({fake::Int32(2)});
  fake::SetRepeatedReply({fake::Int32(3)});
  const auto readFirst = [](rpc_port_h port) {
    rpc_port_parcel_h parcel = nullptr;
    EXPECT_EQ(rpc_port_parcel_create_from_port(&parcel, port), 0);
    int value = 0;
    rpc_port_parcel_read_int32(parcel, &value);
    rpc_port_parcel_destroy(parcel);
    return value;
  };
  EXPECT_EQ(readFirst(fake::CallbackPort()), 1);
  EXPECT_EQ(readFirst(fake::CallbackPort()), 2);
  EXPECT_EQ(readFirst(fake::CallbackPort()), 2);
  EXPECT_EQ(readFirst(fake::MainPort()), 3);
  fake::ClearRepeatedCallback();
  fake::ClearRepeatedReply();
  rpc_port_parcel_h parcel = nullptr;
  EXPECT_EQ(rpc_port_parcel_create_from_port(&parcel, fake::CallbackPort()), -5);
  EXPECT_EQ(rpc_port_parcel_create_from_port(&parcel, fake::MainPort()), -5);
}

struct Events {
  int connected = 0;
  int disconnected = 0;
  int rejected = 0;
  int received = 0;
  rpc_port_h port = nullptr;
  int lastResult = 0;
};

TEST_F(FakePlatformSelfTest, FiresRegisteredProxyCallbacks) {
  rpc_port_proxy_h proxy = nullptr;
  ASSERT_EQ(rpc_port_proxy_create(&proxy), 0);
  Events events;
  rpc_port_proxy_add_connected_event_cb(
      proxy,
      [](const char *, const char *, rpc_port_h port, void *data) {
        static_cast<Events *>(data)->connected++;
        static_cast<Events *>(data)->port = port;
      },
      &events);
  rpc_port_proxy_add_disconnected_event_cb(
      proxy,
      [](const char *, const char *, void *data) { static_cast<Events *>(data)->disconnected++; },
      &events);
  rpc_port_proxy_add_rejected_event_cb(
      proxy,
      [](const char *, const char *, void *data) {
        static_cast<Events *>(data)->rejected++;
        static_cast<Events *>(data)->lastResult = get_last_result();
      },
      &events);
  rpc_port_proxy_add_received_event_cb(
      proxy,
      [](const char *, const char *, void *data) { static_cast<Events *>(data)->received++; },
      &events);
  EXPECT_EQ(rpc_port_proxy_connect(proxy, "app", "port"), 0);
  EXPECT_TRUE(fake::FireConnected());
  EXPECT_TRUE(fake::FireDisconnected());
  EXPECT_TRUE(fake::FireRejected(-111));
  EXPECT_TRUE(fake::FireReceived());
  EXPECT_EQ(events.connected, 1);
  EXPECT_EQ(events.port, fake::MainPort());
  EXPECT_EQ(events.disconnected, 1);
  EXPECT_EQ(events.rejected, 1);
  EXPECT_EQ(events.lastResult, -111);
  EXPECT_EQ(events.received, 1);
  rpc_port_h port = nullptr;
  EXPECT_EQ(rpc_port_proxy_get_port(proxy, RPC_PORT_PORT_CALLBACK, &port), 0);
  EXPECT_EQ(port, fake::CallbackPort());
  EXPECT_THAT(fake::GetPortCalls(), ElementsAre(RPC_PORT_PORT_CALLBACK));
  EXPECT_THAT(fake::ConnectCalls(), ElementsAre(fake::ConnectCall{false, "app", "port"}));
  EXPECT_EQ(rpc_port_proxy_destroy(proxy), 0);
  EXPECT_EQ(fake::ProxiesCreated(), 1);
  EXPECT_EQ(fake::ProxiesDestroyed(), 1);
  EXPECT_FALSE(fake::FireConnected());
}

TEST_F(FakePlatformSelfTest, CapturesFormattedLogLines) {
  dlog_print(DLOG_ERROR, "TAG", "%s: %d", "a", 5);
  EXPECT_THAT(fake::Logs(), ElementsAre(fake::LogLine{DLOG_ERROR, "TAG", "%s: %d", "a: 5"}));
}

TEST_F(FakePlatformSelfTest, ResetForgetsEverything) {
  dlog_print(DLOG_INFO, "TAG", "x");
  fake::QueueReply({fake::Int32(1)});
  set_last_result(-5);
  rpc_port_parcel_h parcel = nullptr;
  rpc_port_parcel_create(&parcel);
  fake::Reset();
  EXPECT_THAT(fake::Logs(), IsEmpty());
  EXPECT_EQ(fake::PendingReplies(), 0U);
  EXPECT_EQ(fake::LiveParcels(), 0U);
  EXPECT_EQ(get_last_result(), 0);
}

}  // namespace
