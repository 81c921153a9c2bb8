// Preloaded into oxa-agent-sim (LD_PRELOAD), records real traffic as seed inputs for the fuzz
// targets under $OXA_FUZZ_CAPTURE_DIR/<target>/, one file per distinct input:
//   sim_request     every request the simulator reads
//   reply_readers   every reply it sends, after one byte naming the request's method
//   event_dispatch  every event it sends, addressed to the fuzz targets' delegate of that kind
//   frame_reader    every parcel as a frame on the wire, after a typical read script
// The simulator is single-threaded, so a reply follows the request it answers.
#include <dlfcn.h>
#include <rpc-port.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "FuzzDelegates.h"

namespace {

using Body = std::vector<uint8_t>;
using CreateFromPort = int (*)(rpc_port_parcel_h *, rpc_port_h);
using Send = int (*)(rpc_port_parcel_h, rpc_port_h);

constexpr size_t kInt32 = 4;
// Read script of the frame reader seeds: its length, then int32 x3, bool, string, int32,
// string, byte array, int32, string, int32, int32.
constexpr uint8_t kReadScript[] = {12, 2, 2, 2, 6, 7, 2, 7, 8, 2, 7, 2, 2};

int lastMethod = 0;

int32_t int32At(const Body &body, size_t offset) {
  int32_t value = 0;
  std::memcpy(&value, body.data() + offset, kInt32);
  return value;
}

void putInt32(Body &body, size_t offset, int32_t value) {
  std::memcpy(body.data() + offset, &value, kInt32);
}

// Reads the whole parcel (it is not read again by its owner after this).
Body drain(rpc_port_parcel_h parcel) {
  Body body;
  char byte = 0;
  while (rpc_port_parcel_read_byte(parcel, &byte) == 0) {
    body.push_back(static_cast<uint8_t>(byte));
  }
  return body;
}

// FNV-1a: a stable name per content, so that a capture run adds each input once.
std::string nameOf(const Body &body) {
  uint64_t hash = 14695981039346656037ULL;
  for (uint8_t byte : body) {
    hash = (hash ^ byte) * 1099511628211ULL;
  }
  char name[17];
  std::snprintf(name, sizeof name, "%016llx", static_cast<unsigned long long>(hash));
  return name;
}

void save(const char *target, const Body &input) {
  const char *dir = std::getenv("OXA_FUZZ_CAPTURE_DIR");
  if (dir == nullptr) {
    return;
  }
  const std::string path = std::string(dir) + "/" + target + "/" + nameOf(input);
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char *>(input.data()),
             static_cast<std::streamsize>(input.size()));
}

void saveFrame(const Body &body) {
  Body input(std::begin(kReadScript), std::end(kReadScript));
  const size_t at = input.size();
  input.resize(at + kInt32);
  putInt32(input, at, static_cast<int32_t>(body.size()));
  input.insert(input.end(), body.begin(), body.end());
  save("frame_reader", input);
}

void saveRequest(const Body &body) {
  if (body.size() >= kInt32) {
    lastMethod = int32At(body, 0);
  }
  save("sim_request", body);
  saveFrame(body);
}

void saveSent(const Body &body) {
  saveFrame(body);
  if (body.size() < kInt32) {
    return;
  }
  if (int32At(body, 0) == 0) {
    Body input{static_cast<uint8_t>(lastMethod - 3)};
    input.insert(input.end(), body.begin(), body.end());
    save("reply_readers", input);
  } else if (body.size() >= 3 * kInt32) {
    Body input = body;
    const int seq = fuzz::firstSeqOf(int32At(body, kInt32));
    if (seq >= 0) {
      putInt32(input, 2 * kInt32, seq);
    }
    save("event_dispatch", input);
  }
}

template <typename Function>
Function real(const char *name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" int rpc_port_parcel_create_from_port(rpc_port_parcel_h *h, rpc_port_h port) {
  static const auto createFromPort = real<CreateFromPort>("rpc_port_parcel_create_from_port");
  const int result = createFromPort(h, port);
  if (result != RPC_PORT_ERROR_NONE) {
    return result;
  }
  const Body body = drain(*h);
  saveRequest(body);
  // Hand the simulator an unread copy.
  rpc_port_parcel_destroy(*h);
  rpc_port_parcel_create(h);
  for (uint8_t byte : body) {
    rpc_port_parcel_write_byte(*h, static_cast<char>(byte));
  }
  return result;
}

extern "C" int rpc_port_parcel_send(rpc_port_parcel_h h, rpc_port_h port) {
  static const auto send = real<Send>("rpc_port_parcel_send");
  const int result = send(h, port);
  saveSent(drain(h));
  return result;
}
