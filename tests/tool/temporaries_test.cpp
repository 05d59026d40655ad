// A frame gets its name only when whole, and without replacing a file it may
// not replace: through unnamed files and through hidden temporaries alike.
#include "tools/cinebar/temporaries.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "tool_fixture.h"
#include "tools/cinebar/chart.h"

namespace cinebar_tool_test {
namespace {

using cinebar_tool::Replace;

struct CommitCase {
  const char* name;
  bool unnamed;
  bool exists;  // "out.png" holds other bytes before the commit
  Replace replace;
  bool replaced;  // "out.png" holds the frame afterwards
};
void PrintTo(const CommitCase& c, std::ostream* out) { *out << c.name; }

class Commits : public ToolTest, public ::testing::WithParamInterface<CommitCase> {};

TEST_P(Commits, NameGivenOnlyWhereAllowedAndNothingElseLeft) {
  const CommitCase& c = GetParam();
  const std::string before = "someone else's file";
  if (c.exists) std::ofstream("out.png") << before;
  {
    cinebar_tool::Temporaries temps({}, c.unnamed);
    cinebar_tool::Temporary written =
        temps.Write("out.png", cinebar_tool::MakeTestChart(64, 36), cinebar_tool::WriteSettings{});
    EXPECT_EQ(Files().size(), std::size_t{c.exists} + (c.unnamed ? 0 : 1));
    try {
      temps.Commit(std::move(written), "out.png", c.replace);
      EXPECT_TRUE(c.replaced);
    } catch (const cinebar_tool::NameTaken& e) {
      EXPECT_FALSE(c.replaced);
      EXPECT_NE(std::string(e.what()).find("out.png appeared"), std::string::npos) << e.what();
    }
  }
  EXPECT_EQ(Files(), std::vector<std::string>{"out.png"});
  EXPECT_EQ(Decode("out.png").width, c.replaced ? 64 : 0);
  EXPECT_EQ(Contents("out.png") == before, !c.replaced);
  const mode_t mask = umask(0);  // a new frame gets the usual mode, not a temporary's
  umask(mask);
  struct stat st {};
  ASSERT_EQ(stat("out.png", &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0666 & ~mask);
}

INSTANTIATE_TEST_SUITE_P(
    Ways, Commits,
    ::testing::Values(CommitCase{"unnamed_new", true, false, Replace::kNever, true},
                      CommitCase{"unnamed_taken", true, true, Replace::kNever, false},
                      CommitCase{"unnamed_replaced", true, true, Replace::kAtomically, true},
                      CommitCase{"hidden_new", false, false, Replace::kNever, true},
                      CommitCase{"hidden_taken", false, true, Replace::kNever, false},
                      CommitCase{"hidden_replaced", false, true, Replace::kAtomically, true}));

}  // namespace
}  // namespace cinebar_tool_test
