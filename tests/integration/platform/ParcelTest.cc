// Parcel encoding: every value round-trips, the bytes are exactly the documented layout, and reads
// never run past the end.
#include <gtest/gtest.h>
#include <rpc-port-parcel.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "PlatformHarness.h"

namespace {

using oxa::test::makeParcel;
using oxa::test::parcelBytes;
using oxa::test::ParcelPtr;
using oxa::test::readString;

TEST(ParcelTest, EveryTypeRoundTrips) {
  ParcelPtr parcel = makeParcel();
  ASSERT_EQ(0, rpc_port_parcel_write_byte(parcel.get(), '\x7f'));
  ASSERT_EQ(0, rpc_port_parcel_write_byte(parcel.get(), '\x80'));
  ASSERT_EQ(0, rpc_port_parcel_write_int16(parcel.get(), SHRT_MIN));
  ASSERT_EQ(0, rpc_port_parcel_write_int32(parcel.get(), INT_MIN));
  ASSERT_EQ(0, rpc_port_parcel_write_int64(parcel.get(), LLONG_MIN));
  ASSERT_EQ(0, rpc_port_parcel_write_float(parcel.get(), -1.5F));
  ASSERT_EQ(0, rpc_port_parcel_write_double(parcel.get(), 3.25e300));
  ASSERT_EQ(0, rpc_port_parcel_write_bool(parcel.get(), true));
  ASSERT_EQ(0, rpc_port_parcel_write_bool(parcel.get(), false));
  ASSERT_EQ(0, rpc_port_parcel_write_string(parcel.get(), "hello"));
  ASSERT_EQ(0, rpc_port_parcel_write_array_count(parcel.get(), -7));
  ASSERT_EQ(0, rpc_port_parcel_write_array_count(parcel.get(), INT_MAX));

  char byte = 0;
  ASSERT_EQ(0, rpc_port_parcel_read_byte(parcel.get(), &byte));
  EXPECT_EQ('\x7f', byte);
  ASSERT_EQ(0, rpc_port_parcel_read_byte(parcel.get(), &byte));
  EXPECT_EQ('\x80', byte);
  short int16 = 0;
  ASSERT_EQ(0, rpc_port_parcel_read_int16(parcel.get(), &int16));
  EXPECT_EQ(SHRT_MIN, int16);
  int int32 = 0;
  ASSERT_EQ(0, rpc_port_parcel_read_int32(parcel.get(), &int32));
  EXPECT_EQ(INT_MIN, int32);
  long long int64 = 0;
  ASSERT_EQ(0, rpc_port_parcel_read_int64(parcel.get(), &int64));
  EXPECT_EQ(LLONG_MIN, int64);
  float single = 0;
  ASSERT_EQ(0, rpc_port_parcel_read_float(parcel.get(), &single));
  EXPECT_EQ(-1.5F, single);
  double dbl = 0;
  ASSERT_EQ(0, rpc_port_parcel_read_double(parcel.get(), &dbl));
  EXPECT_EQ(3.25e300, dbl);
  bool flag = false;
  ASSERT_EQ(0, rpc_port_parcel_read_bool(parcel.get(), &flag));
  EXPECT_TRUE(flag);
  ASSERT_EQ(0, rpc_port_parcel_read_bool(parcel.get(), &flag));
  EXPECT_FALSE(flag);
  EXPECT_EQ("hello", readString(parcel.get()));
  int count = 0;
  ASSERT_EQ(0, rpc_port_parcel_read_array_count(parcel.get(), &count));
  EXPECT_EQ(-7, count);
  // Nothing follows the last count, so INT_MAX elements cannot be there.
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, rpc_port_parcel_read_array_count(parcel.get(), &count));
  EXPECT_EQ(0, count);
}

