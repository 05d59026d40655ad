// Command lines and option values: forms the tool takes and forms it refuses,
// with the exit code and the one-line message; values that only the module
// can judge are checked against the built module's controls.
#include "tools/cinebar/options.h"

#include <gtest/gtest.h>

#include <ostream>

#include "tool_fixture.h"
#include "tools/cinebar/controls.h"
#include "tools/cinebar/session.h"
#include "tools/cinebar/tool_error.h"

namespace cinebar_tool_test {
namespace {

using cinebar_tool::ParseCommandLine;
using cinebar_tool::ToolError;

struct LineCase {
  const char* name;
  std::vector<std::string> args;
  bool accepted;
};
void PrintTo(const LineCase& c, std::ostream* out) { *out << c.name; }

class CommandLine : public ::testing::TestWithParam<LineCase> {};

TEST_P(CommandLine, AcceptsOrRefusesAsAUsageError) {
  const LineCase& c = GetParam();
  if (c.accepted) {
    EXPECT_NO_THROW(ParseCommandLine(c.args));
    return;
  }
  try {
    ParseCommandLine(c.args);
    ADD_FAILURE() << "accepted";
  } catch (const ToolError& e) {
    EXPECT_EQ(e.code(), cinebar_tool::kExitUsage);
    EXPECT_EQ(std::string(e.what()).find('\n'), std::string::npos);
  }
}

const std::vector<std::string> kRender = {"render", "in.png", "out.png"};
std::vector<std::string> With(std::vector<std::string> extra) {
  std::vector<std::string> args = kRender;
  args.insert(args.end(), extra.begin(), extra.end());
  return args;
}

INSTANTIATE_TEST_SUITE_P(
    Values, CommandLine,
    ::testing::Values(LineCase{"plain_render", kRender, true}, LineCase{"info", {"info"}, true},
                      LineCase{"demo_out", {"demo", "--out", "x"}, true},
                      LineCase{"equals_form", With({"--ratio=2"}), true},
                      LineCase{"colour_rgb", With({"--color", "#00ff80"}), true},
                      LineCase{"colour_rgba", With({"--color", "#00FF8040"}), true},
                      LineCase{"pixel_aspect", With({"--pixel-aspect", "10/11"}), true},
                      LineCase{"downsample_one", With({"--downsample", "1/2"}), true},
                      LineCase{"downsample_two", With({"--downsample", "1/2,1/4"}), true},
                      LineCase{"no_command", {}, false}, LineCase{"unknown_command", {"paint"}, false},
                      LineCase{"render_one_operand", {"render", "in.png"}, false},
                      LineCase{"info_operand", {"info", "x"}, false},
                      LineCase{"unknown_option", With({"--blur", "3"}), false},
                      LineCase{"option_without_value", With({"--ratio"}), false},
                      LineCase{"ratio_word", With({"--ratio", "wide"}), false},
                      LineCase{"ratio_trailing", With({"--ratio", "2.35x"}), false},
                      LineCase{"ratio_infinite", With({"--ratio", "inf"}), false},
                      LineCase{"colour_no_hash", With({"--color", "00ff80"}), false},
                      LineCase{"colour_short", With({"--color", "#0f8"}), false},
                      LineCase{"colour_not_hex", With({"--color", "#00ffzz"}), false},
                      LineCase{"colour_seven_digits", With({"--color", "#00ff801"}), false},
                      LineCase{"aspect_no_slash", With({"--pixel-aspect", "1"}), false},
                      LineCase{"aspect_zero", With({"--pixel-aspect", "0/1"}), false},
                      LineCase{"aspect_negative", With({"--pixel-aspect", "-1/2"}), false},
                      LineCase{"aspect_too_big", With({"--pixel-aspect", "99999999999/1"}), false},
                      LineCase{"downsample_trailing_comma", With({"--downsample", "1/2,"}), false},
                      LineCase{"downsample_zero_den", With({"--downsample", "1/0"}), false},
                      LineCase{"render_option_for_info", {"info", "--ratio", "2"}, false}));

TEST(ColourValue, ChannelsLandInTheHostsOrderWithOpaqueDefault) {
  const auto rgb = cinebar_tool::ParseColor("#102030");
  ASSERT_TRUE(rgb);
  EXPECT_EQ(rgb->red, 0x10);
  EXPECT_EQ(rgb->green, 0x20);
  EXPECT_EQ(rgb->blue, 0x30);
  EXPECT_EQ(rgb->alpha, 0xFF);
  const auto rgba = cinebar_tool::ParseColor("#102030a0");
  ASSERT_TRUE(rgba);
  EXPECT_EQ(rgba->alpha, 0xA0);
}

// Values judged by the module's own controls, through the whole tool.
struct ModuleValueCase {
  const char* name;
  std::vector<std::string> options;
  int code;
};
void PrintTo(const ModuleValueCase& c, std::ostream* out) { *out << c.name; }

class ModuleValues : public ToolTest, public ::testing::WithParamInterface<ModuleValueCase> {};

TEST_P(ModuleValues, RenderExitsWithTheExpectedCode) {
  const ModuleValueCase& c = GetParam();
  cinebar_tool::WritePng(Path("in.png"), PatternImage(32, 18, false));
  std::vector<std::string> args = {"render", Path("in.png"), Path("out.png")};
  args.insert(args.end(), c.options.begin(), c.options.end());
  const Outcome outcome = Run(args);
  EXPECT_EQ(outcome.code, c.code) << outcome.err;
  if (c.code != 0) {
    EXPECT_TRUE(OneLineError(outcome));
    EXPECT_EQ(Files(), std::vector<std::string>{"in.png"});
  }
}

INSTANTIATE_TEST_SUITE_P(Values, ModuleValues,
                         ::testing::Values(ModuleValueCase{"ratio_bottom", {"--ratio", "0"}, 0},
                                           ModuleValueCase{"ratio_top", {"--ratio", "12"}, 0},
                                           ModuleValueCase{"ratio_above", {"--ratio", "12.001"}, 2},
                                           ModuleValueCase{"ratio_below", {"--ratio", "-0.5"}, 2},
                                           ModuleValueCase{"render_image", {"--render", "on-image"}, 0},
                                           ModuleValueCase{
                                               "render_transparent", {"--render", "On Transparent"}, 0},
                                           ModuleValueCase{"render_unknown", {"--render", "on-video"}, 2},
                                           ModuleValueCase{"preset_unknown", {"--preset", "3:2"}, 2},
                                           ModuleValueCase{"preset_separator", {"--preset", "(-"}, 2},
                                           ModuleValueCase{"preset_custom", {"--preset", "Custom"}, 2},
                                           ModuleValueCase{"preset_near_ratio", {"--preset", "1.34"}, 2}));

// Every spelling of a preset chooses the popup item named.
struct PresetCase {
  const char* typed;
  const char* item;
};
void PrintTo(const PresetCase& c, std::ostream* out) { *out << c.typed; }

class PresetNames : public ::testing::TestWithParam<PresetCase> {};

TEST_P(PresetNames, ChooseTheModulesItem) {
  static cinebar_tool::Session session(CINEBAR_MODULE_PATH);
  const auto& preset = session.control(cinebar_tool::kPresetControl, PF_Param_POPUP);
  const auto& ratio = session.control(cinebar_tool::kRatioControl, PF_Param_FLOAT_SLIDER);
  const auto item = cinebar_tool::FindItem(preset, GetParam().typed, ratio.def.u.fs_d.precision);
  ASSERT_TRUE(item);
  EXPECT_EQ(preset.items.at(static_cast<std::size_t>(*item - 1)), GetParam().item);
}

INSTANTIATE_TEST_SUITE_P(
    Spellings, PresetNames,
    ::testing::Values(PresetCase{"2.35:1 (Anamorphic)", "2.35:1 (Anamorphic)"},
                      PresetCase{"16:9 (widescreen tv)", "16:9 (Widescreen TV)"},
                      PresetCase{"4:3", "4:3 (Academy)"}, PresetCase{"1.66", "1.66:1 (Super 16)"},
                      PresetCase{"16:9", "16:9 (Widescreen TV)"}, PresetCase{"1.85", "1.85:1 (Theatrical)"},
                      PresetCase{"2.35", "2.35:1 (Anamorphic)"}, PresetCase{"2.76:1", "2.76:1 (Ultra)"},
                      PresetCase{"1.333", "4:3 (Academy)"}, PresetCase{"1.778", "16:9 (Widescreen TV)"}));

}  // namespace
}  // namespace cinebar_tool_test
