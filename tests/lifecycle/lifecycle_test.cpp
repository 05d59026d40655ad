// The long life of a project: thousands of user changes, renders, saves,
// reopenings, duplications and removals over up to fifty instances at once,
// drawn from a fixed seed. After every command every suite has been given
// back, each instance's record holds the preset its history implies, and the
// host's memory is exactly the global data plus one 12-byte record per live
// instance; at the end the host holds what it held before the module came.
// CINEBAR_LIFECYCLE_STEPS sets the number of commands (10000 by default).
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "host/sim_host.h"

namespace {

using cinebar_simhost::Host;
using cinebar_simhost::Instance;
using cinebar_simhost::Module;
using cinebar_simhost::SavedInstance;
using cinebar_simhost::World;

constexpr A_long kRender = 2, kPreset = 3, kRatio = 4, kColor = 5;
constexpr size_t kMaxLive = 50, kMaxSaved = 16;
constexpr A_HandleSize kGlobalBytes = 80, kRecordBytes = 12;
// The presets' ratios as the popup writes them (single precision).
constexpr float kPresetRatios[] = {4.0f / 3.0f, 1.66f, 16.0f / 9.0f, 1.85f, 2.35f, 2.76f};
// The kinds of step, and where each one's share of a roll of 100 ends.
enum Kind { kApply, kChangePreset, kTypeRatio, kUnwatched, kUpdateUI, kRenderIt, kSave, kCopy, kRemove };
constexpr uint32_t kShareEnds[] = {12, 40, 55, 62, 70, 78, 84, 90, 100};

int32_t PresetIn(const std::vector<uint8_t>& bytes) {
  int32_t preset = 0;
  std::memcpy(&preset, bytes.data(), sizeof preset);
  return preset;
}

class LongLife : public ::testing::Test {
 protected:
  struct Live {
    Instance* instance;
    int32_t preset;  // what its record should say, by its history
  };

  // What must hold after every command.
  void Check(const char* what, PF_Err err) {
    host.log().Clear();  // the log would grow with every command
    SCOPED_TRACE(std::string(what) + " at step " + std::to_string(step));
    ASSERT_EQ(PF_Err_NONE, err);
    ASSERT_EQ(0, host.SuitesOutstanding());
    ASSERT_TRUE(host.ForgottenHandles().empty()) << "a handle leaked";
    ASSERT_EQ(live.size() + 1, host.LiveHandleCount());
    ASSERT_EQ(kGlobalBytes + kRecordBytes * live.size(), host.handles().LiveBytes());
    for (const Live& l : live)
      ASSERT_EQ(l.preset, PresetIn(host.handles().Bytes(l.instance->sequence_data())));
  }

  // std::mt19937_64 gives the same numbers on every platform and standard library.
  uint32_t Below(size_t n) { return static_cast<uint32_t>(rng() % n); }

  World Layer() {
    const A_long width = 1 + static_cast<A_long>(Below(24));
    const A_long height = 1 + static_cast<A_long>(Below(24));
    World input(width, height, Below(2) == 1);
    input.FillPattern(static_cast<uint32_t>(step));
    return input;
  }

