// The anchor of the side-by-side benchmark: the same exchanges as the library's, on a bare Unix
// stream socket to a child process, with nothing but the frames. A request is one frame each
// way (blocking write, blocking read); a discovery round is a request whose reply is followed by
// `events` frames, each sent with its own write.
#pragma once

#include <sys/types.h>

#include <cstddef>

namespace bench {

// Frame sizes (4-byte length included) of the library's traffic in the side-by-side run:
// oxa_start_discovery is method id and handler id out, command id and result back; a
// device-found event carries the command id, the delegate header and a device record of a
// 17-character address and a 15-character name.
constexpr size_t kRequestFrame = 4 + 4 + 4;
constexpr size_t kReplyFrame = 4 + 4 + 4;
constexpr size_t kEventFrame = 4 + (4 + 4 + 4 + 1) + (4 + 18) + 4 + (4 + 16);

class RawPeer {
 public:
  // Forks the peer; it answers until this object goes away.
  explicit RawPeer(int events);
  RawPeer(const RawPeer &) = delete;
  RawPeer &operator=(const RawPeer &) = delete;
  ~RawPeer();

  // One request frame out, one reply frame back.
  void request();
  // One request frame out, the reply and `events` event frames back.
  void discoveryRound();

 private:
  void exchange(char kind, size_t expected);

  int fd_ = -1;
  pid_t child_ = -1;
  int events_;
};

}  // namespace bench
