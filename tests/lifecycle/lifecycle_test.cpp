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
#include <map>
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
constexpr size_t kMaxLive = 50;
constexpr size_t kMaxSaved = 16;
constexpr A_HandleSize kGlobalBytes = 80, kRecordBytes = 12;
// The presets' ratios as the popup writes them (single precision).
constexpr float kPresetRatios[] = {4.0f / 3.0f, 1.66f, 16.0f / 9.0f, 1.85f, 2.35f, 2.76f};

Module& TheModule() {
  static Module module(CINEBAR_MODULE_PATH);
  return module;
}

int Steps() {
  const char* text = std::getenv("CINEBAR_LIFECYCLE_STEPS");
  const int steps = text != nullptr ? std::atoi(text) : 0;
  return steps > 0 ? steps : 10000;
}

// SplitMix64: the same numbers on every platform and standard library.
class Rng {
 public:
  explicit Rng(uint64_t seed) : state_(seed) {}
  uint64_t Next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  uint32_t Below(uint32_t n) { return static_cast<uint32_t>(Next() % n); }

 private:
  uint64_t state_;
};

int32_t PresetInBytes(const std::vector<uint8_t>& bytes) {
  int32_t preset = 0;
  std::memcpy(&preset, bytes.data(), sizeof preset);
  return preset;
}

class LongLife : public ::testing::Test {
 protected:
  // What the instance's record should say, after each command, by its history.
  struct Live {
    Instance* instance;
    int32_t preset;
  };

  ::testing::AssertionResult Check(const char* what, PF_Err err) {
    host.log().Clear();  // the log would grow with every command
    const std::string where = std::string(what) + " at step " + std::to_string(step);
    if (err != PF_Err_NONE) return ::testing::AssertionFailure() << where << " returned " << err;
    if (host.SuitesOutstanding() != 0)
      return ::testing::AssertionFailure() << where << ": suites outstanding";
    if (host.LiveHandleCount() != live.size() + 1) {
      return ::testing::AssertionFailure() << where << ": " << host.LiveHandleCount() << " live handles for "
                                           << live.size() << " instances";
    }
    const A_HandleSize bytes = kGlobalBytes + kRecordBytes * live.size();
    if (host.handles().LiveBytes() != bytes) {
      return ::testing::AssertionFailure()
             << where << ": " << host.handles().LiveBytes() << " bytes, expected " << bytes;
    }
    if (!host.ForgottenHandles().empty()) return ::testing::AssertionFailure() << where << ": handle leaked";
    for (const Live& l : live) {
      const int32_t stored = PresetInBytes(host.handles().Bytes(l.instance->sequence_data()));
      if (stored != l.preset) {
        return ::testing::AssertionFailure()
               << where << ": record says preset " << stored << ", expected " << l.preset;
      }
    }
    return ::testing::AssertionSuccess();
  }

  World Layer() {
    const A_long width = 1 + static_cast<A_long>(rng.Below(24));
    const A_long height = 1 + static_cast<A_long>(rng.Below(24));
    World input(width, height, rng.Below(2) == 1);
    input.FillPattern(static_cast<uint32_t>(step));
    return input;
  }

  Host host{TheModule()};
  Rng rng{0xC1AEBA5};
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
  const int steps = Steps();
  int counts[9] = {};

  for (step = 0; step < steps; ++step) {
    const uint32_t roll = rng.Below(100);
    const bool room = live.size() < kMaxLive;
    if (live.empty() || (room && roll < 12)) {
      auto applied = host.Apply(Layer());
      live.push_back({&applied.instance, 1});
      ASSERT_TRUE(Check("apply", applied.err));
      ++counts[0];
      continue;
    }
    const size_t pick = rng.Below(static_cast<uint32_t>(live.size()));
    Live& l = live[pick];
    Instance& instance = *l.instance;
    if (roll < 40) {  // a preset, the separator or "Custom"
      const A_long item = 1 + static_cast<A_long>(rng.Below(8));
      const PF_FpLong slider = instance.param(kRatio).u.fs_d.value;
      const PF_Err err = host.ChangePopup(instance, kPreset, item);
      if (item <= 6) l.preset = item;  // the separator and "Custom" move nothing
      ASSERT_TRUE(Check("preset", err));
      const double want = item <= 6 ? static_cast<double>(kPresetRatios[item - 1]) : slider;
      ASSERT_EQ(want, instance.param(kRatio).u.fs_d.value) << "step " << step;
      ++counts[1];
    } else if (roll < 55) {  // a typed ratio: a preset's own value, or one between them
      const bool exact = rng.Below(2) == 0;
      const uint32_t which = rng.Below(6);
      const double typed = exact ? static_cast<double>(kPresetRatios[which])
                                 : static_cast<double>(rng.Below(12000)) / 1000.0 + 0.0005;
      const PF_Err err = host.ChangeFloat(instance, kRatio, typed);
      l.preset = exact ? static_cast<int32_t>(which) + 1 : 8;
      ASSERT_TRUE(Check("ratio", err));
      ASSERT_EQ(l.preset, instance.param(kPreset).u.pd.value) << "step " << step;
      ++counts[2];
    } else if (roll < 62) {  // colour and render mode are not supervised, but a host may still say so
      if (rng.Below(2) == 0) {
        const PF_Pixel color{static_cast<A_u_char>(rng.Below(256)), static_cast<A_u_char>(rng.Below(256)), 0,
                             0};
        ASSERT_TRUE(Check("colour", host.ChangeColor(instance, kColor, color)));
      } else {
        ASSERT_TRUE(
            Check("mode", host.ChangePopup(instance, kRender, 1 + static_cast<A_long>(rng.Below(2)))));
      }
      ++counts[3];
    } else if (roll < 70) {
      ASSERT_TRUE(Check("update UI", host.UpdateParamsUI(instance)));
      ASSERT_EQ(l.preset, instance.param(kPreset).u.pd.value) << "step " << step;
      ++counts[4];
    } else if (roll < 78) {
      World output(instance.input().width(), instance.input().height(), instance.input().deep());
      ASSERT_TRUE(Check("render", host.Render(instance, output)));
      ASSERT_TRUE(output.GuardsIntact());
      ++counts[5];
    } else if (roll < 84) {
      SavedInstance project = host.Save(instance);
      ASSERT_EQ(l.preset, PresetInBytes(project.sequence_bytes));
      if (saved.size() == kMaxSaved) saved.erase(saved.begin() + rng.Below(kMaxSaved));
      saved.emplace_back(std::move(project), l.preset);
      ASSERT_TRUE(Check("save", PF_Err_NONE));
      ++counts[6];
    } else if (roll < 90 && room) {
      if (!saved.empty() && rng.Below(2) == 0) {
        const auto& project = saved[rng.Below(static_cast<uint32_t>(saved.size()))];
        auto reopened = host.Reopen(project.first, Layer());
        live.push_back({&reopened.instance, project.second});
        ASSERT_TRUE(Check("reopen", reopened.err));
      } else {
        const int32_t preset = l.preset;
        auto copy = host.Duplicate(instance);
        live.push_back({&copy.instance, preset});
        ASSERT_TRUE(Check("duplicate", copy.err));
      }
      ++counts[7];
    } else {
      live.erase(live.begin() + static_cast<std::ptrdiff_t>(pick));
      ASSERT_TRUE(Check("remove", host.Remove(instance)));
      ++counts[8];
    }
  }

  while (!live.empty()) {
    Instance& last = *live.back().instance;
    live.pop_back();
    ASSERT_TRUE(Check("remove", host.Remove(last)));
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
