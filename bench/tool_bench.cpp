// `cinebar render` throughput on a 1080p sequence, through the tool's own
// code: frames per second with PNG reading and writing (counter "fps"), and
// the render stage alone (the frame into the host's world, the module's
// render, the bars and picture back into a frame).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <sstream>
#include <string>

#include "tools/cinebar/chart.h"
#include "tools/cinebar/layer.h"
#include "tools/cinebar/session.h"
#include "tools/cinebar/temporaries.h"
#include "tools/cinebar/tool.h"

namespace {

constexpr int kFrames = 8;

struct Sequence {
  std::filesystem::path root = std::filesystem::temp_directory_path() / "cinebar-bench";
  Sequence() {
    std::filesystem::create_directories(root / "in");
    const cinebar_tool::Frame chart = cinebar_tool::MakeTestChart(1920, 1080);
    cinebar_tool::Temporaries temps;
    for (int i = 1; i <= kFrames; ++i) {
      char name[32];
      std::snprintf(name, sizeof name, "frame_%04d.png", i);
      const std::string path = (root / "in" / name).string();
      temps.Commit(temps.Write(path, chart, cinebar_tool::WriteSettings{}), path,
                   cinebar_tool::Replace::kAtomically);
    }
  }
  ~Sequence() { std::filesystem::remove_all(root); }
};

void BM_ToolRenderSequence(benchmark::State& state) {
  static const Sequence sequence;
  std::ostringstream out, err;
  cinebar_tool::Console console{out, err, false, "", nullptr};
  for (auto _ : state) {
    if (cinebar_tool::RunTool({"render", (sequence.root / "in").string(), (sequence.root / "out").string(),
                               "--preset", "2.35", "--overwrite"},
                              console) != 0) {
      state.SkipWithError(err.str().c_str());
      return;
    }
  }
  state.counters["fps"] = benchmark::Counter(kFrames, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_ToolRenderSequence)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_LayerRender(benchmark::State& state) {
  const cinebar_tool::Frame chart = cinebar_tool::MakeTestChart(1920, 1080);
  cinebar_tool::Session session(cinebar_tool::ChooseModulePath("", std::getenv("CINEBAR_MODULE"), ""));
  cinebar_tool::Layer layer(session);
  cinebar_tool::Frame out;
  for (auto _ : state) layer.Render(chart, out, nullptr);
  state.counters["fps"] = benchmark::Counter(1, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_LayerRender)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
