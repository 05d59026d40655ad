// Files and sequences of frames: what the tool leaves for each set of inputs
// and outputs. A file it cannot use or must not replace gives the exit code
// and one line on stderr, and leaves every file as it was (no temporary
// either); a sequence renders every frame under its name and stops at a bad one.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "tool_fixture.h"

namespace cinebar_tool_test {
namespace {

namespace fs = std::filesystem;

// Bytes held through operator new, and the most held at once.
std::atomic<std::size_t> g_live{0}, g_peak{0};

struct FileCase {
  const char* name;
  // Set up in order: "x/" a folder; "x@y" a link x to y; "x|" a FIFO x; "x.png"
  // a picture, except that names with "bad" hold text, "cut" a picture cut
  // short and "adler" one whose image data fails its Adler-32; others text.
  const char* files;
  const char* in_out;
  int code;
  const char* folder;  // holds exactly `left` afterwards
  const char* left;
  const char* says = "";  // part of the message
};
void PrintTo(const FileCase& c, std::ostream* out) { *out << c.name; }

std::map<std::string, std::string> Snapshot() {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator("."))
    if (entry.is_regular_file() && !entry.is_symlink()) files[entry.path()] = Contents(entry.path());
  return files;
}

class FilesLeft : public ToolTest, public ::testing::WithParamInterface<FileCase> {};

TEST_P(FilesLeft, ExitCodeMessageAndTheFilesLeft) {
  const FileCase& c = GetParam();
  for (const std::string& name : Words(c.files)) {
    const auto has = [&](const char* part) { return name.find(part) != std::string::npos; };
    if (name.back() == '/') {
      fs::create_directory(name);
    } else if (has("@")) {
      fs::create_symlink(name.substr(name.find('@') + 1), name.substr(0, name.find('@')));
    } else if (name.back() == '|') {
      ASSERT_EQ(mkfifo(name.substr(0, name.size() - 1).c_str(), 0644), 0);
    } else if (has(".png") && !has("bad")) {
      WritePattern(name, 48, 27);
      if (has("cut")) fs::resize_file(name, 100);
      if (has("adler")) {  // the checksum's last byte changed, the chunk's CRC made to match
        std::string png = Contents(name);
        const std::size_t at = png.find("IDAT") - 4;
        const std::size_t length =
            static_cast<std::uint8_t>(png[at + 2]) << 8 | static_cast<std::uint8_t>(png[at + 3]);
        std::string data = png.substr(at + 8, length);
        data.back() = static_cast<char>(data.back() ^ 1);
        std::ofstream(name, std::ios::binary) << png.replace(at, length + 12, PngChunk("IDAT", data));
      }
    } else {
      std::ofstream(name) << "not a picture";
    }
  }
  const auto before = Snapshot();
  const Outcome outcome = Run(Words(std::string("render ") + c.in_out + " --preset 2.35"));
  EXPECT_EQ(outcome.code, c.code) << outcome.err;
  EXPECT_EQ(Files(c.folder), Words(c.left));
  EXPECT_NE(outcome.err.find(c.says), std::string::npos) << outcome.err;
  if (c.code != 0) {
    EXPECT_TRUE(OneLineError(outcome));
    const auto after = Snapshot();
    for (const auto& [name, bytes] : before)
      EXPECT_TRUE(after.count(name) && after.at(name) == bytes) << name;
    return;
  }
  for (const std::string& name : Words(c.left))  // a bar, where the input is transparent
    EXPECT_EQ(Decode(std::string(c.folder) + "/" + name).at(0, 0)[3], 255) << name;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, FilesLeft,
    ::testing::Values(
        FileCase{"missing_input", "", "in.png out.png", 3, ".", ""},
        FileCase{"text_named_png", "bad.png", "bad.png out.png", 3, ".", "bad.png"},
        FileCase{"cut_short_png", "cut.png", "cut.png out.png", 3, ".", "cut.png"},
        FileCase{"adler32_checked", "adler.png", "adler.png out.png", 3, ".", "adler.png"},
        FileCase{"into_a_new_folder", "in.png", "in.png new/", 0, "new", "in.png"},
        FileCase{"empty_input_folder", "frames/", "frames rendered", 3, ".", "frames"},
        FileCase{"same_file", "in.png", "in.png ./in.png", 2, ".", "in.png", "input"},
        FileCase{"folder_onto_itself", "frames/ frames/a.png", "frames frames/.", 2, "frames", "a.png"},
        FileCase{"link_elsewhere", "in.png x.png out.png@x.png", "in.png out.png --overwrite", 5, ".",
                 "in.png out.png x.png", "link"},
        FileCase{"fifo", "in.png out.png|", "in.png out.png --overwrite", 5, ".", "in.png out.png", "FIFO"},
        FileCase{"existing_output", "in.png out.png", "in.png out.png", 5, ".", "in.png out.png",
                 "--overwrite"},
        FileCase{"overwrite", "in.png o/ o/out.png", "in.png o/out.png --overwrite", 0, "o", "out.png"},
        FileCase{"folders_created", "in.png", "in.png a/b/c/out.png", 0, "a/b/c", "out.png"},
        FileCase{"output_folder_is_a_file", "in.png plain", "in.png plain/out.png", 5, ".", "in.png plain"},
        FileCase{"sequence_to_one_file", "frames/ frames/a.png", "frames out/one.png", 2, ".", "frames",
                 "pattern"},
        FileCase{"output_frame_is_a_folder", "frames/ frames/a.png rendered/ rendered/a.png/",
                 "frames rendered", 5, "rendered", "a.png"},
        FileCase{"numbered", "in_007.png in_008.png in_010.png in_9.png", "in_%03d.png out/frame_%04d.png", 0,
                 "out", "frame_0007.png frame_0008.png frame_0010.png",
                 "frames 1 missing from in_%03d.png: 9"},
        FileCase{"gap_refused", "in_1.png in_3.png", "in_%d.png out/%d.png --no-gaps", 3, ".",
                 "in_1.png in_3.png", "2"},
        // In numeric order the bad frame is the last; in text order it would be the second.
        FileCase{"bad_frame_stops", "f/ f/1.png f/2.png f/10bad.png f/notes.txt", "f out/%d.png", 3, "out",
                 "1.png 2.png", "frame 3 of 3; 2 frames written"}));

TEST_F(ToolTest, BadFramesSkippedWhenAskedAndListed) {
  fs::create_directory("f");
  for (const char* name : {"f/1.png", "f/3.png"}) WritePattern(name, 48, 27);
  std::ofstream("f/2.png") << "not a picture";
  const Outcome outcome = Run(Words("render f out --skip-bad"));
  EXPECT_EQ(outcome.code, 3);
  EXPECT_EQ(Files("out"), Words("1.png 3.png"));
  EXPECT_NE(outcome.err.find("skipped f/2.png: f/2.png is not a PNG file"), std::string::npos) << outcome.err;
}

// `cinebar render IN OUT` in a child, stderr to err.txt, sent `signal` once `interrupt_when` has files.
int RunProgram(const char* in, const char* out, int signal, const char* interrupt_when) {
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(open("err.txt", O_WRONLY | O_CREAT | O_TRUNC, 0644), 2);
    execl(CINEBAR_TOOL_PATH, "cinebar", "render", in, out, "--module", CINEBAR_MODULE_PATH, nullptr);
    _exit(127);
  }
  while (ToolTest::Files(interrupt_when).empty() && waitpid(pid, nullptr, WNOHANG) == 0) usleep(1000);
  kill(pid, signal);
  int status = 0;
  waitpid(pid, &status, 0);
  return status;
}

