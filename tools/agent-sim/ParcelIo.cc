#include "ParcelIo.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace oxa_sim {

namespace {

// What a byte array may take before its first byte is read; it doubles as bytes arrive.
constexpr size_t kFirstByteChunk = 4096;

// The host transport writes values untagged, little-endian and fixed-width (platform/README.md),
// so eight bytes moved as one int64 are the same eight bytes on the wire, for an eighth of the
// calls into the parcel.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "byte blocks assume little-endian");
constexpr size_t kBlockBytes = sizeof(long long);

// Reads `size` bytes into `out`; false when the parcel holds fewer.
bool readRaw(rpc_port_parcel_h parcel, unsigned char *out, size_t size) {
  size_t done = 0;
  for (; done + kBlockBytes <= size; done += kBlockBytes) {
    long long block = 0;
    if (rpc_port_parcel_read_int64(parcel, &block) != RPC_PORT_ERROR_NONE) {
      return false;
    }
    std::memcpy(out + done, &block, kBlockBytes);
  }
  for (; done < size; ++done) {
    char byte = 0;
    if (rpc_port_parcel_read_byte(parcel, &byte) != RPC_PORT_ERROR_NONE) {
      return false;
    }
    out[done] = static_cast<unsigned char>(byte);
  }
  return true;
}

void writeRaw(rpc_port_parcel_h parcel, const unsigned char *data, size_t size) {
  size_t done = 0;
  for (; done + kBlockBytes <= size; done += kBlockBytes) {
    long long block = 0;
    std::memcpy(&block, data + done, kBlockBytes);
    rpc_port_parcel_write_int64(parcel, block);
  }
  for (; done < size; ++done) {
    rpc_port_parcel_write_byte(parcel, static_cast<char>(data[done]));
  }
}

// Reads typed values in order and remembers whether any read failed.
class Reader {
 public:
  explicit Reader(rpc_port_parcel_h parcel) : parcel_(parcel) {}

  bool ok() const { return ok_; }

  int int32() {
    int value = 0;
    check(rpc_port_parcel_read_int32(parcel_, &value));
    return value;
  }

  bool boolean() {
    bool value = false;
    check(rpc_port_parcel_read_bool(parcel_, &value));
    return value;
  }

  std::string string() {
    char *raw = nullptr;
    check(rpc_port_parcel_read_string(parcel_, &raw));
    std::string value = raw != nullptr ? raw : "";
    std::free(raw);  // NOLINT(cppcoreguidelines-no-malloc): the parcel allocates with malloc.
    return value;
  }

  // The count comes from the wire: memory grows with the bytes actually read, never from the
  // count alone, so a parcel that claims more than it holds costs no more than what it holds.
  Bytes bytes() {
    int count = 0;
    check(rpc_port_parcel_read_array_count(parcel_, &count));
    const size_t wanted = ok_ && count > 0 ? static_cast<size_t>(count) : 0;
    Bytes value(std::min(wanted, kFirstByteChunk));
    for (size_t filled = 0; filled < wanted; filled = value.size()) {
      if (filled > 0) {
        value.resize(std::min(wanted, 2 * filled));
      }
      if (!readRaw(parcel_, value.data() + filled, value.size() - filled)) {
        ok_ = false;
        return {};
      }
    }
    return value;
  }

  CommandRecord command() {
    CommandRecord record;
    record.address = string();
    record.handlerId = int32();
    record.id = int32();
    record.type = int32();
    record.payload = bytes();
    record.seq = int32();
    return record;
  }

  Delegate delegate() {
    Delegate value;
    value.id = int32();
    value.seq = int32();
    value.once = boolean();
    return value;
  }

 private:
  void check(int result) { ok_ = ok_ && result == RPC_PORT_ERROR_NONE; }

  rpc_port_parcel_h parcel_;
  bool ok_ = true;
};

class Writer {
 public:
  Writer() {
    rpc_port_parcel_h raw = nullptr;
    if (rpc_port_parcel_create(&raw) == RPC_PORT_ERROR_NONE) {
      parcel_.reset(raw);
    }
  }

  Parcel release() { return std::move(parcel_); }

