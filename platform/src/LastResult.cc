// The base error facility: one last-result value per thread.
#include "Exported.h"

namespace {
thread_local int lastResult = 0;
}  // namespace

extern "C" int get_last_result(void) {
  return lastResult;
}

extern "C" void set_last_result(int result) {
  lastResult = result;
}
