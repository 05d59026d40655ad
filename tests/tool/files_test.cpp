// Command lines, files and sequences of frames: the exit code, what the tool
// says and what it leaves for each set of inputs, outputs and options. A file
// it cannot use or must not replace leaves every file as it was (no temporary
// either); a sequence renders every frame under its name and stops at a bad
// one unless told to skip it. Headers that claim too much. A pHYs chunk sets
// the pixel aspect; chunks that no longer hold are dropped and named.
#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "tool_fixture.h"

namespace cinebar_tool_test {
namespace {

namespace fs = std::filesystem;

// Bytes held through operator new, and the most held at once.
std::atomic<std::size_t> g_live{0}, g_peak{0};

struct FileCase {
  const char* name;
  // Set up in order: "x/" a folder; "x@y" a link x to y; "x.png" a picture,
  // except that names with "bad" hold text, "cut" a picture cut short,
  // "adler" one whose image data fails its Adler-32, and "wide" and "huge"
  // 65-byte files claiming 2147483647x3 grey16 and 16384x16384 RGBA, "phys"
  // one with 10/11 pixels (NTSC), a comment and a time; others text.
  const char* files;
  const char* args;
  int code;
  const char* folder;  // holds exactly `left` afterwards
  const char* left;
  const char* says = "";  // parts of what it prints, separated by "|"
};
void PrintTo(const FileCase& c, std::ostream* out) { *out << c.name; }

std::map<std::string, std::string> Snapshot() {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator("."))
    if (entry.is_regular_file() && !entry.is_symlink()) files[entry.path()] = Contents(entry.path());
  return files;
}

class Commands : public ToolTest, public ::testing::WithParamInterface<FileCase> {};

// A refusal says why in "cinebar: ..." lines and leaves every file as it was;
// no command holds 100 MB at once.
TEST_P(Commands, ExitCodeMessageAndTheFilesLeft) {
  const FileCase& c = GetParam();
  for (const std::string& name : Words(c.files)) {
    const auto has = [&](const char* part) { return name.find(part) != std::string::npos; };
    if (name.back() == '/') {
      fs::create_directory(name);
    } else if (has("@")) {
      fs::create_symlink(name.substr(name.find('@') + 1), name.substr(0, name.find('@')));
    } else if (has(".png") && !has("bad")) {
      WritePattern(name, 32, 18);
      if (has("cut")) fs::resize_file(name, 100);
      const std::string phys = ChunkBytes("pHYs", std::string("\0\0\0\x0b\0\0\0\x0a\0", 9)) +
                               ChunkBytes("tEXt", std::string("Comment\0kept", 12)) +
                               ChunkBytes("tIME", std::string("\x07\xea\x0b\x18\x06\x28\x00", 7));
      const std::string with_chunks = Insert(Contents(name), phys, "IDAT");
      if (has("phys")) std::ofstream(name, std::ios::binary) << with_chunks;
      const char* header = has("adler")  ? "\0\0\0\1\0\0\0\1\x08\0"  // one black pixel, a checksum off by one
                           : has("wide") ? "\x7f\xff\xff\xff\0\0\0\x03\x10\0"
                                         : "\0\0\x40\0\0\0\x40\0\x08\x06";
      if (has("adler") || has("wide") || has("huge"))
        std::ofstream(name, std::ios::binary)
            << "\x89PNG\r\n\x1a\n" + ChunkBytes("IHDR", std::string(header, 10) + std::string(3, '\0')) +
                   ChunkBytes("IDAT",
                              std::string("\x78\x9c\x63\x60\0\0\0\x02\0\x02", has("adler") ? 10 : 8)) +
                   ChunkBytes("IEND", "");
    } else {
      std::ofstream(name) << "not a picture";
    }
  }
  const auto before = Snapshot();
  const std::size_t held = g_peak = g_live.load();
  const Outcome outcome = Run(Words(c.args));
  EXPECT_LT(g_peak - held, std::size_t{100} << 20);  // whatever a header claims
  EXPECT_EQ(outcome.code, c.code) << outcome.err;
  EXPECT_EQ(Files(c.folder), Words(c.left));
  std::istringstream says(c.says);
  for (std::string part; std::getline(says, part, '|');)
    EXPECT_NE((outcome.out + outcome.err).find(part), std::string::npos) << part << "\n"
                                                                         << outcome.out << outcome.err;
  if (c.code == 0) return;
  EXPECT_EQ(outcome.err.rfind("cinebar: ", 0), 0u) << outcome.err;
  const auto after = Snapshot();
  for (const auto& [name, bytes] : before) EXPECT_TRUE(after.count(name) && after.at(name) == bytes) << name;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Commands,
    ::testing::Values(
        FileCase{"missing_input", "", "render in.png out.png", 3, ".", ""},
        FileCase{"cut_short_png", "cut.png", "render cut.png out.png", 3, ".", "cut.png"},
        FileCase{"header_too_wide", "wide.png", "render wide.png out.png", 3, ".", "wide.png",
                 "at most 32767 pixels a side"},
        FileCase{"header_claims_more_data", "huge.png", "render huge.png out.png", 3, ".", "huge.png",
                 "8 bytes of image data cannot hold a 16384x16384"},
        FileCase{"adler32_checked", "adler.png", "render adler.png out.png", 3, ".", "adler.png", "corrupt"},
        FileCase{"into_new_folders", "in.png", "render in.png a/b/", 0, "a/b", "in.png"},
        FileCase{"empty_input_folder", "frames/", "render frames rendered", 3, ".", "frames"},
        FileCase{"same_file", "in.png", "render in.png ./in.png --overwrite", 2, ".", "in.png", "input"},
        FileCase{"folder_onto_itself", "frames/ frames/a.png", "render frames frames/.", 2, "frames",
                 "a.png"},
        FileCase{"link_elsewhere", "in.png x.png out.png@x.png", "render in.png out.png --overwrite", 5, ".",
                 "in.png out.png x.png", "link"},
        FileCase{"existing_output", "in.png out.png", "render in.png out.png", 5, ".", "in.png out.png",
                 "--overwrite"},
        FileCase{"sequence_to_one_file", "frames/ frames/a.png", "render frames out/one.png", 2, ".",
                 "frames", "pattern"},
        FileCase{"output_frame_is_a_folder", "frames/ frames/a.png rendered/ rendered/a.png/",
                 "render frames rendered", 5, "rendered", "a.png", "a folder"},
        FileCase{"numbered_with_a_gap", "in_007.png in_008.png in_010.png in_9.png",
                 "render in_%03d.png out/frame_%04d.png", 0, "out",
                 "frame_0007.png frame_0008.png frame_0010.png",
                 "1 frame missing from in_%03d.png: number 9"},
        FileCase{"gap_refused", "in_1.png in_5.png in_7.png", "render in_%d.png out/%d.png --no-gaps", 3, ".",
                 "in_1.png in_5.png in_7.png", "4 frames missing from in_%d.png: numbers 2-4, 6"},
        // In numeric order the bad frame is the last; in text order it would be the second.
        FileCase{"bad_frame_stops", "f/ f/1.png f/2.png f/10bad.png f/notes.txt", "render f out/%d.png", 3,
                 "out", "1.png 2.png", "frame 3 of 3; 2 frames written"},
        FileCase{"bad_frame_skipped", "f/ f/1.png f/2bad.png f/3.png", "render f out --skip-bad --jobs 3", 3,
                 "out", "1.png 3.png", "skipped f/2bad.png: f/2bad.png is not a PNG file"},
        FileCase{
            "phys_sets_pixel_aspect", "phys.png", "render phys.png out.png --preset 4:3", 0, ".",
            "out.png phys.png",
            "pixel aspect 10/11 (pHYs of phys.png|not copied to the outputs: tIME|from (3,0) to (29,18)"},
        FileCase{"help", "", "--help", 0, ".", "", "Defaults: preset 4:3 (Academy), render On Image"},
        FileCase{"preset_by_part_dry_run", "in.png", "render in.png out.png --preset Anamorphic --dry-run", 0,
                 ".", "in.png", "32x18 8-bit: picture 32x13 from (0,2) to (32,15)"},
        FileCase{"half_height_dry_run", "in.png",
                 "render in.png o.png --ratio 2.35 --downsample 1/1,1/2 --dry-run", 0, ".", "in.png",
                 "32x18 8-bit: picture 32x6 from (0,6) to (32,12)"},
        FileCase{"preset_twice", "in.png", "render in.png o.png --preset 2.35 --preset 1.85", 2, ".",
                 "in.png"},
        FileCase{"ratio_above_range", "in.png", "render in.png out.png --ratio 12.001", 2, ".", "in.png",
                 "range"},
        FileCase{"info", "", "info", 0, ".", "", "\"Aspect Ratio\" number"},
        FileCase{"all_bar_warned", "in.png", "render in.png o.png --ratio 0 --dry-run", 0, ".", "in.png",
                 "whole frame is bar"},
        FileCase{"preset_and_ratio", "in.png", "render in.png o.png --preset 2.35 --ratio=2", 2, ".",
                 "in.png", "excludes"},
        FileCase{"preset_ambiguous", "in.png", "render in.png o.png --preset a", 2, ".", "in.png"},
        FileCase{"unknown_option", "in.png", "render in.png out.png --blur 3", 2, ".", "in.png",
                 "unknown option --blur"},
        FileCase{"unknown_option_first", "", "--bogus", 2, ".", "", "unknown option --bogus"},
        FileCase{"unknown_command", "", "bogus", 2, ".", "", "unknown command bogus"},
        FileCase{"dry_run_onto_its_input", "in.png", "render in.png in.png --dry-run", 2, ".", "in.png",
                 "it is an input"},
        FileCase{"no_gaps_for_a_folder", "in/ in/a.png", "render in out --no-gaps", 2, ".", "in",
                 "--no-gaps needs a numbered pattern"},
        FileCase{"output_folder_is_a_file", "in.png notdir", "render in.png notdir/out.png --dry-run", 5, ".",
                 "in.png notdir", "notdir is not a folder"},
        FileCase{"failed_run_leaves_no_new_folder", "in/ in/a_adler.png", "render in new/deep", 3, ".", "in"},
        FileCase{"stream_in_into_one_file", "", "render - out.png", 2, ".", "", "OUT is - or a pattern"},
        FileCase{"jobs_not_a_number", "in.png", "render in.png o.png --jobs abc", 2, ".", "in.png",
                 "\"abc\" is not a whole number from 1 to 1024"},
        FileCase{"preset_by_decimals", "in.png", "render in.png o.png --preset 1.78 --dry-run", 0, ".",
                 "in.png", "preset 16:9"},
        FileCase{"preset_by_fraction", "in.png", "render in.png o.png --preset 16/9 --dry-run", 0, ".",
                 "in.png", "preset 16:9"},
        FileCase{"preset_by_width_height", "in.png", "render in.png o.png --preset 2.35:1 --dry-run", 0, ".",
                 "in.png", "preset 2.35:1"},
        FileCase{"preset_number_in_two_names", "in.png", "render in.png o.png --preset 16", 2, ".", "in.png",
                 "ambiguous preset \"16\": 1.66:1 (Super 16), 16:9"},
        FileCase{"pixel_aspect_with_colon", "in.png", "render in.png o.png --pixel-aspect 2:1 --dry-run", 0,
                 ".", "in.png", "pixel aspect 2/1 (--pixel-aspect)"}));

// A name as long as the file system allows is written: nothing longer is made on the way.
TEST_F(ToolTest, LongestOutputNameIsWritten) {
  WritePattern("in.png", 32, 18);
  const std::string name(255, 'o');
  const Outcome outcome = Run({"render", "in.png", name});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(Decode(name).width, 32);
}

// Six presets in two modes, the chart and the sheet; written again only when asked.
TEST_F(ToolTest, DemoWritesEveryPresetInBothModesAndTheSheetAndReplacesOnlyWhenAsked) {
  const Outcome outcome = Run({"demo", "--out", "previews"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(Files("previews").size(), 6u * 2u + 2u);
  EXPECT_EQ(Decode("previews/preset-4x3-on-image.png").Rgba(239, 540)[1], 0);  // a bar
  EXPECT_EQ(Run({"demo", "--out", "previews"}).code, 5);
  EXPECT_EQ(Run({"demo", "--out", "previews", "--overwrite"}).code, 0);
}

}  // namespace
}  // namespace cinebar_tool_test

void* operator new(std::size_t size) {
  void* p = std::malloc(size == 0 ? 1 : size);
  if (p == nullptr) throw std::bad_alloc();
  const std::size_t live = cinebar_tool_test::g_live += malloc_usable_size(p);
  if (live > cinebar_tool_test::g_peak) cinebar_tool_test::g_peak = live;  // a race loses one update at most
  return p;
}
void operator delete(void* p) noexcept {
  if (p != nullptr) cinebar_tool_test::g_live -= malloc_usable_size(p);
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept { operator delete(p); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void operator delete(void* p, const std::nothrow_t&) noexcept { operator delete(p); }
