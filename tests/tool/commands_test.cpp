// Command lines, files, sequences and streams of frames: the exit code, what
// the tool says, prints and leaves for each set of inputs, outputs and options.
// A file it cannot use or must not replace leaves every file as it was (no
// temporary either); no command holds 100 MB at once, whatever a header claims.
#include <malloc.h>

#include <atomic>
#include <map>
#include <regex>

#include "tool_fixture.h"

namespace cinebar_tool_test {
namespace {

// Bytes held through operator new, and the most held at once.
std::atomic<std::size_t> g_live{0}, g_peak{0};

// One command a line: FILES | ARGS | CODE | SAYS | LEFT | IN | SENT | SAME, the last ones optional.
//  FILES  made in order: "x/" a folder; "x@y" a link x to y; "x=a+b" the files a and b one after the
//         other; "x.png" a 32x18 RGBA picture, except that names with "bad" hold text, "cut" a picture
//         cut short, "tall" a 20x40 grey16 one, "deep" a 32x18 RGB16 one, "adler" one whose image data
//         fails its Adler-32, "wide" and "huge" 65-byte files claiming 2147483647x3 grey16 and
//         16384x16384 RGBA, "phys" one with 10/11 pixels (NTSC), a comment and a time; others text.
//         STREAMS: frames 1-3 of mixed sizes and depths in s/, on "all", one cut on "part", none on "none".
//  ARGS   commands separated by ";", all but the last expected to succeed; LONG is 255 o's.
//  SAYS   parts of what it prints, separated by ";".
//  LEFT   "[folder:] names": all that the folder (".") holds afterwards; when empty, every file and
//         folder is as it was before the command.
//  IN     the file piped into standard input.  SENT  files whose bytes, one after another, are all
//         that standard output receives (nothing, when not given).  SAME  "a=b": file a is file b.
constexpr const char* kCommands = R"(
| render in.png out.png | 3
cut.png | render cut.png out.png | 3
wide.png | render wide.png out.png | 3 | at most 32767 pixels a side
huge.png | render huge.png out.png | 3 | 8 bytes of image data cannot hold a 16384x16384
adler.png | render adler.png out.png | 3 | corrupt
in.png | render in.png a/b/ | 0 | | a/b: in.png
in.png | render in.png LONG | 0 | | in.png LONG
frames/ | render frames rendered | 3
in.png | render in.png ./in.png --overwrite | 2 | input
frames/ frames/a.png | render frames frames/. | 2
in.png x.png out.png@x.png | render in.png out.png --overwrite | 5 | link
in.png out.png | render in.png out.png | 5 | --overwrite
frames/ frames/a.png | render frames out/one.png | 2 | pattern
frames/ frames/a.png rendered/ rendered/a.png/ | render frames rendered | 5 | a folder
in_007.png in_008.png in_010.png in_9.png | render in_%03d.png out/frame_%04d.png | 0 | 1 frame missing from in_%03d.png: number 9 | out: frame_0007.png frame_0008.png frame_0010.png
in_1.png in_5.png in_7.png | render in_%d.png out/%d.png --no-gaps | 3 | 4 frames missing from in_%d.png: numbers 2-4, 6
f/ f/1.png f/2.png f/10bad.png f/notes.txt | render f out/%d.png | 3 | frame 3 of 3; 2 frames written | out: 1.png 2.png
f/ f/1.png f/2bad.png f/3.png | render f out --skip-bad --jobs 3 | 3 | skipped f/2bad.png: f/2bad.png is not a PNG file | out: 1.png 3.png
phys.png | render phys.png out.png --preset 4:3 | 0 | pixel aspect 10/11 (pHYs of phys.png;not copied to the outputs: tIME;from (3,0) to (29,18) | out.png phys.png
| --help | 0 | Defaults: preset 4:3 (Academy), render On Image
| info | 0 | "Aspect Ratio" number
in.png | render in.png out.png --preset Anamorphic --dry-run | 0 | 32x18 8-bit: picture 32x13 from (0,2) to (32,15)
in.png | render in.png o.png --ratio 2.35 --downsample 1/1,1/2 --dry-run | 0 | 32x18 8-bit: picture 32x6 from (0,6) to (32,12)
in.png | render in.png o.png --ratio 0 --dry-run | 0 | whole frame is bar
in.png | render in.png o.png --preset 1.78 --dry-run | 0 | preset 16:9
in.png | render in.png o.png --preset 16/9 --dry-run | 0 | preset 16:9
in.png | render in.png o.png --preset 2.35:1 --dry-run | 0 | preset 2.35:1
in.png | render in.png o.png --pixel-aspect 2:1 --dry-run | 0 | pixel aspect 2/1 (--pixel-aspect)
in.png | render in.png o.png --preset 16 | 2 | ambiguous preset "16": 1.66:1 (Super 16), 16:9
in.png | render in.png o.png --preset a | 2
in.png | render in.png o.png --preset 2.35 --preset 1.85 | 2
in.png | render in.png out.png --ratio 12.001 | 2 | range
in.png | render in.png o.png --preset 2.35 --ratio=2 | 2 | excludes
in.png | render in.png out.png --blur 3 | 2 | unknown option --blur
| --bogus | 2 | unknown option --bogus
| bogus | 2 | unknown command bogus
in.png | render in.png o.png --jobs abc | 2 | "abc" is not a whole number from 1 to 1024
in.png | render in.png in.png --dry-run | 2 | it is an input
in/ in/a.png | render in out --no-gaps | 2 | --no-gaps needs a numbered pattern
in.png notdir | render in.png notdir/out.png --dry-run | 5 | notdir is not a folder
in/ in/a_adler.png | render in new/deep | 3
| render - out.png | 2 | OUT is - or a pattern
| demo --out p; demo --out p | 5 | --overwrite
| demo --out p; demo --out p --overwrite | 0 | wrote the test chart, 12 previews and the contact sheet to p
STREAMS | render s ref --color #204060; render - - --color #204060 | 0 | | | all | ref/1.png ref/2tall.png ref/3deep.png
STREAMS | render s ref --color #204060; render - o/%d.png --color #204060 | 0 | | o: 1.png 2.png 3.png | all | | o/1.png=ref/1.png o/2.png=ref/2tall.png o/3.png=ref/3deep.png
STREAMS | render s ref --color #204060; render s - --color #204060 | 0 | | | none | ref/1.png ref/2tall.png ref/3deep.png
STREAMS | render s ref; render - - | 3 | frame 2 of standard input: it ends inside | | part | ref/1.png
STREAMS | render - - | 3 | no frames on standard input | | none
)";

constexpr const char* kStreams =
    "s/ s/1.png s/2tall.png s/3deep.png cut.png all=s/1.png+s/2tall.png+s/3deep.png part=s/1.png+cut.png "
    "none=";

std::vector<std::string> Fields(const std::string& line) {
  const std::regex bar(" *\\| *");
  std::vector<std::string> fields(std::sregex_token_iterator(line.begin(), line.end(), bar, -1), {});
  fields.resize(8);
  return fields;
}

std::vector<std::string> Expand(const std::string& text) {
  return Words(std::regex_replace(text, std::regex("LONG"), std::string(255, 'o')));
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
    const bool tall = has("tall"), deep = has("deep");
    WritePattern(name, tall ? 20 : 32, tall ? 40 : 18, tall ? 0 : deep ? 2 : 6, tall || deep ? 16 : 8);
    const std::string chunks = ChunkBytes("pHYs", std::string("\0\0\0\x0b\0\0\0\x0a\0", 9)) +
                               ChunkBytes("tEXt", std::string("Comment\0kept", 12)) +
                               ChunkBytes("tIME", std::string("\x07\xea\x0b\x18\x06\x28\x00", 7)),
                      with_chunks = Insert(Contents(name), chunks, "IDAT");
    if (has("phys")) std::ofstream(name, std::ios::binary) << with_chunks;
    if (has("cut")) fs::resize_file(name, 100);
  }
}

// Every file's bytes, every folder and link, by path.
std::map<std::string, std::string> Snapshot() {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator("."))
    files[entry.path()] = entry.is_symlink()     ? "link to " + fs::read_symlink(entry).string()
                          : entry.is_directory() ? "folder"
                                                 : Contents(entry.path());
  return files;
}

