// The property list of the built module, on both platforms: byte for byte the
// table of expected_pipl.h, and walked as the host walks it.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "expected_pipl.h"

namespace module_test {
namespace {

uint32_t ReadU32(const uint8_t* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

struct Walk {
  std::vector<std::pair<std::string, uint32_t>> properties;  // key and length field
  std::string error;                                         // empty when the list is well formed
};

// Header: u16 version, u32 reserved, u32 count; each property: vendor and key
// (characters reversed), u32 id, u32 length, the value. The host takes each
// value to occupy its length rounded up to 4; `round_to_4` false trusts the
// lengths alone.
Walk WalkPiPL(const std::vector<uint8_t>& bytes, bool round_to_4) {
  Walk walk;
  if (bytes.size() < 10) return {{}, "shorter than the header"};
  size_t pos = 10;
  for (uint32_t i = ReadU32(&bytes[6]); i > 0; --i) {
    const uint32_t length = bytes.size() - pos >= 16 ? ReadU32(&bytes[pos + 12]) : 0;
    const size_t occupied = round_to_4 ? (size_t(length) + 3) / 4 * 4 : length;
    if (bytes.size() - pos < 16 + occupied) return {walk.properties, "a property runs past the end"};
    walk.properties.emplace_back(
        std::string{char(bytes[pos + 7]), char(bytes[pos + 6]), char(bytes[pos + 5]), char(bytes[pos + 4])},
        length);
    pos += 16 + occupied;
  }
  if (pos != bytes.size()) walk.error = "bytes left after the last property";
  return walk;
}

TEST(ModulePiPL, MatchesTheTableByteForByte) {
  const std::vector<uint8_t> got = ReadModulePiPL();
  const std::vector<uint8_t>& want = ExpectedPiPL();
  ASSERT_EQ(want.size(), 314u);  // the table: 10-byte header, 13 heads of 16 bytes, 96 bytes of values
  ASSERT_EQ(got.size(), want.size());
  const auto diff = std::mismatch(got.begin(), got.end(), want.begin()).first;
  EXPECT_TRUE(diff == got.end()) << "first difference at byte offset " << diff - got.begin();
}

TEST(ModulePiPL, WalksOnlyWithValuesRoundedToFourBytes) {
  const std::vector<uint8_t> bytes = ReadModulePiPL();
  const Walk rounded = WalkPiPL(bytes, true);
  EXPECT_EQ(rounded.error, "");
  std::string keys;
  for (const auto& property : rounded.properties) keys += property.first + " ";
  EXPECT_EQ(keys, "kind name catg 8664 ePVR eSVR eVER eINF eGLO eGL2 eMNA aeFL aeFL ");
  // 'eINF' counts its two bytes but not the two padding bytes after them: a
  // walk that trusts the lengths alone reads the next head two bytes early.
  const Walk naive = WalkPiPL(bytes, false);
  ASSERT_GE(naive.properties.size(), 8u);
  EXPECT_EQ(naive.properties[7], std::make_pair(std::string("eINF"), 2u));
  EXPECT_TRUE(naive.properties.size() == 8 || naive.properties[8].first != "eGLO");
  EXPECT_NE(naive.error, "");
}

}  // namespace
}  // namespace module_test
