// Files and sequences of frames: what the tool leaves for each set of inputs
// and outputs. A file it cannot use or must not replace gives the exit code
// and one line on stderr, and leaves every file as it was (no temporary
// either); a sequence renders every frame under its name and stops at a bad one.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "tool_fixture.h"
#include "tools/cinebar/image.h"

namespace cinebar_tool_test {
namespace {

namespace fs = std::filesystem;

struct FileCase {
  const char* name;
  // Set up in order: "x/" a folder; "x@y" a link x to y; "x|" a FIFO x; "x.png"
  // a picture, except that names with "bad" hold text and "cut" a picture cut short; others text.
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
    EXPECT_EQ(cinebar_tool::ReadPng(std::string(c.folder) + "/" + name).at(0, 0)[3], 255) << name;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, FilesLeft,
    ::testing::Values(
        FileCase{"missing_input", "", "in.png out.png", 3, ".", ""},
        FileCase{"text_named_png", "bad.png", "bad.png out.png", 3, ".", "bad.png"},
        FileCase{"cut_short_png", "cut.png", "cut.png out.png", 3, ".", "cut.png"},
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
                 "out", "frame_0007.png frame_0008.png frame_0010.png"},
        // In numeric order the bad frame is the last; in text order it would be the second.
        FileCase{"bad_frame_stops", "f/ f/1.png f/2.png f/10bad.png f/notes.txt", "f out/%d.png", 3, "out",
                 "1.png 2.png", "frame 3 of 3; 2 frames written"}));

// `cinebar render IN OUT` in a child, stderr to err.txt; `cap` limits it to 200 MB.
int RunProgram(const char* in, const char* out, bool cap, const char* interrupt_when = nullptr) {
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(open("err.txt", O_WRONLY | O_CREAT | O_TRUNC, 0644), 2);
#ifdef __SANITIZE_ADDRESS__  // the sanitizer reserves far more address space than it uses
    if (cap) setenv("ASAN_OPTIONS", "hard_rss_limit_mb=200", 1);
#else
    const rlimit limit{200 << 20, 200 << 20};
    if (cap) setrlimit(RLIMIT_AS, &limit);
#endif
    execl(CINEBAR_TOOL_PATH, "cinebar", "render", in, out, "--module", CINEBAR_MODULE_PATH, nullptr);
    _exit(127);
  }
  while (interrupt_when != nullptr && ToolTest::Files(interrupt_when).empty() &&
         waitpid(pid, nullptr, WNOHANG) == 0)
    usleep(1000);
  if (interrupt_when != nullptr) kill(pid, SIGINT);
  int status = 0;
  waitpid(pid, &status, 0);
  return status;
}

TEST_F(ToolTest, InterruptedSequenceLeavesWholeFramesOnly) {
  fs::create_directory("frames");
  for (int i = 0; i < 80; ++i) WritePattern("frames/" + std::to_string(i) + ".png", 400, 300);
  const int status = RunProgram("frames", "out", false, "out");
  ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
  const auto left = Files("out");
  EXPECT_LT(left.size(), 80u);
  for (const std::string& name : left) EXPECT_NE(name[0], '.') << name;
}

TEST_F(ToolTest, HugeHeaderIsRefusedBeforeTakingMemory) {
  // Signature, a 32767x32767 RGBA header, a few bytes of image data, the end: 65 bytes.
  const std::string png(
      "\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR\0\0\x7f\xff\0\0\x7f\xff\x08\x06\0\0\0\x49\xf2\x06\x3d"
      "\0\0\0\x08IDAT\x78\x9c\x63\x60\0\0\0\x02\x40\xc9\xa0\x7f\0\0\0\0IEND\xae\x42\x60\x82",
      65);
  ASSERT_EQ(png.size(), 65u);
  std::ofstream("huge.png", std::ios::binary) << png;
  const int status = RunProgram("huge.png", "out.png", true);
  ASSERT_TRUE(WIFEXITED(status)) << status;
  EXPECT_EQ(WEXITSTATUS(status), 3);
  EXPECT_NE(Contents("err.txt").find("32767x32767 at 8 bits, which needs 4095 MiB"), std::string::npos)
      << Contents("err.txt");
  EXPECT_EQ(Files(), Words("err.txt huge.png"));
}

}  // namespace
}  // namespace cinebar_tool_test
