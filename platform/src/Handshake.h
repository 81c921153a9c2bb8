// The frames that join a proxy's two connections to a stub.
//
// A proxy opens its main connection with a hello carrying its application id and privileges; the
// stub answers with an ack: 0 and the instance id it gave the connection, or
// RPC_PORT_ERROR_PERMISSION_DENIED. The proxy then opens its callback connection with a hello
// carrying that instance id, and the stub acks it with 0. Anything else is garbage and ends the
// connection.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Parcel.h"

namespace platform {

enum class HelloKind : int32_t { kMain = 1, kCallback = 2 };

struct Hello {
  HelloKind kind;
  std::string appId;
  // kMain: the proxy's privileges, comma-separated; kCallback: the instance id to join.
  std::string detail;
};

struct Ack {
  int32_t status;
  std::string instance;
};

Parcel encodeHello(const Hello &hello);
std::optional<Hello> decodeHello(Parcel &parcel);
Parcel encodeAck(const Ack &ack);
std::optional<Ack> decodeAck(Parcel &parcel);

}  // namespace platform
