#include "Handshake.h"

#include <cstdlib>
#include <memory>

namespace platform {

namespace {

constexpr int32_t kHelloMagic = 0x4f4c4548;  // "HELO"
constexpr int32_t kAckMagic = 0x4b434b41;    // "AKCK"

struct FreeDeleter {
  void operator()(char *text) const { std::free(text); }
};

std::optional<std::string> takeString(Parcel &parcel) {
  std::unique_ptr<char, FreeDeleter> text(readString(parcel));
  if (!text) {
    return std::nullopt;
  }
  return std::string(text.get());
}

bool expectMagic(Parcel &parcel, int32_t magic) {
  int32_t value = 0;
  return readValue(parcel, &value) && value == magic;
}

bool fullyRead(const Parcel &parcel) {
  return parcel.readOffset == parcel.bytes.size();
}

}  // namespace

Parcel encodeHello(const Hello &hello) {
  Parcel parcel;
  appendValue(parcel, kHelloMagic);
  appendValue(parcel, static_cast<int32_t>(hello.kind));
  appendString(parcel, hello.appId.c_str());
  appendString(parcel, hello.detail.c_str());
  return parcel;
}

std::optional<Hello> decodeHello(Parcel &parcel) {
  int32_t kind = 0;
  if (!expectMagic(parcel, kHelloMagic) || !readValue(parcel, &kind) ||
      (kind != static_cast<int32_t>(HelloKind::kMain) &&
       kind != static_cast<int32_t>(HelloKind::kCallback))) {
    return std::nullopt;
  }
  std::optional<std::string> appId = takeString(parcel);
  std::optional<std::string> detail = takeString(parcel);
  if (!appId || !detail || !fullyRead(parcel)) {
    return std::nullopt;
  }
  return Hello{static_cast<HelloKind>(kind), std::move(*appId), std::move(*detail)};
}

Parcel encodeAck(const Ack &ack) {
  Parcel parcel;
  appendValue(parcel, kAckMagic);
  appendValue(parcel, ack.status);
  appendString(parcel, ack.instance.c_str());
  return parcel;
}

std::optional<Ack> decodeAck(Parcel &parcel) {
  int32_t status = 0;
  if (!expectMagic(parcel, kAckMagic) || !readValue(parcel, &status)) {
    return std::nullopt;
  }
  std::optional<std::string> instance = takeString(parcel);
  if (!instance || !fullyRead(parcel)) {
    return std::nullopt;
  }
  return Ack{status, std::move(*instance)};
}

}  // namespace platform