TEST(ParcelTest, ArrayCountBeyondTheBytesLeftIsBroken) {
  ParcelPtr parcel = makeParcel();
  ASSERT_EQ(0, rpc_port_parcel_write_array_count(parcel.get(), 3));
  ASSERT_EQ(0, rpc_port_parcel_write_array_count(parcel.get(), 1000000000));
  ASSERT_EQ(0, rpc_port_parcel_write_array_count(parcel.get(), 0));
  int count = -1;
  // Three elements of at least one byte each fit in the eight bytes that follow.
  ASSERT_EQ(0, rpc_port_parcel_read_array_count(parcel.get(), &count));
  EXPECT_EQ(3, count);
  ASSERT_EQ(RPC_PORT_ERROR_IO_ERROR, rpc_port_parcel_read_array_count(parcel.get(), &count));
  EXPECT_EQ(0, count);
  count = -1;
  ASSERT_EQ(0, rpc_port_parcel_read_array_count(parcel.get(), &count));
  EXPECT_EQ(0, count);
}

TEST(ParcelTest, ArrayCountOfExactlyTheBytesLeftIsRead) {
  ParcelPtr parcel = makeParcel();
  ASSERT_EQ(0, rpc_port_parcel_write_array_count(parcel.get(), 2));
  ASSERT_EQ(0, rpc_port_parcel_write_byte(parcel.get(), 'a'));
  ASSERT_EQ(0, rpc_port_parcel_write_byte(parcel.get(), 'b'));
  int count = 0;
  ASSERT_EQ(0, rpc_port_parcel_read_array_count(parcel.get(), &count));
  EXPECT_EQ(2, count);
}

TEST(ParcelTest, BytesAreUntaggedLittleEndianFixedWidth) {
  ParcelPtr parcel = makeParcel();
  rpc_port_parcel_write_byte(parcel.get(), 'A');
  rpc_port_parcel_write_bool(parcel.get(), true);
  rpc_port_parcel_write_int16(parcel.get(), 0x0102);
  rpc_port_parcel_write_int32(parcel.get(), 0x03040506);
  rpc_port_parcel_write_int64(parcel.get(), 0x0708090a0b0c0d0eLL);
  rpc_port_parcel_write_float(parcel.get(), 1.0F);
  rpc_port_parcel_write_double(parcel.get(), 1.0);
  rpc_port_parcel_write_string(parcel.get(), "ab");
  rpc_port_parcel_write_array_count(parcel.get(), -1);
  const std::vector<uint8_t> expected = {
      'A',  0x01,                                      // byte, bool
      0x02, 0x01,                                      // int16
      0x06, 0x05, 0x04, 0x03,                          // int32
      0x0e, 0x0d, 0x0c, 0x0b, 0x0a, 0x09, 0x08, 0x07,  // int64
      0x00, 0x00, 0x80, 0x3f,                          // float 1.0
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xf0, 0x3f,  // double 1.0
      0x03, 0x00, 0x00, 0x00, 'a',  'b',  0x00,        // string: count incl. NUL
      0xff, 0xff, 0xff, 0xff,                          // array count -1
  };
  EXPECT_EQ(expected, parcelBytes(parcel.get()));
}

TEST(ParcelTest, EmptyAndOneMebibyteStringsRoundTrip) {
  const std::string big(size_t{1} << 20, 'x');
  ParcelPtr parcel = makeParcel();
  ASSERT_EQ(0, rpc_port_parcel_write_string(parcel.get(), ""));
  ASSERT_EQ(0, rpc_port_parcel_write_string(parcel.get(), big.c_str()));
  EXPECT_EQ(std::string(""), readString(parcel.get()));
  EXPECT_EQ(big, readString(parcel.get()));
}

TEST(ParcelTest, ByteAtATimeMatchesTheArrayLayout) {
  ParcelPtr parcel = makeParcel();
  ASSERT_EQ(0, rpc_port_parcel_write_array_count(parcel.get(), 3));
  for (char value : {'\x01', '\x00', '\xff'}) {
    ASSERT_EQ(0, rpc_port_parcel_write_byte(parcel.get(), value));
  }
  EXPECT_EQ((std::vector<uint8_t>{3, 0, 0, 0, 0x01, 0x00, 0xff}), parcelBytes(parcel.get()));
}

TEST(ParcelTest, WriteStringNullIsInvalid) {
  ParcelPtr parcel = makeParcel();
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, rpc_port_parcel_write_string(parcel.get(), nullptr));
  EXPECT_TRUE(parcelBytes(parcel.get()).empty());
}