class ToolCommands : public ToolTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(ToolCommands, ExitCodeMessagesAndTheFilesLeft) {
  const std::vector<std::string> row = Fields(GetParam());
  for (const std::string& name : Words(row[0] == "STREAMS" ? kStreams : row[0])) Make(name);
  const std::vector<std::string> commands = Words(row[1], ';');
  for (std::size_t i = 0; i + 1 < commands.size(); ++i)
    ASSERT_EQ(Run(Expand(commands[i])).code, 0) << commands[i];
  const auto before = Snapshot();
  const std::size_t held = g_peak = g_live.load();
  const File in(row[5].empty() ? nullptr : popen(("cat " + row[5]).c_str(), "r"), &pclose),
      out(std::tmpfile(), &std::fclose);
  const Outcome outcome = Run(Expand(commands.back()), in.get(), out.get());
  EXPECT_LT(g_peak - held, std::size_t{100} << 20);
  EXPECT_EQ(outcome.code, std::stoi(row[2])) << outcome.err;
  const std::string said = outcome.out + outcome.err;
  for (const std::string& part : Words(row[3], ';'))
    EXPECT_NE(said.find(part), std::string::npos) << part << ": " << said;
  const auto after = Snapshot();
  const std::string folder = row[4].find(':') == std::string::npos ? "." : row[4].substr(0, row[4].find(':'));
  EXPECT_TRUE(row[4].empty() ? after == before : Files(folder) == Expand(row[4].substr(row[4].find(':') + 1)))
      << "files left: " << Files(folder).size();
  for (const std::string& pair : Words(row[7]))
    EXPECT_EQ(Contents(pair.substr(0, pair.find('='))), Contents(pair.substr(pair.find('=') + 1))) << pair;
  std::string sent;
  for (const std::string& name : Words(row[6])) sent += Contents(name);
  EXPECT_TRUE(Contents(out.get()) == sent && (row[6].empty() || outcome.out.empty())) << "stdout";
  for (const auto& [name, bytes] : after)  // whatever it writes, libpng reads
    EXPECT_TRUE(before.count(name) || !name.ends_with(".png") || !ReadWithLibpng(bytes).objects()) << name;
  if (outcome.code == 0) return;
  EXPECT_NE(("\n" + outcome.err).find("\ncinebar: "), std::string::npos) << outcome.err;
  for (const auto& [name, bytes] : before) EXPECT_TRUE(after.count(name) && after.at(name) == bytes) << name;
}

INSTANTIATE_TEST_SUITE_P(Table, ToolCommands, ::testing::ValuesIn(Words(kCommands, '\n')));

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
