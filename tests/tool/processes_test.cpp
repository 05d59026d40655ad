// How a frame gets its name: only when whole and without replacing a file it
// may not replace, through unnamed files and hidden temporaries alike; and
// the program itself in child processes, ended by signals and a file-size
// limit or run twice into one folder. Whatever ends a run, the folder holds
// whole frames under their names and nothing else; no run replaces another's
// frame, and a run that lost a name says so and fails.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tool_fixture.h"
#include "tools/cinebar/chart.h"
#include "tools/cinebar/temporaries.h"

namespace cinebar_tool_test {
namespace {

TEST_F(ToolTest, CommitGivesTheNameOnlyWhereAllowedAndLeavesNothingElse) {
  const mode_t mask = umask(0);
  umask(mask);
  for (const bool unnamed : {true, false})
    for (const auto replace : {cinebar_tool::Replace::kNever, cinebar_tool::Replace::kAtomically})
      for (const bool exists : {false, true}) {  // "out.png" holds other bytes before the commit
        SCOPED_TRACE(std::to_string(unnamed) + std::to_string(int(replace)) + std::to_string(exists));
        const bool replaced = !exists || replace == cinebar_tool::Replace::kAtomically;
        fs::remove("out.png");
        if (exists) std::ofstream("out.png") << "someone else's file";
        std::string error;
        {
          cinebar_tool::Temporaries temps({}, unnamed);
          cinebar_tool::Temporary written = temps.Write("out.png", cinebar_tool::MakeTestChart(64, 36), {});
          EXPECT_EQ(Files().size(), std::size_t{exists} + (unnamed ? 0 : 1));
          try {
            temps.Commit(std::move(written), "out.png", replace);
          } catch (const cinebar_tool::NameTaken& e) {
            error = e.what();
          }
        }
        EXPECT_EQ(error.find("out.png appeared") == std::string::npos, replaced) << error;
        EXPECT_EQ(Files(), std::vector<std::string>{"out.png"});
        EXPECT_EQ(Decode("out.png").width, replaced ? 64 : 0);
        EXPECT_EQ(fs::status("out.png").permissions(), fs::perms(0666 & ~mask)) << "a temporary's mode";
      }
}

// A run removes the hidden temporaries that a killed run on this machine left
// in its folder, and none that a live run or another machine may still write.
TEST_F(ToolTest, HiddenTemporariesOfAKilledRunAreRemovedByTheNext) {
  fs::create_directory("out");
  const pid_t killed = fork();  // leaves its temporary as SIGKILL would: no destructor runs
  if (killed == 0) {
    cinebar_tool::Temporaries temps({}, false);
    const cinebar_tool::Temporary left = temps.Write("out/a.png", cinebar_tool::MakeTestChart(8, 8), {});
    _exit(0);
  }
  waitpid(killed, nullptr, 0);
  char host[256] = {};
  gethostname(host, sizeof host - 1);
  const std::string live = ".cinebar-" + std::string(host) + "-" + std::to_string(getpid()) + "-abcdef";
  for (const std::string& name : {live, std::string(".cinebar-elsewhere-1-abcdef")})
    std::ofstream("out/" + name) << "in use";
  WritePattern("in.png", 32, 18, 2, 8);
  const Outcome outcome = Run(Words("render in.png out/b.png"));
  EXPECT_NE(outcome.err.find("removed 1 hidden temporary from out"), std::string::npos) << outcome.err;
  EXPECT_EQ(Files("out"), (std::vector<std::string>{".cinebar-elsewhere-1-abcdef", live, "b.png"}));
}

// Starts `cinebar render ARGS` with stderr into `log`; `limit` bytes a file at most when not 0.
pid_t Start(std::vector<const char*> argv, const std::string& log, rlim_t limit = 0) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  const rlimit fsize{limit, limit};
  if (limit != 0) setrlimit(RLIMIT_FSIZE, &fsize);  // 0: none
  dup2(open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 2);
  dup2(open("/dev/null", O_WRONLY), 1);
  argv.insert(argv.begin(), {"cinebar", "render"});
  argv.insert(argv.end(), {"--module", CINEBAR_MODULE_PATH, nullptr});
  execv(CINEBAR_TOOL_PATH, const_cast<char* const*>(argv.data()));
  _exit(127);
}

// The exit code as a shell shows it: 128 + the signal that ended the process.
int Wait(pid_t pid) {
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

void WriteFrames(const std::string& folder, int count, int color_type) {
  fs::create_directory(folder);
  for (int i = 0; i < count; ++i)
    WritePattern(folder + "/" + std::to_string(i) + ".png", 400, 300, color_type);
}

// Every name in `folder` is a whole frame (libpng reads it), none hidden.
void ExpectWholeFramesOnly(const std::string& folder) {
  for (const std::string& name : ToolTest::Files(folder))
    EXPECT_TRUE(name[0] != '.' && Decode(folder + "/" + name).width == 400) << name;
}

TEST_F(ToolTest, EndedBySignalOrFileSizeLimitLeavesWholeFramesAndSaysWhy) {
  WriteFrames("frames", 60, 6);
  for (const int signal : {SIGINT, SIGHUP, SIGTERM, SIGQUIT, SIGKILL, 0}) {  // 0: a file-size limit
    SCOPED_TRACE(signal);
    const char* says = signal == 0 ? "File too large" : "cinebar: interrupted after ";
    fs::remove_all("out");
    const pid_t pid = Start({"frames", "out", "--compression", "0"}, "log", signal != 0 ? 0 : 100000);
    while (signal != 0 && Files("out").empty() && waitpid(pid, nullptr, WNOHANG) == 0) usleep(1000);
    if (signal != 0) kill(pid, signal);
    EXPECT_EQ(Wait(pid), signal != 0 ? 128 + signal : 5);
    EXPECT_TRUE(signal != 0 ? Files("out").size() < 60 : Files("out").empty());
    ExpectWholeFramesOnly("out");
    EXPECT_TRUE(signal == SIGKILL || Contents("log").find(says) != std::string::npos) << Contents("log");
  }
}
// Two runs of different pictures into one folder: each name holds one run's
// whole frame; a run whose frame is not under a name failed and said so.
TEST_F(ToolTest, TwoRunsIntoOneFolderNeverReplaceEachOther) {
  for (int run = 0; run < 2; ++run) {
    WriteFrames("in" + std::to_string(run), 40, 2 - 2 * run);  // RGB, grey
    ASSERT_EQ(Run({"render", "in" + std::to_string(run), "ref" + std::to_string(run)}).code, 0);
  }
  const pid_t pids[] = {Start({"in0", "out", "--jobs", "1"}, "log0"),
                        Start({"in1", "out", "--jobs", "1"}, "log1")};
  const int codes[] = {Wait(pids[0]), Wait(pids[1])};
  ASSERT_EQ(Files("out").size(), 40u);
  ExpectWholeFramesOnly("out");
  for (int run = 0; run < 2; ++run) {
    const std::string log = Contents("log" + std::to_string(run)), ref = "ref" + std::to_string(run) + "/";
    bool all_own = true;
    for (const std::string& name : Files("out")) {
      const std::string bytes = Contents("out/" + name), other = "ref" + std::to_string(1 - run) + "/";
      const bool own = bytes == Contents(ref + name);
      ASSERT_TRUE(own || bytes == Contents(other + name)) << name;
      all_own = all_own && own;
      // A frame of the other run under this name: this run lost it, or stopped before it.
      EXPECT_TRUE(own || log.find("exists") != log.npos || log.find("out/" + name + " appeared") != log.npos)
          << name << ": " << log;
    }
    EXPECT_EQ(codes[run], all_own ? 0 : 5) << log;
  }
}

}  // namespace
}  // namespace cinebar_tool_test
