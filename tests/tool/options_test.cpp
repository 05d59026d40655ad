// Command lines and option values through the whole tool: forms it takes and
// forms it refuses (values only the module can judge are checked against the
// built module's controls), and the spellings that name a preset.
#include <gtest/gtest.h>

#include <ostream>

#include "tool_fixture.h"
#include "tools/cinebar/controls.h"
#include "tools/cinebar/session.h"

namespace cinebar_tool_test {
namespace {

struct LineCase {
  const char* name;
  std::vector<std::string> args;
  int code;
};
void PrintTo(const LineCase& c, std::ostream* out) { *out << c.name; }

std::vector<std::string> R(std::vector<std::string> options) {
  options.insert(options.begin(), {"render", "in.png", "out.png"});
  return options;
}

class CommandLine : public ToolTest, public ::testing::WithParamInterface<LineCase> {};

TEST_P(CommandLine, ExitCodeAndOnARefusalOneLineAndNoOutput) {
  WritePattern("in.png", 32, 18);
  const Outcome outcome = Run(GetParam().args);
  EXPECT_EQ(outcome.code, GetParam().code) << outcome.err;
  if (GetParam().code != 0) {
    EXPECT_TRUE(OneLineError(outcome));
    EXPECT_EQ(Files(), std::vector<std::string>{"in.png"});
  }
}

INSTANTIATE_TEST_SUITE_P(
    Values, CommandLine,
    ::testing::Values(
        LineCase{"plain_render", R({}), 0}, LineCase{"version", {"--version"}, 0},
        LineCase{"help", {"--help"}, 0}, LineCase{"ratio_w_h", R({"--ratio", "2.39:1"}), 0},
        LineCase{"ratio_w_slash_h", R({"--ratio", "16/9", "--jobs", "3", "--compression", "0"}), 0},
        LineCase{"short_option", R({"-p", "2.35"}), 2}, LineCase{"jobs_zero", R({"--jobs", "0"}), 2},
        LineCase{"compression_ten", R({"--compression", "10"}), 2}, LineCase{"info", {"info"}, 0},
        LineCase{"equals_form", R({"--ratio=2"}), 0}, LineCase{"colour_rgb", R({"--color", "#00ff80"}), 0},
        LineCase{"colour_rgba", R({"--color", "#00FF8040"}), 0},
        LineCase{"pixel_aspect", R({"--pixel-aspect", "10/11"}), 0},
        LineCase{"downsample_both", R({"--downsample", "1/2,1/4"}), 0},
        LineCase{"ratio_top", R({"--ratio", "12"}), 0},
        LineCase{"render_slug", R({"--render", "on-image"}), 0}, LineCase{"no_command", {}, 2},
        LineCase{"unknown_command", {"paint"}, 2}, LineCase{"render_one_operand", {"render", "in.png"}, 2},
        LineCase{"info_operand", {"info", "x"}, 2},
        LineCase{"render_option_for_info", {"info", "--ratio", "2"}, 2},
        LineCase{"unknown_option", R({"--blur", "3"}), 2},
        LineCase{"option_without_value", R({"--ratio"}), 2},
        LineCase{"ratio_trailing", R({"--ratio", "2.35x"}), 2},
        LineCase{"ratio_infinite", R({"--ratio", "inf"}), 2},
        LineCase{"ratio_above", R({"--ratio", "12.001"}), 2},
        LineCase{"ratio_below", R({"--ratio", "-0.5"}), 2},
        LineCase{"colour_no_hash", R({"--color", "x00ff80"}), 2},
        LineCase{"colour_short", R({"--color", "#0f8"}), 2},
        LineCase{"colour_not_hex", R({"--color", "#00ffzz"}), 2},
        LineCase{"aspect_no_slash", R({"--pixel-aspect", "1"}), 2},
        LineCase{"aspect_zero", R({"--pixel-aspect", "0/1"}), 2},
        LineCase{"aspect_too_big", R({"--pixel-aspect", "99999999999/1"}), 2},
        LineCase{"render_unknown", R({"--render", "on-video"}), 2},
        LineCase{"preset_unknown", R({"--preset", "3:2"}), 2},
        LineCase{"preset_custom", R({"--preset", "Custom"}), 2},
        LineCase{"preset_near_ratio", R({"--preset", "1.34"}), 2}));

// Full text in any case, short form with or without ":1", or the ratio to the
// slider's precision: each chooses the popup item named.
class PresetNames : public ::testing::TestWithParam<std::pair<const char*, const char*>> {};

TEST_P(PresetNames, ChooseTheModulesItem) {
  static cinebar_tool::Session session(CINEBAR_MODULE_PATH);
  const auto& preset = session.control(cinebar_tool::kPresetControl, PF_Param_POPUP);
  const auto& ratio = session.control(cinebar_tool::kRatioControl, PF_Param_FLOAT_SLIDER);
  const auto item = cinebar_tool::FindItem(preset, GetParam().first, ratio.def.u.fs_d.precision);
  ASSERT_TRUE(item);
  EXPECT_EQ(preset.items.at(static_cast<std::size_t>(*item - 1)), GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(Spellings, PresetNames,
                         ::testing::Values(std::pair{"16:9 (widescreen tv)", "16:9 (Widescreen TV)"},
                                           std::pair{"4:3", "4:3 (Academy)"},
                                           std::pair{"2.76:1", "2.76:1 (Ultra)"},
                                           std::pair{"1.66", "1.66:1 (Super 16)"},
                                           std::pair{"1.333", "4:3 (Academy)"},
                                           std::pair{"1.778", "16:9 (Widescreen TV)"}));

}  // namespace
}  // namespace cinebar_tool_test
