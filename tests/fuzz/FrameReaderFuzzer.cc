// The host platform's frame reader and parcel reads on arbitrary bytes from a peer. The input is
// a read script and a byte stream: byte 0 gives the script's length n (up to 32), the next n bytes
// pick the typed read to make in turn on each parcel, and the rest is what arrives on the socket.
// Every frame that reads as a parcel is read with the script, then the stream's end is reached.
#include <rpc-port.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "Port.h"
#include "UniqueFd.h"

namespace {

constexpr size_t kMaxScript = 32;
constexpr int kReadTimeoutMs = 20;

void readWith(rpc_port_parcel_h parcel, const uint8_t *script, size_t length) {
  for (size_t at = 0; at < length; ++at) {
    char byte = 0;
    short int16 = 0;
    int int32 = 0;
    long long int64 = 0;
    float real = 0;
    double precise = 0;
    bool flag = false;
    char *text = nullptr;
    switch (script[at] % 9) {
      case 0:
        rpc_port_parcel_read_byte(parcel, &byte);
        break;
      case 1:
        rpc_port_parcel_read_int16(parcel, &int16);
        break;
      case 2:
        rpc_port_parcel_read_int32(parcel, &int32);
        break;
      case 3:
        rpc_port_parcel_read_int64(parcel, &int64);
        break;
      case 4:
        rpc_port_parcel_read_float(parcel, &real);
        break;
      case 5:
        rpc_port_parcel_read_double(parcel, &precise);
        break;
      case 6:
        rpc_port_parcel_read_bool(parcel, &flag);
        break;
      case 7:
        rpc_port_parcel_read_string(parcel, &text);
        std::free(text);
        break;
      default:
        // Elements are read while they last, whatever the count claims.
        rpc_port_parcel_read_array_count(parcel, &int32);
        for (int element = 0;
             element < int32 && rpc_port_parcel_read_byte(parcel, &byte) == RPC_PORT_ERROR_NONE;
             ++element) {
        }
        break;
    }
  }
}

bool writeAll(int fd, const uint8_t *data, size_t size) {
  while (size > 0) {
    const ssize_t written = ::write(fd, data, size);
    if (written <= 0) {
      return false;
    }
    data += written;
    size -= static_cast<size_t>(written);
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) {
    return 0;
  }
  const size_t scriptLength = std::min<size_t>(data[0] % (kMaxScript + 1), size - 1);
  const uint8_t *script = data + 1;
  const uint8_t *stream = script + scriptLength;
  const size_t streamSize = size - 1 - scriptLength;

  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    return 0;
  }
  platform::UniqueFd peer(ends[1]);
  // The stream fits the socket's buffer (inputs are kept small), so it is written whole first.
  const int sendBuffer = 1 << 20;
  ::setsockopt(ends[1], SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof sendBuffer);
  if (!writeAll(ends[1], stream, streamSize)) {
    ::close(ends[0]);
    return 0;
  }
  ::shutdown(ends[1], SHUT_WR);
  platform::Port port(platform::UniqueFd(ends[0]), kReadTimeoutMs);
  rpc_port_parcel_h parcel = nullptr;
  while (rpc_port_parcel_create_from_port(&parcel, &port) == RPC_PORT_ERROR_NONE) {
    readWith(parcel, script, scriptLength);
    rpc_port_parcel_destroy(parcel);
  }
  return 0;
}
