// The program itself in child processes: signals, a file-size limit and two
// runs into one folder. Whatever ends a run, the folder holds whole frames
// under their names and nothing else; no run replaces another's frame, and a
// run that lost a name says so and fails.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "tool_fixture.h"

namespace cinebar_tool_test {
namespace {

namespace fs = std::filesystem;

// Starts `cinebar render IN OUT ...` with stderr into `log`; `limit` bytes a
// file at most when non-zero.
pid_t Start(const std::vector<std::string>& args, const std::string& log, rlim_t limit = 0) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  if (limit != 0) {
    const rlimit fsize{limit, limit};
    setrlimit(RLIMIT_FSIZE, &fsize);
  }
  dup2(open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 2);
  dup2(open("/dev/null", O_WRONLY), 1);
  std::vector<const char*> argv{"cinebar", "render"};
  for (const std::string& a : args) argv.push_back(a.c_str());
  argv.insert(argv.end(), {"--module", CINEBAR_MODULE_PATH, nullptr});
  execv(CINEBAR_TOOL_PATH, const_cast<char* const*>(argv.data()));
  _exit(127);
}

int Wait(pid_t pid) {
  int status = 0;
  waitpid(pid, &status, 0);
  return status;
}

void WriteFrames(const std::string& folder, int count, const std::string& layout) {
  fs::create_directory(folder);
  for (int i = 0; i < count; ++i) WritePattern(folder + "/" + std::to_string(i) + ".png", 400, 300, layout);
}

// Every name in `folder` is a whole frame (libpng reads it), none hidden.
void ExpectWholeFramesOnly(const std::string& folder) {
  for (const std::string& name : ToolTest::Files(folder)) {
    EXPECT_NE(name[0], '.') << name;
    EXPECT_EQ(Decode(folder + "/" + name).width, 400) << name;
  }
}

TEST_F(ToolTest, EndedBySignalLeavesWholeFramesAndSaysWhen) {
  WriteFrames("frames", 60, "rgba");
  for (const int signal : {SIGINT, SIGHUP, SIGTERM, SIGQUIT, SIGKILL}) {
    SCOPED_TRACE(strsignal(signal));
    fs::remove_all("out");
    const pid_t pid = Start({"frames", "out"}, "log");
    while (Files("out").empty() && waitpid(pid, nullptr, WNOHANG) == 0) usleep(1000);
    kill(pid, signal);
    const int status = Wait(pid);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
    EXPECT_LT(Files("out").size(), 60u);
    ExpectWholeFramesOnly("out");
    const std::string log = Contents("log");
    EXPECT_EQ(log.find("cinebar: interrupted after ") != std::string::npos, signal != SIGKILL) << log;
  }
}

TEST_F(ToolTest, FileSizeLimitFailsTheFrameAndLeavesNothingOfIt) {
  WriteFrames("frames", 3, "rgba");
  const pid_t pid = Start({"frames", "out", "--compression", "0"}, "log", 100000);
  const int status = Wait(pid);
  ASSERT_TRUE(WIFEXITED(status)) << status;
  EXPECT_EQ(WEXITSTATUS(status), 5);
  EXPECT_NE(Contents("log").find("File too large"), std::string::npos) << Contents("log");
  EXPECT_EQ(Files("out"), std::vector<std::string>{});
}

// Two runs of different pictures into one folder: each name holds one run's
// whole frame; a run whose frame is not under a name failed and said so.
TEST_F(ToolTest, TwoRunsIntoOneFolderNeverReplaceEachOther) {
  const std::string layouts[] = {"rgb", "gray"};
  for (int run = 0; run < 2; ++run) {
    WriteFrames("in" + std::to_string(run), 40, layouts[run]);
    ASSERT_EQ(Run({"render", "in" + std::to_string(run), "ref" + std::to_string(run)}).code, 0);
  }
  const pid_t pids[] = {Start({"in0", "out", "--jobs", "1"}, "log0"),
                        Start({"in1", "out", "--jobs", "1"}, "log1")};
  const int status[] = {Wait(pids[0]), Wait(pids[1])};
  ASSERT_EQ(Files("out").size(), 40u);
  ExpectWholeFramesOnly("out");
  for (int run = 0; run < 2; ++run) {
    const std::string log = Contents("log" + std::to_string(run));
    bool all_own = true;
    for (const std::string& name : Files("out")) {
      const std::string bytes = Contents("out/" + name),
                        own = Contents("ref" + std::to_string(run) + "/" + name);
      ASSERT_TRUE(bytes == own || bytes == Contents("ref" + std::to_string(1 - run) + "/" + name)) << name;
      all_own = all_own && bytes == own;
      // A frame of the other run under this name: this run lost it, or stopped before it.
      if (bytes != own && log.find("exists") == std::string::npos) {
        EXPECT_NE(log.find("out/" + name + " appeared"), std::string::npos) << name << "\n" << log;
      }
    }
    ASSERT_TRUE(WIFEXITED(status[run]));
    EXPECT_EQ(WEXITSTATUS(status[run]), all_own ? 0 : 5) << log;
  }
}

}  // namespace
}  // namespace cinebar_tool_test
