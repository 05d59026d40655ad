#include "tool_fixture.h"

#include <stdlib.h>

#include <algorithm>
#include <sstream>

#include "tools/cinebar/tool.h"

namespace cinebar_tool_test {

void ToolTest::SetUp() {
  home = fs::current_path();
  temp = ::testing::TempDir() + "cinebar-tool-XXXXXX";
  ASSERT_NE(mkdtemp(temp.data()), nullptr);
  fs::current_path(temp);
}

void ToolTest::TearDown() {
  fs::current_path(home);
  fs::remove_all(temp);
}

Outcome ToolTest::Run(std::vector<std::string> args, std::FILE* in, std::FILE* out_file) {
  args.insert(args.end(), {"--module", CINEBAR_MODULE_PATH});
  std::ostringstream out, err;
  cinebar_tool::Console console{out, err, false, "", nullptr, in, out_file};
  return Outcome{cinebar_tool::RunTool(args, console), out.str(), err.str()};
}

std::vector<std::string> ToolTest::Files(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code missing;
  for (const auto& entry : fs::directory_iterator(folder, missing)) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> Words(const std::string& text, char separator) {
  std::vector<std::string> words;
  std::istringstream in(text);
  for (std::string word; std::getline(in, word, separator);)
    if (!word.empty()) words.push_back(word);
  return words;
}

}  // namespace cinebar_tool_test
