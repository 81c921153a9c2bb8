// Arbitrary callback parcels into the library's event dispatch, with a delegate of every kind
// registered (FuzzDelegates.h), so that inputs addressed to them reach every decoder and every
// application callback.
#include <cstddef>
#include <cstdint>

#include "InMemoryPlatform.h"
#include "LibrarySession.h"

// The session is set up before the first input, so that its lasting allocations are not taken
// for a leak of that input.
extern "C" int LLVMFuzzerInitialize(int * /*argc*/, char *** /*argv*/) {
  fuzz::connectLibrary();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::connectLibrary();
  fuzz::queueEvent(data, size);
  fuzz::fireReceived();
  fuzz::clearQueues();
  return 0;
}
