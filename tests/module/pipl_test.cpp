// The property list of the built module, on both platforms: byte for byte the
// table of expected_pipl.h, which is written out field by field as the host
// reads it.
#include <gtest/gtest.h>

#include <algorithm>

#include "expected_pipl.h"

namespace module_test {
namespace {

TEST(ModulePiPL, MatchesTheTableByteForByte) {
  const std::vector<uint8_t> got = ReadModulePiPL();
  const std::vector<uint8_t>& want = ExpectedPiPL();
  ASSERT_EQ(want.size(), 314u);  // the table: 10-byte header, 13 heads of 16 bytes, 96 bytes of values
  ASSERT_EQ(got.size(), want.size());
  const auto diff = std::mismatch(got.begin(), got.end(), want.begin()).first;
  EXPECT_TRUE(diff == got.end()) << "first difference at byte offset " << diff - got.begin();
}

}  // namespace
}  // namespace module_test
