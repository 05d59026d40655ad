// The bounded print the branding path is built with: both sides must cut and
// terminate as the Windows CRT does, or the native tests would prove a path
// the Windows module never builds.
#include "platform/platform.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

TEST(Platform, BoundedPrintCutsAndTerminatesAsTheWindowsRuntimeDoes) {
  struct Case {
    const char* text;
    std::size_t size;
    int result;
    const char* buffer;  // the whole buffer afterwards, '#' where nothing was written
  };
  const Case cases[] = {
      {"", 4, 0, "\0###"},      {"ab", 4, 2, "ab\0#"},       {"abc", 4, 3, "abc\0"}, {"abcd", 4, 4, "abcd"},
      {"abcde", 4, -1, "abcd"}, {"abcdefgh", 2, -1, "ab##"}, {"abc", 0, -1, "####"},
  };
  for (const Case& c : cases) {
    char buffer[4];
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(c.result, cinebar_platform::BoundedPrint(buffer, c.size, "%s", c.text)) << c.text;
    EXPECT_EQ(std::string(c.buffer, 4), std::string(buffer, 4)) << c.text << " in " << c.size;
  }
}

}  // namespace
