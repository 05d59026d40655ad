// The bounded print the branding path is built with: both sides must cut and
// terminate as the Windows CRT does, or the native tests would prove a path
// the Windows module never builds.
#include "platform/platform.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

namespace {

TEST(Platform, BoundedPrintCutsAndTerminatesAsTheWindowsRuntimeDoes) {
  using namespace std::string_literals;
  // text, room given, result, the whole buffer afterwards ('#': not written)
  const std::tuple<const char*, std::size_t, int, std::string> cases[] = {
      {"", 4, 0, "\0###"s},     {"ab", 4, 2, "ab\0#"s},      {"abc", 4, 3, "abc\0"s}, {"abcd", 4, 4, "abcd"},
      {"abcde", 4, -1, "abcd"}, {"abcdefgh", 2, -1, "ab##"}, {"abc", 0, -1, "####"},
  };
  for (const auto& [text, size, result, after] : cases) {
    std::string buffer(4, '#');
    EXPECT_EQ(result, cinebar_platform::BoundedPrint(buffer.data(), size, "%s", text)) << text;
    EXPECT_EQ(after, buffer) << text << " in " << size;
  }
}

// The machine-wide data folder the branding library is found under: the
// query succeeds (0, the system's result) and writes a terminated path.
TEST(Platform, CommonAppDataFolderIsFoundAndTerminated) {
  std::string path(cinebar_platform::kMaxPath, '#');
  EXPECT_EQ(0, cinebar_platform::GetCommonAppDataFolder(path.data()));
  const std::size_t length = path.find('\0');
  EXPECT_TRUE(length > 0 && length != std::string::npos) << path;
}

}  // namespace
