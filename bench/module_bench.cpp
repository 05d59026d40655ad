// The module's own work per command, with a host whose functions return at
// once: nanoseconds per call and heap allocations per call (counter "allocs").
#include <benchmark/benchmark.h>

#include <memory>

#include "bench/alloc_counter.h"
#include "bench/noop_host.h"

namespace cinebar_bench {
namespace {

const cinebar_simhost::Module& TheModule() {
  static const auto module = std::make_unique<cinebar_simhost::Module>(ModulePath());
  return *module;
}

// Runs `call` in the timed loop, then once more with allocations counted.
template <typename Call>
void Measure(benchmark::State& state, Call call) {
  for (auto _ : state) {
    const PF_Err err = call();
    if (err != PF_Err_NONE) {
      state.SkipWithError("the module returned an error");
      return;
    }
  }
  AllocationCount::Start();
  call();
  state.counters["allocs"] = static_cast<double>(AllocationCount::Stop());
}

void BM_Render(benchmark::State& state) {
  const bool deep = state.range(0) == 16;
  NoOpHost host(TheModule().entry(), 1920, 1080, deep);
  host.param(PARAM_RENDER).u.pd.value = static_cast<A_long>(state.range(1));  // 1 On Transparent, 2 On Image
  Measure(state, [&] { return host.Render(); });
}
BENCHMARK(BM_Render)->ArgNames({"bits", "mode"})->Args({8, 2})->Args({8, 1})->Args({16, 2})->Args({16, 1});

void BM_UserChangePreset(benchmark::State& state) {
  NoOpHost host(TheModule().entry(), 1920, 1080, false);
  Measure(state, [&] { return host.UserChanged(PARAM_PRESET); });
}
BENCHMARK(BM_UserChangePreset);

void BM_UserChangeRatio(benchmark::State& state) {
  NoOpHost host(TheModule().entry(), 1920, 1080, false);
  Measure(state, [&] { return host.UserChanged(PARAM_ASPECT_RATIO); });
}
BENCHMARK(BM_UserChangeRatio);

void BM_ParamsSetup(benchmark::State& state) {
  NoOpHost host(TheModule().entry(), 1920, 1080, false);
  Measure(state, [&] { return host.ParamsSetup(); });
}
BENCHMARK(BM_ParamsSetup);

}  // namespace
}  // namespace cinebar_bench

BENCHMARK_MAIN();
