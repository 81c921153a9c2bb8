// The wire, written by hand: frames, handshake frames, and raw socket ends that play a stub or a
// proxy byte for byte, so tests can check the exact bytes and send what no real peer would.
//
// Handshake as the platform speaks it (all values little-endian):
//   hello = int32 0x4f4c4548, int32 kind (1 main, 2 callback), string appId, string detail
//           (main: the privileges, comma-separated; callback: the instance id)
//   ack   = int32 0x4b434b41, int32 status (0 or -13), string instance
// where a string is an int32 count including the NUL, then the bytes.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace oxa::test {

using Bytes = std::vector<uint8_t>;

Bytes frame(const Bytes &body);
Bytes frameHeader(uint32_t length);
Bytes helloBody(int32_t kind, const std::string &appId, const std::string &detail);
Bytes ackBody(int32_t status, const std::string &instance);
Bytes intBody(int32_t value);

// One connected Unix stream socket end.
class RawSocket {
 public:
  RawSocket() = default;
  explicit RawSocket(int fd) : fd_(fd) {}
  RawSocket(RawSocket &&other) noexcept;
  RawSocket &operator=(RawSocket &&other) noexcept;
  RawSocket(const RawSocket &) = delete;
  RawSocket &operator=(const RawSocket &) = delete;
  ~RawSocket();

  static RawSocket connectTo(const std::string &path);
  bool valid() const { return fd_ >= 0; }
  bool writeAll(const Bytes &bytes) const;
  // True when a read would not block now (data or end of stream).
  bool readable() const;
  // Bytes written here that the peer has not read yet.
  size_t unreadBytes() const;
  // The body of the next frame, or nullopt at end of stream or after `timeout`.
  std::optional<Bytes> readFrame(std::chrono::milliseconds timeout) const;
  // True when the peer has closed (end of stream) within `timeout`; data read meanwhile is dropped.
  bool waitClosed(std::chrono::milliseconds timeout) const;
  void close();

 private:
  bool readExactly(uint8_t *out, size_t size, std::chrono::milliseconds timeout) const;

  int fd_ = -1;
};

// A listening socket at a port's path, standing in for a stub.
class RawListener {
 public:
  explicit RawListener(const std::string &path);
  RawListener(const RawListener &) = delete;
  RawListener &operator=(const RawListener &) = delete;
  ~RawListener();

  // The next pending connection, without waiting; invalid when there is none.
  RawSocket tryAccept() const;

 private:
  int fd_ = -1;
};

// The socket path of `portName` of `appId` under $RPC_PORT_RUNTIME_DIR.
std::string portPath(const std::string &appId, const std::string &portName);

}  // namespace oxa::test
