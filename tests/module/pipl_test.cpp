// The property list of the built module, checked against the table of fields
// the host reads, on both platforms.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "cinebar_identity.h"
#include "expected_pipl.h"
#include "module_access.h"

namespace module_test {
namespace {

class ModulePiPL : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { bytes_ = new std::vector<uint8_t>(ReadModulePiPL()); }
  static void TearDownTestSuite() {
    delete bytes_;
    bytes_ = nullptr;
  }
  static const std::vector<uint8_t>& Bytes() { return *bytes_; }
  static std::vector<uint8_t>* bytes_;
};
std::vector<uint8_t>* ModulePiPL::bytes_ = nullptr;

const Property* Find(const WalkResult& walk, const std::string& key) {
  for (const Property& p : walk.properties)
    if (p.key == key) return &p;
  return nullptr;
}

TEST(ExpectedPiPLTable, HasTheTabledSizeAndWalksCleanly) {
  // The expectation itself: 10-byte header, 13 heads of 16 bytes, 96 bytes of values.
  EXPECT_EQ(ExpectedPiPL().size(), kExpectedPiPLSize);
  const WalkResult walk = WalkPiPL(ExpectedPiPL());
  EXPECT_EQ(walk.error, "");
  EXPECT_EQ(walk.properties.size(), kExpectedPropertyCount);
}

TEST_F(ModulePiPL, MatchesTheTableByteForByte) {
  const std::vector<uint8_t>& got = Bytes();
  ASSERT_EQ(got.size(), kExpectedPiPLSize);
  const std::vector<uint8_t>& want = ExpectedPiPL();
  for (size_t i = 0; i < want.size(); ++i) {
    ASSERT_EQ(int(got[i]), int(want[i])) << "first difference at byte offset " << i;
  }
}

struct PropertyRow {
  const char* key;
  uint32_t length;    // length field
  uint32_t occupied;  // bytes the value takes in the list
};

// Order, length fields and space taken, property by property.
const PropertyRow kProperties[] = {
    {"kind", 4, 4},   {"name", 8, 8}, {"catg", 20, 20}, {"8664", 16, 16}, {"ePVR", 4, 4},
    {"eSVR", 4, 4},   {"eVER", 4, 4}, {"eINF", 2, 4},   {"eGLO", 4, 4},   {"eGL2", 4, 4},
    {"eMNA", 16, 16}, {"aeFL", 4, 4}, {"aeFL", 4, 4},
};

TEST_F(ModulePiPL, WalkRoundedToFourFindsThirteenPropertiesInOrder) {
  const WalkResult walk = WalkPiPL(Bytes());
  ASSERT_EQ(walk.error, "");
  EXPECT_EQ(walk.declared_count, kExpectedPropertyCount);
  ASSERT_EQ(walk.properties.size(), std::size(kProperties));
  EXPECT_EQ(walk.end, Bytes().size());
  for (size_t i = 0; i < std::size(kProperties); ++i) {
    SCOPED_TRACE("property " + std::to_string(i + 1) + " '" + kProperties[i].key + "'");
    const Property& p = walk.properties[i];
    EXPECT_EQ(p.vendor, "8BIM");
    EXPECT_EQ(p.key, kProperties[i].key);
    EXPECT_EQ(p.id, 0u);
    EXPECT_EQ(p.length, kProperties[i].length);
    const size_t next = i + 1 < walk.properties.size() ? walk.properties[i + 1].offset - 16 : walk.end;
    EXPECT_EQ(next - p.offset, kProperties[i].occupied);
    for (size_t k = p.offset + p.length; k < next; ++k) EXPECT_EQ(int(Bytes()[k]), 0) << "padding at " << k;
  }
}

TEST_F(ModulePiPL, WalkByLengthFieldsAloneLosesTwoBytesAfterInfoFlags) {
  // The 'eINF' value is followed by two padding bytes its length does not
  // count: a walker that trusts the lengths alone reads the wrong key next.
  const WalkResult naive = WalkPiPL(Bytes(), /*round_to_4=*/false);
  ASSERT_GE(naive.properties.size(), 8u);
  EXPECT_EQ(naive.properties[7].key, "eINF");
  EXPECT_EQ(naive.properties[7].length, 2u);
  const bool lost_step = naive.properties.size() < 9 || naive.properties[8].key != "eGLO";
  EXPECT_TRUE(lost_step);
  EXPECT_NE(naive.error, "");
}

struct TextRow {
  const char* key;
  const char* text;
};

TEST_F(ModulePiPL, LengthPrefixedTextsCountTheirPadding) {
  const TextRow rows[] = {{"name", "Cinebar"}, {"catg", "TW Lenscraft Suite"}, {"eMNA", "ADBE KS Cinebar"}};
  const WalkResult walk = WalkPiPL(Bytes());
  for (const TextRow& row : rows) {
    SCOPED_TRACE(row.key);
    const Property* p = Find(walk, row.key);
    ASSERT_NE(p, nullptr);
    const size_t n = std::strlen(row.text);
    EXPECT_EQ(p->length, (n + 1 + 3) / 4 * 4);
    ASSERT_GE(p->value.size(), n + 1);
    EXPECT_EQ(size_t(p->value[0]), n);
    EXPECT_EQ(std::string(p->value.begin() + 1, p->value.begin() + 1 + std::ptrdiff_t(n)), row.text);
    for (size_t k = n + 1; k < p->value.size(); ++k) EXPECT_EQ(int(p->value[k]), 0);
  }
}

TEST_F(ModulePiPL, EntryNameIsZeroTerminatedAndPadded) {
  const WalkResult walk = WalkPiPL(Bytes());
  const Property* p = Find(walk, "8664");
  ASSERT_NE(p, nullptr);
  ASSERT_EQ(p->value.size(), 16u);
  EXPECT_STREQ(reinterpret_cast<const char*>(p->value.data()), "EntryPointFunc");
  EXPECT_EQ(int(p->value[14]), 0);
  EXPECT_EQ(int(p->value[15]), 0);
}

TEST_F(ModulePiPL, AgreesWithWhatGlobalSetupReports) {
  // Version and both out-flag words must be the numbers global setup writes.
  const WalkResult walk = WalkPiPL(Bytes());
  struct Row {
    const char* key;
    uint32_t value;
  } const rows[] = {
      {"eVER", cinebar_identity::kPackedVersion},
      {"eGLO", uint32_t(cinebar_identity::kOutFlags)},
      {"eGL2", uint32_t(cinebar_identity::kOutFlags2)},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.key);
    const Property* p = Find(walk, row.key);
    ASSERT_NE(p, nullptr);
    ASSERT_EQ(p->value.size(), 4u);
    EXPECT_EQ(ReadU32(p->value.data()), row.value);
  }
  const Property* name = Find(walk, "name");
  ASSERT_NE(name, nullptr);
  EXPECT_EQ(std::string(name->value.begin() + 1, name->value.begin() + 1 + name->value[0]),
            cinebar_identity::kEffectName);
  const Property* match = Find(walk, "eMNA");
  ASSERT_NE(match, nullptr);
  EXPECT_EQ(std::string(match->value.begin() + 1, match->value.begin() + 1 + match->value[0]),
            cinebar_identity::kMatchName);
}

}  // namespace
}  // namespace module_test
