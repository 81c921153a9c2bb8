// The delegates that the library fuzz targets register, in registration order: the library
// numbers delegates from 0 in the order it creates them, so the sequence number of each is its
// index here. The corpus capture uses the same table to address recorded events to them.
#ifndef OXA_TESTS_FUZZ_FUZZ_DELEGATES_H_
#define OXA_TESTS_FUZZ_FUZZ_DELEGATES_H_

namespace fuzz {

// Delegate ids, by registration: service registered, state changed, command received, simple
// message received, device found, device lost, context changed, command sent, message sent.
constexpr int kRegisteredDelegateIds[] = {1, 2, 4, 4, 5, 6, 7, 3, 3};

// The sequence number of the first registered delegate with `delegateId`, or -1.
constexpr int firstSeqOf(int delegateId) {
  int seq = 0;
  for (int id : kRegisteredDelegateIds) {
    if (id == delegateId) {
      return seq;
    }
    ++seq;
  }
  return -1;
}

}  // namespace fuzz

#endif  // OXA_TESTS_FUZZ_FUZZ_DELEGATES_H_