TEST(ParcelTest, NullHandlesAndOutputsAreInvalid) {
  int value = 0;
  char *text = nullptr;
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, rpc_port_parcel_create(nullptr));
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, rpc_port_parcel_destroy(nullptr));
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, rpc_port_parcel_write_int32(nullptr, 1));
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, rpc_port_parcel_read_int32(nullptr, &value));
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, rpc_port_parcel_read_string(nullptr, &text));
  ParcelPtr parcel = makeParcel();
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, rpc_port_parcel_read_int32(parcel.get(), nullptr));
  EXPECT_EQ(RPC_PORT_ERROR_INVALID_PARAMETER, rpc_port_parcel_read_string(parcel.get(), nullptr));
}

TEST(ParcelTest, ReadsPastTheEndGiveIoErrorAndZero) {
  ParcelPtr parcel = makeParcel();
  rpc_port_parcel_write_byte(parcel.get(), 1);
  int int32 = 99;
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, rpc_port_parcel_read_int32(parcel.get(), &int32));
  EXPECT_EQ(0, int32);
  short int16 = 99;
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, rpc_port_parcel_read_int16(parcel.get(), &int16));
  EXPECT_EQ(0, int16);
  long long int64 = 99;
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, rpc_port_parcel_read_int64(parcel.get(), &int64));
  EXPECT_EQ(0, int64);
  double dbl = 99;
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, rpc_port_parcel_read_double(parcel.get(), &dbl));
  EXPECT_EQ(0.0, dbl);
  float single = 99;
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, rpc_port_parcel_read_float(parcel.get(), &single));
  EXPECT_EQ(0.0F, single);
  // The failed reads consumed nothing: the byte is still there.
  char byte = 0;
  EXPECT_EQ(0, rpc_port_parcel_read_byte(parcel.get(), &byte));
  EXPECT_EQ(1, byte);
  byte = 99;
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, rpc_port_parcel_read_byte(parcel.get(), &byte));
  EXPECT_EQ(0, byte);
  bool flag = true;
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, rpc_port_parcel_read_bool(parcel.get(), &flag));
  EXPECT_FALSE(flag);
  int count = 99;
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, rpc_port_parcel_read_array_count(parcel.get(), &count));
  EXPECT_EQ(0, count);
}

// Reads a string from a parcel holding exactly `bytes`; expects -5 and a fresh empty string.
void expectBrokenString(const std::vector<uint8_t> &bytes) {
  ParcelPtr parcel = makeParcel();
  for (uint8_t byte : bytes) {
    rpc_port_parcel_write_byte(parcel.get(), static_cast<char>(byte));
  }
  char *text = nullptr;
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, rpc_port_parcel_read_string(parcel.get(), &text));
  ASSERT_NE(nullptr, text);
  EXPECT_STREQ("", text);
  std::free(text);
}

TEST(ParcelTest, BrokenStringsReadAsEmptyWithIoError) {
  expectBrokenString({});                                // nothing at all
  expectBrokenString({2, 0});                            // count cut short
  expectBrokenString({0, 0, 0, 0});                      // count 0: no room for the NUL
  expectBrokenString({0xff, 0xff, 0xff, 0xff, 'a', 0});  // negative count
  expectBrokenString({3, 0, 0, 0, 'a', 0});              // count past the end
  expectBrokenString({2, 0, 0, 0, 'a', 'b'});            // no terminator
  expectBrokenString({0xff, 0xff, 0xff, 0x7f, 'a', 0});  // huge count
}

TEST(ParcelTest, StringReadAfterTheEndIsEmpty) {
  ParcelPtr parcel = makeParcel();
  rpc_port_parcel_write_string(parcel.get(), "only");
  EXPECT_EQ("only", readString(parcel.get()));
  char *text = nullptr;
  EXPECT_EQ(RPC_PORT_ERROR_IO_ERROR, rpc_port_parcel_read_string(parcel.get(), &text));
  ASSERT_NE(nullptr, text);
  EXPECT_STREQ("", text);
  std::free(text);
}

}  // namespace