TEST_F(ToolTest, InterruptedSequenceLeavesWholeFramesOnly) {
  fs::create_directory("frames");
  for (int i = 0; i < 60; ++i) WritePattern("frames/" + std::to_string(i) + ".png", 400, 300);
  for (const int signal : {SIGINT, SIGHUP}) {
    fs::remove_all("out");
    const int status = RunProgram("frames", "out", signal, "out");
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
    const auto left = Files("out");
    EXPECT_LT(left.size(), 60u);
    for (const std::string& name : left) EXPECT_NE(name[0], '.') << name;
  }
}

// 65-byte files whose headers claim more than they hold: refused from the
// header, before memory is taken for the frame (the most the tool holds at
// once stays far below what the header asks for), and nothing written.
TEST_F(ToolTest, HeadersThatClaimTooMuchAreRefusedBeforeTakingMemory) {
  const struct {
    const char* header;  // width, height, depth, colour type
    const char* says;
  } cases[] = {{"\x7f\xff\xff\xff\0\0\0\x03\x10\0", "at most 32767 pixels a side"},
               {"\0\0\x40\0\0\0\x40\0\x08\x06", "8 bytes of image data cannot hold a 16384x16384"}};
  for (const auto& c : cases) {
    const std::string png =
        "\x89PNG\r\n\x1a\n" + PngChunk("IHDR", std::string(c.header, 10) + std::string(3, '\0')) +
        PngChunk("IDAT", std::string("\x78\x9c\x63\x60\0\0\0\x02", 8)) + PngChunk("IEND", "");
    ASSERT_EQ(png.size(), 65u);
    std::ofstream("huge.png", std::ios::binary) << png;
    const std::size_t before = g_peak = g_live.load();
    const Outcome outcome = Run(Words("render huge.png out.png"));
    EXPECT_EQ(outcome.code, 3);
    EXPECT_LT(g_peak - before, std::size_t{100} << 20);
    EXPECT_NE(outcome.err.find(c.says), std::string::npos) << outcome.err;
    EXPECT_EQ(Files(), Words("huge.png"));
  }
}

}  // namespace
}  // namespace cinebar_tool_test

void* operator new(std::size_t size) {
  void* p = std::malloc(size == 0 ? 1 : size);
  if (p == nullptr) throw std::bad_alloc();
  const std::size_t live = cinebar_tool_test::g_live += malloc_usable_size(p);
  for (std::size_t peak = cinebar_tool_test::g_peak;
       live > peak && !cinebar_tool_test::g_peak.compare_exchange_weak(peak, live);) {
  }
  return p;
}
void operator delete(void* p) noexcept {
  if (p != nullptr) cinebar_tool_test::g_live -= malloc_usable_size(p);
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept { operator delete(p); }
