// The simulated host's fill and copy against memset and memcpy of the same
// buffers in the same run, in bytes per second. After the runs a table gives
// each host function's rate as a share of its C library counterpart (the
// medians when the runs are repeated). On a shared machine run e.g.
//   cinebar_bench_pixels --benchmark_repetitions=5 --benchmark_enable_random_interleaving=true
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include "host/pixel_ops.h"
#include "host/world.h"
#include "hostapi/ae_constants.h"

namespace {

using cinebar_simhost::World;

std::size_t Bytes(PF_LayerDef* layer) {
  return static_cast<std::size_t>(layer->rowbytes) * static_cast<std::size_t>(layer->height);
}

void Sizes(benchmark::internal::Benchmark* b) {
  b->ArgNames({"w", "h", "bits"});
  for (int bits : {8, 16}) {
    b->Args({1920, 1080, bits});
    b->Args({3840, 2160, bits});
  }
}

World WorldFor(const benchmark::State& state) {
  return World(static_cast<A_long>(state.range(0)), static_cast<A_long>(state.range(1)),
               state.range(2) == 16);
}

// Times `fill` on one world of the benchmark's size and depth.
template <typename Fill>
void TimeFill(benchmark::State& state, Fill fill) {
  World world = WorldFor(state);
  PF_LayerDef* layer = world.layer();
  for (auto _ : state) {
    fill(*layer, state);
    benchmark::DoNotOptimize(layer->data);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * Bytes(layer)));
}

// Times `copy` from one world to another of the benchmark's size and depth.
template <typename Copy>
void TimeCopy(benchmark::State& state, Copy copy) {
  World src = WorldFor(state);
  World dst = WorldFor(state);
  PF_LayerDef* s = src.layer();
  PF_LayerDef* d = dst.layer();
  for (auto _ : state) {
    copy(*s, *d, state);
    benchmark::DoNotOptimize(d->data);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * Bytes(d)));
}

void SkipOnProblem(benchmark::State& state, const cinebar_simhost::PixelProblem& problem) {
  if (!problem.empty()) state.SkipWithError(problem.c_str());
}

void BM_HostFill(benchmark::State& state) {
  TimeFill(state, [](PF_LayerDef& layer, benchmark::State& st) {
    const PF_Pixel color{255, 10, 20, 30};
    const PF_Pixel16 color16{32768, 1000, 2000, 3000};
    SkipOnProblem(st, (layer.world_flags & PF_WorldFlag_DEEP) != 0
                          ? cinebar_simhost::FillRect16(color16, nullptr, layer)
                          : cinebar_simhost::FillRect8(color, nullptr, layer));
  });
}
BENCHMARK(BM_HostFill)->Apply(Sizes);

void BM_Memset(benchmark::State& state) {
  TimeFill(state,
           [](PF_LayerDef& layer, benchmark::State&) { std::memset(layer.data, 0x5A, Bytes(&layer)); });
}
BENCHMARK(BM_Memset)->Apply(Sizes);

void BM_HostCopy(benchmark::State& state) {
  TimeCopy(state, [](PF_LayerDef& src, PF_LayerDef& dst, benchmark::State& st) {
    SkipOnProblem(st, cinebar_simhost::CopyRect(src, dst, nullptr, nullptr));
  });
}
BENCHMARK(BM_HostCopy)->Apply(Sizes);

void BM_Memcpy(benchmark::State& state) {
  TimeCopy(state, [](PF_LayerDef& src, PF_LayerDef& dst, benchmark::State&) {
    std::memcpy(dst.data, src.data, Bytes(&dst));
  });
}
BENCHMARK(BM_Memcpy)->Apply(Sizes);

// Prints the usual console output, then host rate / library rate per size.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  RatioReporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_ColorTabular : OO_Tabular) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      const auto it = run.counters.find("bytes_per_second");
      if (it == run.counters.end() || run.error_occurred) continue;
      // With --benchmark_repetitions the median stands for the repetitions.
      const std::string name = run.benchmark_name();
      const std::string median = "_median";
      if (name.size() > median.size() &&
          name.compare(name.size() - median.size(), median.size(), median) == 0) {
        medians_[name.substr(0, name.size() - median.size())] = it->second.value;
      } else if (run.run_type == Run::RT_Iteration) {
        rates_[name] = it->second.value;
      }
    }
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    for (const auto& [name, rate] : medians_) rates_[name] = rate;
    std::printf("\n%-34s %12s %12s %8s\n", "host function / library (w/h/bits)", "host GB/s", "libc GB/s",
                "ratio");
    for (const auto& [name, rate] : rates_) {
      for (const auto& [host, libc] : {std::pair<std::string, std::string>{"BM_HostFill", "BM_Memset"},
                                       std::pair<std::string, std::string>{"BM_HostCopy", "BM_Memcpy"}}) {
        if (name.compare(0, host.size() + 1, host + "/") != 0) continue;
        const std::string args = name.substr(host.size());
        const auto other = rates_.find(libc + args);
        if (other == rates_.end()) continue;
        std::printf("%-34s %12.2f %12.2f %7.0f%%\n", (host.substr(3) + " / " + libc.substr(3) + args).c_str(),
                    rate / 1e9, other->second / 1e9, 100.0 * rate / other->second);
      }
    }
  }

 private:
  std::map<std::string, double> rates_;
  std::map<std::string, double> medians_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