  void int32(int value) { rpc_port_parcel_write_int32(parcel_.get(), value); }
  void boolean(bool value) { rpc_port_parcel_write_bool(parcel_.get(), value); }
  void string(const std::string &value) {
    rpc_port_parcel_write_string(parcel_.get(), value.c_str());
  }

  void bytes(const Bytes &value) {
    rpc_port_parcel_write_array_count(parcel_.get(), static_cast<int>(value.size()));
    writeRaw(parcel_.get(), value.data(), value.size());
  }

  void device(const DeviceRecord &record) {
    string(record.address);
    int32(record.type);
    string(record.name);
  }

  void command(const CommandRecord &record) {
    string(record.address);
    int32(record.handlerId);
    int32(record.id);
    int32(record.type);
    bytes(record.payload);
    int32(record.seq);
  }

  void delegate(const Delegate &value) {
    int32(value.id);
    int32(value.seq);
    boolean(value.once);
  }

 private:
  Parcel parcel_;
};

void readField(Reader &reader, RequestField field, Request &request) {
  switch (field) {
    case RequestField::HandlerId:
      request.handlerId = reader.int32();
      break;
    case RequestField::Address:
      request.address = reader.string();
      break;
    case RequestField::ContextType:
      request.contextType = reader.int32();
      break;
    case RequestField::AppId:
      request.appId = reader.int32();
      break;
    case RequestField::Bytes:
      request.bytes = reader.bytes();
      break;
    case RequestField::Command:
      request.command = reader.command();
      break;
    case RequestField::Delegate:
      request.delegate = reader.delegate();
      break;
  }
}

void writeField(Writer &writer, ReplyField field, const Reply &reply) {
  switch (field) {
    case ReplyField::State:
      writer.boolean(reply.state);
      break;
    case ReplyField::Device:
      writer.device(reply.device);
      break;
    case ReplyField::DeviceList:
      writer.int32(static_cast<int>(reply.devices.size()));
      for (const DeviceRecord &device : reply.devices) {
        writer.device(device);
      }
      break;
    case ReplyField::Bytes:
      writer.bytes(reply.bytes);
      break;
  }
}

void writeEventFields(Writer &writer, const Event &event) {
  switch (event.kind) {
    case EventKind::ServiceRegistered:
      writer.int32(event.result);
      break;
    case EventKind::ServiceStateChanged:
      writer.boolean(event.state);
      break;
    case EventKind::CommandSent:
      writer.int32(event.result);
      writer.command(event.command);
      break;
    case EventKind::CommandReceived:
      writer.command(event.command);
      break;
    case EventKind::DeviceFound:
    case EventKind::DeviceLost:
    case EventKind::ContextChanged:
      writer.device(event.device);
      break;
  }
}

}  // namespace

Parcel receiveParcel(rpc_port_h port) {
  rpc_port_parcel_h raw = nullptr;
  if (rpc_port_parcel_create_from_port(&raw, port) != RPC_PORT_ERROR_NONE) {
    return nullptr;
  }
  return Parcel(raw);
}

int sendParcel(const Parcel &parcel, rpc_port_h port) {
  if (!parcel) {
    return RPC_PORT_ERROR_OUT_OF_MEMORY;
  }
  return rpc_port_parcel_send(parcel.get(), port);
}

std::optional<Request> readRequest(rpc_port_parcel_h parcel) {
  Reader reader(parcel);
  const std::optional<Method> method = methodFromId(reader.int32());
  if (!method || !reader.ok()) {
    return std::nullopt;
  }
  Request request;
  request.method = *method;
  for (RequestField field : layoutOf(*method).request) {
    readField(reader, field, request);
  }
  if (!reader.ok()) {
    return std::nullopt;
  }
  return request;
}

Parcel writeReply(const Reply &reply) {
  Writer writer;
  writer.int32(kReplyCommandId);
  for (ReplyField field : layoutOf(reply.method).reply) {
    writeField(writer, field, reply);
  }
  writer.int32(reply.result);
  return writer.release();
}

Parcel writeEvent(const Event &event) {
  Writer writer;
  writer.int32(kEventCommandId);
  writer.delegate(event.delegate);
  writeEventFields(writer, event);
  return writer.release();
}

}  // namespace oxa_sim
