// Files the tool cannot use: the exit code, one line on stderr, and no output
// file (not even a partial or temporary one) left behind.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <ostream>

#include "tool_fixture.h"

namespace cinebar_tool_test {
namespace {

struct FileCase {
  const char* name;
  // Prepares the folder; returns {IN, OUT} relative to it.
  std::pair<std::string, std::string> (*prepare)(ToolTest& test, const std::string& dir);
  int code;
};
void PrintTo(const FileCase& c, std::ostream* out) { *out << c.name; }

void Good(const std::string& dir) { cinebar_tool::WritePng(dir + "/in.png", PatternImage(40, 30, false)); }

const FileCase kFileCases[] = {
    {"missing_input",
     [](ToolTest&, const std::string&) {
       return std::make_pair(std::string("nothing.png"), std::string("out.png"));
     },
     3},
    {"text_named_png",
     [](ToolTest&, const std::string& dir) {
       std::ofstream(dir + "/in.png") << "not a picture\n";
       return std::make_pair(std::string("in.png"), std::string("out.png"));
     },
     3},
    {"empty_file",
     [](ToolTest&, const std::string& dir) {
       std::ofstream(dir + "/in.png").flush();
       return std::make_pair(std::string("in.png"), std::string("out.png"));
     },
     3},
    {"cut_short_png",
     [](ToolTest&, const std::string& dir) {
       Good(dir);
       EXPECT_EQ(truncate((dir + "/in.png").c_str(), 100), 0);
       return std::make_pair(std::string("in.png"), std::string("out.png"));
     },
     3},
    {"output_folder_missing",
     [](ToolTest&, const std::string& dir) {
       Good(dir);
       return std::make_pair(std::string("in.png"), std::string("no/such/folder/out.png"));
     },
     5},
    {"output_folder_is_a_file",
     [](ToolTest&, const std::string& dir) {
       Good(dir);
       std::ofstream(dir + "/plain") << "x";
       return std::make_pair(std::string("in.png"), std::string("plain/out.png"));
     },
     5},
    {"output_is_a_folder",
     [](ToolTest&, const std::string& dir) {
       Good(dir);
       EXPECT_EQ(mkdir((dir + "/taken").c_str(), 0777), 0);
       return std::make_pair(std::string("in.png"), std::string("taken"));
     },
     2},
    {"empty_input_folder",
     [](ToolTest&, const std::string& dir) {
       EXPECT_EQ(mkdir((dir + "/frames").c_str(), 0777), 0);
       return std::make_pair(std::string("frames"), std::string("rendered"));
     },
     3},
};

class FileErrors : public ToolTest, public ::testing::WithParamInterface<FileCase> {};

TEST_P(FileErrors, ExitCodeOneLineAndNoOutputLeft) {
  const auto [in, out] = GetParam().prepare(*this, dir_);
  const std::vector<std::string> before = Files();
  const Outcome outcome = Run({"render", Path(in), Path(out)});
  EXPECT_EQ(outcome.code, GetParam().code) << outcome.err;
  EXPECT_TRUE(OneLineError(outcome));
  EXPECT_EQ(Files(), before);
}

INSTANTIATE_TEST_SUITE_P(Files, FileErrors, ::testing::ValuesIn(kFileCases));

TEST_F(ToolTest, ABadFrameStopsTheSequenceAfterTheFramesBeforeIt) {
  ASSERT_EQ(mkdir(Path("frames").c_str(), 0777), 0);
  cinebar_tool::WritePng(Path("frames/a.png"), PatternImage(40, 30, false));
  WriteText("frames/b.png", "not a picture");
  cinebar_tool::WritePng(Path("frames/c.png"), PatternImage(40, 30, false));
  const Outcome outcome = Run({"render", Path("frames"), Path("rendered")});
  EXPECT_EQ(outcome.code, 3);
  EXPECT_TRUE(OneLineError(outcome));
  EXPECT_NE(outcome.err.find("b.png"), std::string::npos) << outcome.err;
  EXPECT_EQ(Files("rendered"), std::vector<std::string>{"a.png"});
}

}  // namespace
}  // namespace cinebar_tool_test