  Module module{CINEBAR_MODULE_PATH};
  Host host{module};
  std::mt19937_64 rng{0xC1AEBA5};
  std::vector<Live> live;
  std::vector<std::pair<SavedInstance, int32_t>> saved;  // project files and the preset they hold
  int step = 0;
};

TEST_F(LongLife, ManyInstancesComeAndGoAndTheHostGetsEverythingBack) {
  const size_t handles_before = host.LiveHandleCount();
  const A_HandleSize bytes_before = host.handles().LiveBytes();
  ASSERT_EQ(PF_Err_NONE, host.GlobalSetup());
  ASSERT_EQ(PF_Err_NONE, host.ParamsSetup());
  const PF_Handle global = host.global_data();
  const char* steps_text = std::getenv("CINEBAR_LIFECYCLE_STEPS");
  const int steps = steps_text != nullptr && std::atoi(steps_text) > 0 ? std::atoi(steps_text) : 10000;
  int counts[std::size(kShareEnds)] = {};

  // Once the steps are done, the instances left are removed.
  for (step = 0; step < steps || !live.empty(); ++step) {
    const uint32_t roll = Below(100);
    size_t kind = 0;
    while (roll >= kShareEnds[kind]) ++kind;
    if (step >= steps || (live.size() == kMaxLive && (kind == kApply || kind == kCopy))) kind = kRemove;
    if (live.empty()) kind = kApply;
    ++counts[kind];
    if (kind == kApply) {
      auto applied = host.Apply(Layer());
      live.push_back({&applied.instance, 1});
      ASSERT_NO_FATAL_FAILURE(Check("apply", applied.err));
      continue;
    }
    const size_t pick = Below(live.size());
    Live& l = live[pick];
    Instance& instance = *l.instance;
    if (kind == kChangePreset) {  // a preset, the separator or "Custom"
      const A_long item = 1 + static_cast<A_long>(Below(8));
      const PF_FpLong slider = instance.param(kRatio).u.fs_d.value;
      if (item <= 6) l.preset = item;  // the separator and "Custom" move nothing
      ASSERT_NO_FATAL_FAILURE(Check("preset", host.ChangePopup(instance, kPreset, item)));
      ASSERT_EQ(item <= 6 ? static_cast<double>(kPresetRatios[item - 1]) : slider,
                instance.param(kRatio).u.fs_d.value);
    } else if (kind == kTypeRatio) {  // a preset's own value, or one between them
      const bool exact = Below(2) == 0;
      const uint32_t which = Below(6);
      const double typed = exact ? static_cast<double>(kPresetRatios[which]) : Below(12000) / 1000.0 + 0.0005;
      l.preset = exact ? static_cast<int32_t>(which) + 1 : 8;
      ASSERT_NO_FATAL_FAILURE(Check("ratio", host.ChangeFloat(instance, kRatio, typed)));
      ASSERT_EQ(l.preset, instance.param(kPreset).u.pd.value);
    } else if (kind == kUnwatched) {  // not supervised, but a host may still say so
      const PF_Pixel color{static_cast<A_u_char>(Below(256)), static_cast<A_u_char>(Below(256)), 0, 0};
      const A_long mode = 1 + static_cast<A_long>(Below(2));
      ASSERT_NO_FATAL_FAILURE(Below(2) == 0 ? Check("colour", host.ChangeColor(instance, kColor, color))
                                            : Check("mode", host.ChangePopup(instance, kRender, mode)));
    } else if (kind == kUpdateUI) {
      ASSERT_NO_FATAL_FAILURE(Check("update UI", host.UpdateParamsUI(instance)));
      ASSERT_EQ(l.preset, instance.param(kPreset).u.pd.value);
    } else if (kind == kRenderIt) {
      World output(instance.input().width(), instance.input().height(), instance.input().deep());
      ASSERT_NO_FATAL_FAILURE(Check("render", host.Render(instance, output)));
      ASSERT_TRUE(output.GuardsIntact());
    } else if (kind == kSave) {
      SavedInstance project = host.Save(instance);
      ASSERT_EQ(l.preset, PresetIn(project.sequence_bytes));
      if (saved.size() == kMaxSaved) saved.erase(saved.begin() + Below(kMaxSaved));
      saved.emplace_back(std::move(project), l.preset);
      ASSERT_NO_FATAL_FAILURE(Check("save", PF_Err_NONE));
    } else if (kind == kCopy) {  // a saved project reopened, or the instance duplicated
      const auto* project = !saved.empty() && Below(2) == 0 ? &saved[Below(saved.size())] : nullptr;
      const int32_t preset = project != nullptr ? project->second : l.preset;
      auto made = project != nullptr ? host.Reopen(project->first, Layer()) : host.Duplicate(instance);
      live.push_back({&made.instance, preset});
      ASSERT_NO_FATAL_FAILURE(Check(project != nullptr ? "reopen" : "duplicate", made.err));
    } else {
      live.erase(live.begin() + static_cast<std::ptrdiff_t>(pick));
      ASSERT_NO_FATAL_FAILURE(Check("remove", host.Remove(instance)));
    }
  }

  ASSERT_EQ(PF_Err_NONE, host.GlobalSetdown());
  EXPECT_EQ(0, host.SuitesOutstanding());
  // The host frees its global data itself; nothing else may be left.
  ASSERT_EQ(std::vector<PF_Handle>{global}, host.ForgottenHandles());
  ASSERT_EQ("", host.handles().Dispose(global));
  EXPECT_EQ(handles_before, host.LiveHandleCount());
  EXPECT_EQ(bytes_before, host.handles().LiveBytes());
  // Every kind of step happened, many times over.
  for (const int count : counts) EXPECT_GT(count, steps / 100);
}

}  // namespace
