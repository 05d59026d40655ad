// Command lines, files, sequences and streams of frames: the exit code, what
// the tool says, prints and leaves for each set of inputs, outputs and options.
// A file it cannot use or must not replace leaves every file as it was (no
// temporary either); no command holds 100 MB at once, whatever a header claims.
#include <malloc.h>

#include <atomic>
#include <map>

#include "tool_fixture.h"

namespace cinebar_tool_test {
namespace {

// Bytes held through operator new, and the most held at once.
std::atomic<std::size_t> g_live{0}, g_peak{0};

struct Row {
  // Made in order: "x/" a folder; "x@y" a link x to y; "x=a+b" the files a
  // and b one after the other; "x.png" a 32x18 RGBA picture, except that
  // names with "bad" hold text, "cut" a picture cut short, "tall" a 20x40
  // grey16 one, "deep" a 32x18 RGB16 one, "adler" one whose image data fails
  // its Adler-32, "wide" and "huge" 65-byte files claiming 2147483647x3
  // grey16 and 16384x16384 RGBA, "phys" one with 10/11 pixels (NTSC), a
  // comment and a time; others text.
  const char* files;
  const char* args;  // commands separated by ";", all but the last expected to succeed; LONG: 255 o's
  int code;
  const char* left;            // "[folder:] names": all that the folder (".") holds afterwards
  const char* says = "";       // parts of what it prints, separated by "|"
  const char* in = nullptr;    // the file piped into standard input
  const char* sent = nullptr;  // files whose bytes, one after another, are all of standard output
  const char* same = "";       // "a=b ...": file a holds the bytes of file b
};
void PrintTo(const Row& row, std::ostream* out) { *out << row.args; }

std::vector<std::string> Expand(const std::string& text) {
  std::vector<std::string> words = Words(text);
  for (std::string& word : words) word = word == "LONG" ? std::string(255, 'o') : word;
  return words;
}

void Make(const std::string& name) {
  const auto has = [&](const char* part) { return name.find(part) != std::string::npos; };
  if (name.back() == '/') return void(fs::create_directory(name));
  if (has("@")) return fs::create_symlink(name.substr(name.find('@') + 1), name.substr(0, name.find('@')));
  std::ofstream file(name.substr(0, name.find('=')), std::ios::binary);
  if (has("=")) {
    for (const std::string& part : Words(name.substr(name.find('=') + 1), '+')) file << Contents(part);
  } else if (!has(".png") || has("bad")) {
    file << "not a picture";
  } else if (has("adler") || has("wide") || has("huge")) {
    const char* header = has("adler")  ? "\0\0\0\1\0\0\0\1\x08\0"  // one black pixel, a checksum off by one
                         : has("wide") ? "\x7f\xff\xff\xff\0\0\0\x03\x10\0"
                                       : "\0\0\x40\0\0\0\x40\0\x08\x06";
    file << "\x89PNG\r\n\x1a\n" + ChunkBytes("IHDR", std::string(header, 10) + std::string(3, '\0')) +
                ChunkBytes("IDAT", std::string("\x78\x9c\x63\x60\0\0\0\x02\0\x02", has("adler") ? 10 : 8)) +
                ChunkBytes("IEND", "");
  } else {
    file.close();
    WritePattern(name, has("tall") ? 20 : 32, has("tall") ? 40 : 18,
                 has("tall")   ? 0
                 : has("deep") ? 2
                               : 6,
                 has("tall") || has("deep") ? 16 : 8);
    const std::string chunks = ChunkBytes("pHYs", std::string("\0\0\0\x0b\0\0\0\x0a\0", 9)) +
                               ChunkBytes("tEXt", std::string("Comment\0kept", 12)) +
                               ChunkBytes("tIME", std::string("\x07\xea\x0b\x18\x06\x28\x00", 7)),
                      with_chunks = Insert(Contents(name), chunks, "IDAT");
    if (has("phys")) std::ofstream(name, std::ios::binary) << with_chunks;
    if (has("cut")) fs::resize_file(name, 100);
  }
}

std::map<std::string, std::string> Snapshot() {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator("."))
    if (entry.is_regular_file() && !entry.is_symlink()) files[entry.path()] = Contents(entry.path());
  return files;
}

class Commands : public ToolTest, public ::testing::WithParamInterface<Row> {};

TEST_P(Commands, ExitCodeMessagesAndTheFilesLeft) {
  const Row& row = GetParam();
  for (const std::string& name : Words(row.files)) Make(name);
  std::vector<std::string> commands = Words(row.args, ';');
  for (std::size_t i = 0; i + 1 < commands.size(); ++i)
    ASSERT_EQ(Run(Expand(commands[i])).code, 0) << commands[i];
  const auto before = Snapshot();
  const std::size_t held = g_peak = g_live.load();
  const File in(row.in ? popen(("cat " + std::string(row.in)).c_str(), "r") : nullptr, &pclose),
      frames(std::tmpfile(), &std::fclose);
  const Outcome outcome = Run(Expand(commands.back()), in.get(), frames.get());
  EXPECT_LT(g_peak - held, std::size_t{100} << 20);
  EXPECT_EQ(outcome.code, row.code) << outcome.err;
  const std::string left = row.left, folder = left.find(':') == std::string::npos ? "." : Words(left, ':')[0];
  EXPECT_EQ(Files(folder), Expand(folder == "." ? left : left.substr(left.find(':') + 1)));
  for (const std::string& part : Words(row.says, '|'))
    EXPECT_NE((outcome.out + outcome.err).find(part), std::string::npos) << part << "\n"
                                                                         << outcome.out << outcome.err;
  for (const std::string& pair : Words(row.same))
    EXPECT_EQ(Contents(pair.substr(0, pair.find('='))), Contents(pair.substr(pair.find('=') + 1))) << pair;
  std::string want, sent(std::size_t(std::ftell(frames.get())), '\0');
  for (const std::string& name : Words(row.sent ? row.sent : "")) want += Contents(name);
  std::rewind(frames.get());
  EXPECT_EQ(std::fread(sent.data(), 1, sent.size(), frames.get()), sent.size());
  EXPECT_TRUE(sent == want && (!row.sent || outcome.out.empty())) << "frames alone on standard output";
  for (const auto& [name, bytes] : Snapshot())  // whatever it writes, libpng reads
    EXPECT_TRUE(before.count(name) || !name.ends_with(".png") || !ReadWithLibpng(bytes).objects()) << name;
  if (row.code == 0) return;
  EXPECT_NE(("\n" + outcome.err).find("\ncinebar: "), std::string::npos) << outcome.err;
  const auto after = Snapshot();
  for (const auto& [name, bytes] : before) EXPECT_TRUE(after.count(name) && after.at(name) == bytes) << name;
}

// Frames 1, 2 and 3 of mixed sizes and depths in s/ and on "all", rendered to ref/.
#define STREAMS "s/ s/1.png s/2tall.png s/3deep.png cut.png all=s/1.png+s/2tall.png+s/3deep.png none= "
#define REF "render s ref --preset 2.35 --color #204060;"
#define REFS "ref/1.png ref/2tall.png ref/3deep.png"
#define FILES_LEFT "all cut.png none ref s"
#define BOTH(p) "preset-" p "-on-image.png preset-" p "-on-transparent.png "
#define DEMO                                                                                             \
  "p: contact-sheet.png " BOTH("1.66x1") BOTH("1.85x1") BOTH("16x9") BOTH("2.35x1") BOTH("2.76x1") BOTH( \
      "4x"                                                                                               \
      "3")

INSTANTIATE_TEST_SUITE_P(
    Cases, Commands,
    ::testing::Values(
        Row{"", "render in.png out.png", 3, ""}, Row{"cut.png", "render cut.png out.png", 3, "cut.png"},
        Row{"wide.png", "render wide.png out.png", 3, "wide.png", "at most 32767 pixels a side"},
        Row{"huge.png", "render huge.png out.png", 3, "huge.png",
            "8 bytes of image data cannot hold a 16384x16384"},
        Row{"adler.png", "render adler.png out.png", 3, "adler.png", "corrupt"},
        Row{"in.png", "render in.png a/b/", 0, "a/b: in.png"},
        Row{"in.png", "render in.png LONG", 0, "in.png LONG"},
        Row{"frames/", "render frames rendered", 3, "frames"},
        Row{"in.png", "render in.png ./in.png --overwrite", 2, "in.png", "input"},
        Row{"frames/ frames/a.png", "render frames frames/.", 2, "frames: a.png"},
        Row{"in.png x.png out.png@x.png", "render in.png out.png --overwrite", 5, "in.png out.png x.png",
            "link"},
        Row{"in.png out.png", "render in.png out.png", 5, "in.png out.png", "--overwrite"},
        Row{"frames/ frames/a.png", "render frames out/one.png", 2, "frames", "pattern"},
        Row{"frames/ frames/a.png rendered/ rendered/a.png/", "render frames rendered", 5, "rendered: a.png",
            "a folder"},
        Row{"in_007.png in_008.png in_010.png in_9.png", "render in_%03d.png out/frame_%04d.png", 0,
            "out: frame_0007.png frame_0008.png frame_0010.png",
            "1 frame missing from in_%03d.png: number 9"},
        Row{"in_1.png in_5.png in_7.png", "render in_%d.png out/%d.png --no-gaps", 3,
            "in_1.png in_5.png in_7.png", "4 frames missing from in_%d.png: numbers 2-4, 6"},
        // In numeric order the bad frame is the last; in text order it would be the second.
        Row{"f/ f/1.png f/2.png f/10bad.png f/notes.txt", "render f out/%d.png", 3, "out: 1.png 2.png",
            "frame 3 of 3; 2 frames written"},
        Row{"f/ f/1.png f/2bad.png f/3.png", "render f out --skip-bad --jobs 3", 3, "out: 1.png 3.png",
            "skipped f/2bad.png: f/2bad.png is not a PNG file"},
        Row{"phys.png", "render phys.png out.png --preset 4:3", 0, "out.png phys.png",
            "pixel aspect 10/11 (pHYs of phys.png|not copied to the outputs: tIME|from (3,0) to (29,18)"},
        Row{"", "--help", 0, "", "Defaults: preset 4:3 (Academy), render On Image"},
        Row{"in.png", "render in.png out.png --preset Anamorphic --dry-run", 0, "in.png",
            "32x18 8-bit: picture 32x13 from (0,2) to (32,15)"},
        Row{"in.png", "render in.png o.png --ratio 2.35 --downsample 1/1,1/2 --dry-run", 0, "in.png",
            "32x18 8-bit: picture 32x6 from (0,6) to (32,12)"},
        Row{"in.png", "render in.png o.png --preset 2.35 --preset 1.85", 2, "in.png"},
        Row{"in.png", "render in.png out.png --ratio 12.001", 2, "in.png", "range"},
        Row{"", "info", 0, "", "\"Aspect Ratio\" number"},
        Row{"in.png", "render in.png o.png --ratio 0 --dry-run", 0, "in.png", "whole frame is bar"},
        Row{"in.png", "render in.png o.png --preset 2.35 --ratio=2", 2, "in.png", "excludes"},
        Row{"in.png", "render in.png o.png --preset a", 2, "in.png"},
        Row{"in.png", "render in.png out.png --blur 3", 2, "in.png", "unknown option --blur"},
        Row{"", "--bogus", 2, "", "unknown option --bogus"}, Row{"", "bogus", 2, "", "unknown command bogus"},
        Row{"in.png", "render in.png in.png --dry-run", 2, "in.png", "it is an input"},
        Row{"in/ in/a.png", "render in out --no-gaps", 2, "in", "--no-gaps needs a numbered pattern"},
        Row{"in.png notdir", "render in.png notdir/out.png --dry-run", 5, "in.png notdir",
            "notdir is not a folder"},
        Row{"in/ in/a_adler.png", "render in new/deep", 3, "in"},
        Row{"", "render - out.png", 2, "", "OUT is - or a pattern"},
        Row{"in.png", "render in.png o.png --jobs abc", 2, "in.png",
            "\"abc\" is not a whole number from 1 to 1024"},
        Row{"in.png", "render in.png o.png --preset 1.78 --dry-run", 0, "in.png", "preset 16:9"},
        Row{"in.png", "render in.png o.png --preset 16/9 --dry-run", 0, "in.png", "preset 16:9"},
        Row{"in.png", "render in.png o.png --preset 2.35:1 --dry-run", 0, "in.png", "preset 2.35:1"},
        Row{"in.png", "render in.png o.png --preset 16", 2, "in.png",
            "ambiguous preset \"16\": 1.66:1 (Super 16), 16:9"},
        Row{"in.png", "render in.png o.png --pixel-aspect 2:1 --dry-run", 0, "in.png",
            "pixel aspect 2/1 (--pixel-aspect)"},
        Row{"", "demo --out p; demo --out p", 5, "p", "--overwrite"},
        Row{"", "demo --out p; demo --out p --overwrite", 0, DEMO "test-chart.png"},
        // "-" as IN reads the frames piped into standard input, as OUT writes them to standard output, frame
        // for frame what a render of the files writes; a stream cut inside a frame fails after those before
        // it.
        Row{STREAMS, REF "render - - --preset 2.35 --color #204060", 0, FILES_LEFT, "", "all", REFS},
        Row{STREAMS, REF "render - out/%d.png --preset 2.35 --color #204060", 0, "out: 1.png 2.png 3.png", "",
            "all", nullptr, "out/1.png=ref/1.png out/2.png=ref/2tall.png out/3.png=ref/3deep.png"},
        Row{STREAMS, REF "render s - --preset 2.35 --color #204060", 0, FILES_LEFT, "", "none", REFS},
        Row{STREAMS "part=s/1.png+cut.png", REF "render - - --preset 2.35 --color #204060", 3,
            "all cut.png none part ref s", "frame 2 of standard input: it ends inside", "part", "ref/1.png"},
        Row{STREAMS, REF "render - - --preset 2.35", 3, FILES_LEFT, "no frames on standard input", "none",
            ""}));

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
