// Command lines and option values through the whole tool: forms it takes and
// forms it refuses (values only the module can judge are checked against the
// built module's controls), and the spellings that name a preset.
#include <gtest/gtest.h>

#include "tool_fixture.h"

namespace cinebar_tool_test {
namespace {

struct LineCase {
  const char* name;
  std::vector<std::string> args;
  int code;
  const char* says = "";  // part of what it prints
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
  EXPECT_NE((outcome.out + outcome.err).find(GetParam().says), std::string::npos)
      << outcome.out << outcome.err;
  if (GetParam().code != 0) {
    EXPECT_TRUE(OneLineError(outcome));
  }
  if (GetParam().code != 0 || GetParam().args.back() == "--dry-run") {
    EXPECT_EQ(Files(), std::vector<std::string>{"in.png"});
  }
}

INSTANTIATE_TEST_SUITE_P(
    Values, CommandLine,
    ::testing::Values(
        LineCase{"preset_full_name", R({"--preset", "16:9 (widescreen tv)"}), 0},
        LineCase{"preset_ratio", R({"--preset", "1.778"}), 0}, LineCase{"version", {"--version"}, 0},
        LineCase{
            "help", {"--help"}, 0, "Defaults: preset 4:3 (Academy), render On Image, color #000000FF, jobs"},
        LineCase{"ratio_w_h", R({"--ratio", "2.39:1"}), 0},
        LineCase{"preset_part_of_name", R({"--preset", "Anamorphic", "--dry-run"}), 0,
                 "32x18 8-bit: picture 32x13 from (0,2) to (32,15)"},
        LineCase{"all_bar_warned", R({"--ratio", "0", "--dry-run"}), 0, "the whole frame is bar"},
        LineCase{"preset_and_ratio", R({"--preset", "2.35", "--ratio", "1.85"}), 2, "excludes"},
        LineCase{"preset_ambiguous", R({"--preset", "a"}), 2},
        LineCase{"ratio_w_slash_h", R({"--ratio", "16/9", "--jobs", "3", "--compression", "0"}), 0},
        LineCase{"short_option", R({"-p", "2.35"}), 2}, LineCase{"jobs_zero", R({"--jobs", "0"}), 2},
        LineCase{"compression_13", R({"--compression", "13"}), 2}, LineCase{"info", {"info"}, 0},
        LineCase{"equals_form", R({"--ratio=2"}), 0}, LineCase{"no_command", {}, 2},
        LineCase{"unknown_command", {"paint"}, 2}, LineCase{"render_one_operand", {"render", "in.png"}, 2},
        LineCase{"unknown_option", R({"--blur", "3"}), 2, "unknown option --blur"},
        LineCase{"option_without_value", R({"--ratio"}), 2},
        LineCase{"ratio_above", R({"--ratio", "12.001"}), 2},
        LineCase{"ratio_below", R({"--ratio", "-0.5"}), 2},
        LineCase{"colour_not_hex", R({"--color", "#00ffzz"}), 2},
        LineCase{"aspect_too_big", R({"--pixel-aspect", "99999999999/1"}), 2},
        LineCase{"render_unknown", R({"--render", "on-video"}), 2},
        LineCase{"preset_unknown", R({"--preset", "3:2"}), 2},
        LineCase{"preset_near_ratio", R({"--preset", "1.34"}), 2}));

}  // namespace
}  // namespace cinebar_tool_test
