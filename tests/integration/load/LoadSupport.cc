#include "LoadSupport.h"

#include "ProcessState.h"

namespace oxa::test {

Bytes payloadFor(int index, size_t size) {
  Bytes payload(size);
  for (size_t at = 0; at < size; ++at) {
    payload[at] = static_cast<unsigned char>(static_cast<size_t>(index) * 31 + at);
  }
  return payload;
}

bool waitStopped(pid_t pid, std::chrono::milliseconds timeout) {
  return waitProcessState(pid, 'T', timeout);
}

}  // namespace oxa::test
