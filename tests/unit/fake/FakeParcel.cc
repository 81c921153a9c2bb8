// rpc_port_parcel_*: parcels are typed value sequences kept in memory.

#include <cstdlib>
#include <cstring>
#include <sstream>

#include "FakeState.h"

using fake::Kind;
using fake::State;
using fake::Value;

namespace fake {

rpc_port_parcel_s *findParcel(State &current, rpc_port_parcel_h handle, const char *operation) {
  auto found = current.parcels.find(handle);
  if (found == current.parcels.end()) {
    current.faults.push_back(std::string(operation) + " on an unknown parcel");
    return nullptr;
  }
  return found->second.get();
}

}  // namespace fake

namespace {

fake::Port portOf(rpc_port_h port) {
  if (port == fake::MainPort()) {
    return fake::Port::Main;
  }
  if (port == fake::CallbackPort()) {
    return fake::Port::Callback;
  }
  return fake::Port::Other;
}

rpc_port_parcel_h addParcel(State &current, fake::Values values) {
  auto parcel = std::make_unique<rpc_port_parcel_s>();
  parcel->values = std::move(values);
  rpc_port_parcel_h handle = parcel.get();
  current.parcels.emplace(handle, std::move(parcel));
  ++current.parcelsCreated;
  return handle;
}

int write(rpc_port_parcel_h handle, const Value &value) {
  State &current = fake::state();
  std::lock_guard<std::mutex> lock(current.mutex);
  rpc_port_parcel_s *parcel = fake::findParcel(current, handle, "write");
  if (parcel == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  parcel->values.push_back(value);
  return RPC_PORT_ERROR_NONE;
}

// Takes the next value if it is of `kind`; otherwise records the fault and reports -5, as the
// platform does for a read that does not fit. A value of another kind is consumed.
int read(rpc_port_parcel_h handle, Kind kind, Value &out) {
  State &current = fake::state();
  std::lock_guard<std::mutex> lock(current.mutex);
  rpc_port_parcel_s *parcel = fake::findParcel(current, handle, "read");
  if (parcel == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  std::ostringstream fault;
  if (parcel->next >= parcel->values.size()) {
    fault << "read " << fake::KindName(kind) << " past the end (" << parcel->values.size()
          << " values)";
    current.faults.push_back(fault.str());
    return RPC_PORT_ERROR_IO_ERROR;
  }
  const Value &next = parcel->values[parcel->next++];
  const bool stringKind = kind == Kind::String && next.kind == Kind::NullString;
  if (next.kind != kind && !stringKind) {
    fault << "read " << fake::KindName(kind) << " at index " << parcel->next - 1 << ", found "
          << next;
    current.faults.push_back(fault.str());
    return RPC_PORT_ERROR_IO_ERROR;
  }
  out = next;
  return RPC_PORT_ERROR_NONE;
}

template <typename T>
int readNumber(rpc_port_parcel_h handle, Kind kind, T *out) {
  Value value;
  const int result = read(handle, kind, value);
  if (out != nullptr) {
    *out = static_cast<T>(value.integer);
  }
  return result;
}

template <typename T>
int readReal(rpc_port_parcel_h handle, Kind kind, T *out) {
  Value value;
  value.kind = kind;
  const int result = read(handle, kind, value);
  if (out != nullptr) {
    *out = static_cast<T>(value.real);
  }
  return result;
}

int nextResult(State &current, fake::Call call) {
  return current.results[call].Next();
}

}  // namespace

extern "C" {

int rpc_port_parcel_create(rpc_port_parcel_h *h) {
  if (h == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  State &current = fake::state();
  std::lock_guard<std::mutex> lock(current.mutex);
  const int result = nextResult(current, fake::Call::ParcelCreate);
  if (result != RPC_PORT_ERROR_NONE) {
    return result;
  }
  *h = addParcel(current, {});
  return RPC_PORT_ERROR_NONE;
}

int rpc_port_parcel_create_from_port(rpc_port_parcel_h *h, rpc_port_h port) {
  if (h == nullptr || port == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  State &current = fake::state();
  std::lock_guard<std::mutex> lock(current.mutex);
  const int result = nextResult(current, fake::Call::CreateFromPort);
  if (result != RPC_PORT_ERROR_NONE) {
    return result;
  }
  const fake::Port kind = portOf(port);
  if (kind == fake::Port::Other) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  State::Incoming &incoming = kind == fake::Port::Main ? current.replies : current.callbacks;
  if (!incoming.queue.empty()) {
    *h = addParcel(current, std::move(incoming.queue.front()));
    incoming.queue.pop_front();
    return RPC_PORT_ERROR_NONE;
  }
  if (incoming.repeat) {
    *h = addParcel(current, incoming.repeated);
    return RPC_PORT_ERROR_NONE;
  }
  return RPC_PORT_ERROR_IO_ERROR;
}

int rpc_port_parcel_send(rpc_port_parcel_h h, rpc_port_h port) {
  State &current = fake::state();
  std::lock_guard<std::mutex> lock(current.mutex);
  rpc_port_parcel_s *parcel = fake::findParcel(current, h, "send");
  if (parcel == nullptr || port == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  const int result = nextResult(current, fake::Call::Send);
  if (current.recordSent) {
    current.sent.push_back({portOf(port), parcel->values, result});
  }
  return result;
}

int rpc_port_parcel_destroy(rpc_port_parcel_h h) {
  State &current = fake::state();
  std::lock_guard<std::mutex> lock(current.mutex);
  if (fake::findParcel(current, h, "destroy") == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  current.parcels.erase(h);
  return RPC_PORT_ERROR_NONE;
}

int rpc_port_parcel_write_byte(rpc_port_parcel_h h, char b) {
  return write(h, fake::Byte(b));
}
int rpc_port_parcel_write_int16(rpc_port_parcel_h h, short i) {
  return write(h, fake::Int16(i));
}
int rpc_port_parcel_write_int32(rpc_port_parcel_h h, int i) {
  return write(h, fake::Int32(i));
}
int rpc_port_parcel_write_int64(rpc_port_parcel_h h, long long i) {
  return write(h, fake::Int64(i));
}
int rpc_port_parcel_write_float(rpc_port_parcel_h h, float f) {
  return write(h, fake::Float(f));
}
int rpc_port_parcel_write_double(rpc_port_parcel_h h, double d) {
  return write(h, fake::Double(d));
}
int rpc_port_parcel_write_string(rpc_port_parcel_h h, const char *str) {
  if (str == nullptr) {
    return RPC_PORT_ERROR_INVALID_PARAMETER;
  }
  return write(h, fake::String(str));
}
int rpc_port_parcel_write_bool(rpc_port_parcel_h h, bool b) {
  return write(h, fake::Bool(b));
}
int rpc_port_parcel_write_array_count(rpc_port_parcel_h h, int count) {
  return write(h, fake::Count(count));
}

int rpc_port_parcel_read_byte(rpc_port_parcel_h h, char *b) {
  return readNumber(h, Kind::Byte, b);
}
int rpc_port_parcel_read_int16(rpc_port_parcel_h h, short *i) {
  return readNumber(h, Kind::Int16, i);
}
int rpc_port_parcel_read_int32(rpc_port_parcel_h h, int *i) {
  return readNumber(h, Kind::Int32, i);
}
int rpc_port_parcel_read_int64(rpc_port_parcel_h h, long long *i) {
  return readNumber(h, Kind::Int64, i);
}
int rpc_port_parcel_read_float(rpc_port_parcel_h h, float *f) {
  return readReal(h, Kind::Float, f);
}
int rpc_port_parcel_read_double(rpc_port_parcel_h h, double *d) {
  return readReal(h, Kind::Double, d);
}
int rpc_port_parcel_read_bool(rpc_port_parcel_h h, bool *b) {
  Value value;
  const int result = read(h, Kind::Bool, value);
  if (b != nullptr) {
    *b = value.integer != 0;
  }
  return result;
}
int rpc_port_parcel_read_array_count(rpc_port_parcel_h h, int *count) {
  return readNumber(h, Kind::Count, count);
}

int rpc_port_parcel_read_string(rpc_port_parcel_h h, char **str) {
  Value value;
  value.kind = Kind::String;
  const int result = read(h, Kind::String, value);
  if (str != nullptr) {
    *str = value.kind == Kind::NullString ? nullptr : strdup(value.text.c_str());
  }
  return result;
}

}  // extern "C"
