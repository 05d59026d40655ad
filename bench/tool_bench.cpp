// `cinebar render` throughput on a 1080p sequence, through the tool's own
// code: frames per second with PNG reading and writing (counter "fps"), and
// the render step alone (module life cycle's render plus the conversions
// between PNG samples and the host's worlds).
#include <benchmark/benchmark.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>
#include <string>

#include "tools/cinebar/chart.h"
#include "tools/cinebar/image.h"
#include "tools/cinebar/session.h"
#include "tools/cinebar/tool.h"

namespace {

constexpr int kFrames = 8;

struct Sequence {
  std::string root, in, out;
  Sequence() {
    char pattern[] = "/tmp/cinebar-bench-XXXXXX";
    root = mkdtemp(pattern);
    in = root + "/in";
    out = root + "/out";

    ::mkdir(in.c_str(), 0777);
    const cinebar_tool::Image chart = cinebar_tool::MakeTestChart(1920, 1080);
    for (int i = 1; i <= kFrames; ++i) {
      char name[32];
      std::snprintf(name, sizeof name, "/frame_%04d.png", i);
      cinebar_tool::WritePng(in + name, chart);
    }
  }
  ~Sequence() {
    for (const std::string& dir : {in, out}) {
      for (int i = 1; i <= kFrames; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "/frame_%04d.png", i);
        ::unlink((dir + name).c_str());
      }
      ::rmdir(dir.c_str());
    }
    ::rmdir(root.c_str());
  }
};

void BM_ToolRenderSequence(benchmark::State& state) {
  static const Sequence sequence;
  std::ostringstream out, err;
  cinebar_tool::Console console{out, err, false, "", nullptr};
  for (auto _ : state) {
    if (cinebar_tool::RunTool({"render", sequence.in, sequence.out, "--preset", "2.35", "--overwrite"},
                              console) != 0) {
      state.SkipWithError(err.str().c_str());
      return;
    }
  }
  state.counters["fps"] = benchmark::Counter(kFrames, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_ToolRenderSequence)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_LayerRender(benchmark::State& state) {
  const cinebar_tool::Image chart = cinebar_tool::MakeTestChart(1920, 1080);
  cinebar_tool::Session session(cinebar_tool::ChooseModulePath("", std::getenv("CINEBAR_MODULE"), ""));
  cinebar_tool::Layer layer(session, chart);
  for (auto _ : state) benchmark::DoNotOptimize(layer.Render(chart));
  state.counters["fps"] = benchmark::Counter(1, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_LayerRender)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
