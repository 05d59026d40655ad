// Files and sequences of frames: what the tool leaves for each set of inputs
// and outputs. A file it cannot use gives the exit code and one line on
// stderr, and no output file (not even a partial or temporary one); a
// sequence renders every frame under its name and stops at a bad one.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <ostream>

#include "tool_fixture.h"
#include "tools/cinebar/image.h"

namespace cinebar_tool_test {
namespace {

struct FileCase {
  const char* name;
  // Set up in order: "x/" a folder; "x.png" a picture, except that names with
  // "bad" hold text, "cut" a picture cut short, "empty" nothing; others text.
  const char* files;
  const char* in_out;
  int code;
  const char* folder;  // holds exactly `left` afterwards
  const char* left;
};
void PrintTo(const FileCase& c, std::ostream* out) { *out << c.name; }

class FilesLeft : public ToolTest, public ::testing::WithParamInterface<FileCase> {};

TEST_P(FilesLeft, ExitCodeMessageAndTheFilesLeft) {
  const FileCase& c = GetParam();
  for (const std::string& name : Words(c.files)) {
    const auto has = [&](const char* part) { return name.find(part) != std::string::npos; };
    if (name.back() == '/') {
      std::filesystem::create_directory(name);
    } else if (has(".png") && !has("bad") && !has("empty")) {
      WritePattern(name, 48, 27);
      if (has("cut")) std::filesystem::resize_file(name, 100);
    } else {
      std::ofstream(name) << (has("empty") ? "" : "not a picture");
    }
  }
  const Outcome outcome = Run(Words(std::string("render ") + c.in_out + " --preset 2.35"));
  EXPECT_EQ(outcome.code, c.code) << outcome.err;
  EXPECT_EQ(Files(c.folder), Words(c.left));
  if (c.code != 0) {
    EXPECT_TRUE(OneLineError(outcome));
    return;
  }
  for (const std::string& name : Words(c.left))  // a bar, where the input is transparent
    EXPECT_EQ(cinebar_tool::ReadPng(std::string(c.folder) + "/" + name).at(0, 0)[3], 255) << name;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, FilesLeft,
    ::testing::Values(
        FileCase{"missing_input", "", "in.png out.png", 3, ".", ""},
        FileCase{"text_named_png", "bad.png", "bad.png out.png", 3, ".", "bad.png"},
        FileCase{"empty_file", "empty.png", "empty.png out.png", 3, ".", "empty.png"},
        FileCase{"cut_short_png", "cut.png", "cut.png out.png", 3, ".", "cut.png"},
        FileCase{"empty_input_folder", "frames/", "frames rendered", 3, ".", "frames"},
        FileCase{"output_folder_missing", "in.png", "in.png no/such/out.png", 5, ".", "in.png"},
        FileCase{"output_folder_is_a_file", "in.png plain", "in.png plain/out.png", 5, ".", "in.png plain"},
        FileCase{"output_is_a_folder", "in.png taken/", "in.png taken", 2, ".", "in.png taken"},
        FileCase{"output_frame_is_a_folder", "frames/ frames/a.png rendered/ rendered/a.png/",
                 "frames rendered", 5, "rendered", "a.png"},
        FileCase{"folder", "frames/ frames/shot_a.png frames/shot_b.png frames/notes.txt", "frames rendered",
                 0, "rendered", "shot_a.png shot_b.png"},
        FileCase{"numbered", "in_007.png in_008.png in_010.png in_9.png", "in_%03d.png out/frame_%04d.png", 0,
                 "out", "frame_0007.png frame_0008.png frame_0010.png"},
        FileCase{"bad_frame_stops", "frames/ frames/a.png frames/b_bad.png frames/c.png", "frames rendered",
                 3, "rendered", "a.png"}));

}  // namespace
}  // namespace cinebar_tool_test
