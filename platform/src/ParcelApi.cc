// The parcel half of the C interface: creation, typed writes and reads.
#include <cstdint>
#include <cstdlib>
#include <new>

#include "Parcel.h"

using platform::Parcel;

namespace {

template <typename T>
int writeValue(rpc_port_parcel_h h, T value) {
  if (h == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  platform::appendValue(*h, value);
  return RPC_PORT_ERROR_NONE;
}

template <typename T>
int readValue(rpc_port_parcel_h h, T *out) {
  if (h == nullptr || out == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  return platform::readValue(*h, out) ? RPC_PORT_ERROR_NONE : RPC_PORT_ERROR_IO_ERROR;
}

__attribute__((noinline)) int appendGrowing(rpc_port_parcel_h h, uint8_t byte) {
  h->bytes.pushGrowing(byte);
  return RPC_PORT_ERROR_NONE;
}

}  // namespace

extern "C" int rpc_port_parcel_create(rpc_port_parcel_h *h) {
  if (h == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  // Default-initialised: the inline body is written before it is read, so it is not zeroed.
  *h = new (std::nothrow) Parcel;
  return *h != nullptr ? RPC_PORT_ERROR_NONE : RPC_PORT_ERROR_OUT_OF_MEMORY;
}

extern "C" int rpc_port_parcel_destroy(rpc_port_parcel_h h) {
  if (h == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  delete h;
  return RPC_PORT_ERROR_NONE;
}

// Byte arrays travel one byte per call: the whole call is a check, a store and a return; growing
// the storage is a tail call, so the common path saves no registers.
extern "C" int rpc_port_parcel_write_byte(rpc_port_parcel_h h, char b) {
  if (h == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  if (!h->bytes.tryPush(static_cast<uint8_t>(b))) {
    return appendGrowing(h, static_cast<uint8_t>(b));
  }
  return RPC_PORT_ERROR_NONE;
}

extern "C" int rpc_port_parcel_write_int16(rpc_port_parcel_h h, short i) {
  return writeValue(h, static_cast<int16_t>(i));
}

extern "C" int rpc_port_parcel_write_int32(rpc_port_parcel_h h, int i) {
  return writeValue(h, static_cast<int32_t>(i));
}

extern "C" int rpc_port_parcel_write_int64(rpc_port_parcel_h h, long long i) {
  return writeValue(h, static_cast<int64_t>(i));
}

extern "C" int rpc_port_parcel_write_float(rpc_port_parcel_h h, float f) {
  return writeValue(h, f);
}

extern "C" int rpc_port_parcel_write_double(rpc_port_parcel_h h, double d) {
  return writeValue(h, d);
}

extern "C" int rpc_port_parcel_write_bool(rpc_port_parcel_h h, bool b) {
  return writeValue(h, static_cast<uint8_t>(b ? 1 : 0));
}

extern "C" int rpc_port_parcel_write_array_count(rpc_port_parcel_h h, int count) {
  return writeValue(h, static_cast<int32_t>(count));
}

extern "C" int rpc_port_parcel_write_string(rpc_port_parcel_h h, const char *str) {
  if (h == nullptr || str == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  platform::appendString(*h, str);
  return RPC_PORT_ERROR_NONE;
}

extern "C" int rpc_port_parcel_read_byte(rpc_port_parcel_h h, char *b) {
  if (h == nullptr || b == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  if (h->readOffset == h->bytes.size()) {
    *b = 0;
    return RPC_PORT_ERROR_IO_ERROR;
  }
  *b = static_cast<char>(h->bytes.data()[h->readOffset++]);
  return RPC_PORT_ERROR_NONE;
}

extern "C" int rpc_port_parcel_read_int16(rpc_port_parcel_h h, short *i) {
  static_assert(sizeof(short) == sizeof(int16_t), "int16 is a short");
  return readValue(h, i);
}

extern "C" int rpc_port_parcel_read_int32(rpc_port_parcel_h h, int *i) {
  static_assert(sizeof(int) == sizeof(int32_t), "int32 is an int");
  return readValue(h, i);
}

extern "C" int rpc_port_parcel_read_int64(rpc_port_parcel_h h, long long *i) {
  static_assert(sizeof(long long) == sizeof(int64_t), "int64 is a long long");
  return readValue(h, i);
}

extern "C" int rpc_port_parcel_read_float(rpc_port_parcel_h h, float *f) {
  return readValue(h, f);
}

extern "C" int rpc_port_parcel_read_double(rpc_port_parcel_h h, double *d) {
  return readValue(h, d);
}

extern "C" int rpc_port_parcel_read_bool(rpc_port_parcel_h h, bool *b) {
  uint8_t byte = 0;
  const int result = readValue(h, b == nullptr ? nullptr : &byte);
  if (b != nullptr) {
    *b = byte != 0;
  }
  return result;
}

// Every element of an array takes at least one byte on this wire, so a count beyond the bytes that
// follow it cannot be true: it is read as a broken parcel, and nobody sizes anything from it.
extern "C" int rpc_port_parcel_read_array_count(rpc_port_parcel_h h, int *count) {
  const int result = readValue(h, count);
  if (result == RPC_PORT_ERROR_NONE && *count > 0 &&
      static_cast<size_t>(*count) > platform::bytesLeft(*h)) {
    *count = 0;
    return RPC_PORT_ERROR_IO_ERROR;
  }
  return result;
}

extern "C" int rpc_port_parcel_read_string(rpc_port_parcel_h h, char **str) {
  if (h == nullptr || str == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  *str = platform::readString(*h);
  if (*str != nullptr) {
    return RPC_PORT_ERROR_NONE;
  }
  *str = static_cast<char *>(std::calloc(1, 1));
  return *str != nullptr ? RPC_PORT_ERROR_IO_ERROR : RPC_PORT_ERROR_OUT_OF_MEMORY;
}
