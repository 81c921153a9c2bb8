// Cost of dispatching one event as the number of live delegates grows.

#include <benchmark/benchmark.h>

#include "DispatchSetup.h"

namespace {

// Building a million delegates takes seconds; the benchmark library calls the function several
// times per size, so the setup for the current size is kept between calls.
bench::DispatchSetup &setupFor(int delegates) {
  static std::unique_ptr<bench::DispatchSetup> setup;
  static int size = 0;
  if (setup == nullptr || size != delegates) {
    setup.reset();
    setup = std::make_unique<bench::DispatchSetup>(delegates);
    size = delegates;
  }
  return *setup;
}

void BM_DispatchOneEvent(benchmark::State &state) {
  bench::DispatchSetup &setup = setupFor(static_cast<int>(state.range(0)));
  const long long before = setup.Received();
  for (auto _ : state) {
    bench::DispatchSetup::DispatchOne();
  }
  if (setup.Received() - before != static_cast<long long>(state.iterations())) {
    state.SkipWithError("events did not reach their delegate");
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

BENCHMARK(BM_DispatchOneEvent)->Arg(10)->Arg(1000)->Arg(100000)->Arg(1000000);

}  // namespace
