// The chunk table walked: every ancillary chunk it names (and an unknown one
// safe to copy and one not), valid in an input of one form, read and carried
// into an output of the same form or another, written, and judged by libpng.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

#include "png_oracle.h"
#include "tools/cinebar/frame.h"
#include "tools/cinebar/png/png_reader.h"

namespace cinebar_png_test {
namespace {

using cinebar_tool::Carry;
using cinebar_tool::ChunkRule;
using cinebar_tool::Frame;

struct Change {
  const char* what;
  int depth, color_type;  // the input file's
  int channels;           // the output's
};
const Change kChanges[] = {
    {"RGB kept", 8, 2, 3},
    {"grey kept", 16, 0, 1},
    {"grey gains alpha", 8, 0, 2},
    {"grey turns RGB", 16, 0, 3},
    {"grey turns RGBA", 8, 0, 4},
    {"RGB gains alpha", 8, 2, 4},
    {"palette read as RGB", 8, 3, 3},
    {"2-bit grey read as 8-bit", 2, 0, 1},
    {"2-bit grey turns RGB", 2, 0, 3},
};

// iCCP data holding a minimal profile of colour space "GRAY" or "RGB "; libpng
// reads 81 bytes of keyword before the profile: a shorter chunk is "too short" to it.
std::string IccpData(const std::string& space) {
  std::string profile = Be(132) + Be(0) + Be(0x02100000) + "mntr" + space + "XYZ " + std::string(12, '\0') +
                        "acsp" + std::string(28, '\0') + Be(0xF6D6) + Be(0x10000) + Be(0xD32D);
  profile.resize(132, '\0');
  return std::string(70, 'k') + std::string(2, '\0') + Zlib(profile);
}

// Valid data of a chunk type in a picture; nullopt where the type has no place in its form.
std::optional<std::string> ValidData(const std::string& type, const Picture& p) {
  const bool palette = p.color_type == 3, color = p.color_type & 2;
  const unsigned top = (1u << p.depth) - 1;
  std::string chromaticities;
  for (const std::uint32_t v : {31270, 32900, 64000, 33000, 30000, 60000, 15000, 6000})
    chromaticities += Be(v);
  const std::vector<std::pair<const char*, std::string>> data = {
      {"cHRM", chromaticities},
      {"gAMA", Be(45455)},
      {"iCCP", IccpData(color ? "RGB " : "GRAY")},
      {"sRGB", std::string(1, '\0')},
      {"sBIT", std::string(palette ? 3 : std::size_t(p.channels()), char(palette ? 5 : p.depth))},
      {"bKGD", palette ? "\1" : Be(top / 3, 2) + (color ? Be(top / 2, 2) + Be(top, 2) : "")},
      {"hIST", std::string(p.palette.size() / 3 * 2, '\1')},
      {"pHYs", Be(2835) + Be(3780) + '\1'},
      {"oFFs", Be(10) + Be(20) + '\0'},
      {"pCAL", std::string("cal\0", 4) + Be(0) + Be(255) + std::string("\0\2unit\0000\0001", 10)},
      {"sCAL", std::string("\0011.5\0002.5", 8)},
      {"sPLT", std::string("pal\0\x08\x10\x20\x30\xff\0\x01", 11)},
      {"eXIf", std::string("MM\0\x2a\0\0\0\x08\0\0", 10)},
      {"tIME", Be(2020, 2) + "\1\2\3\4\5"},
      {"tEXt", std::string("Title\0Hi", 8)},
      {"zTXt", std::string("Title\0\0", 7) + Zlib("Hi")},
      {"iTXt", std::string("Title\0\0\0en\0\0Hi", 14)},
      {"prVt", "private, safe to copy"},
      {"prVT", "private, not safe to copy"},
  };
  for (const auto& [name, bytes] : data)
    if (type == name && (type != "hIST" || palette)) return bytes;
  return std::nullopt;  // tRNS: read as alpha, never carried
}

Picture Input(const Change& c) {
  Picture p;
  p.width = 5, p.height = 4, p.depth = c.depth, p.color_type = c.color_type;
  if (c.color_type == 3) p.palette = "\x10\x20\x30\x40\x50\x60\x70\x80\x90\xa0\xb0\xc0";
  p.samples.resize(std::size_t(p.width * p.height * p.channels()));
  for (std::size_t i = 0; i < p.samples.size(); ++i)
    p.samples[i] = std::uint16_t(i % (c.color_type == 3 ? 4 : 1u << c.depth));
  return p;
}

// What the chunk's purpose demands, whatever the table says: a background
// survives every change here, a profile never crosses from grey to colour,
// what describes the old samples or the old file never survives, text does.
std::optional<bool> Promised(const std::string& type, const Change& c, const Frame& out) {
  if (type == "bKGD" || type == "tEXt" || type == "gAMA" || type == "pHYs" || type == "prVt") return true;
  if (type == "iCCP") return (c.color_type & 2) || !out.color();
  if (type == "tIME" || type == "sBIT" || type == "hIST" || type == "prVT") return false;
  return std::nullopt;
}

// One rule in one change: the output is valid to libpng; the chunk is written
// once or named dropped, never both; copied as it was, or converted to the
// same background colour.
void Walk(const std::string& type, const ChunkRule& rule, const Change& change) {
  const std::string what = type + ", " + change.what;
  const Picture picture = Input(change);
  const std::optional<std::string> data = ValidData(type, picture);
  if (!data) return;
  const bool early = rule.place == cinebar_tool::Place::kBeforePalette && change.color_type == 3;
  const std::string input =
      Insert(WriteWithLibpng(picture), ChunkBytes(type, *data), early ? "PLTE" : "IDAT");
  const Reading in_libpng = ReadWithLibpng(input);
  ASSERT_FALSE(in_libpng.objects()) << what << ": the input is not valid: " << in_libpng.objection();
  Frame in, out;
  ASSERT_TRUE(cinebar_tool::ReadPng(ReadFrom(input).get(), "in.png", in));
  out.Resize(in.width, in.height, change.channels, in.deep);
  cinebar_tool::CarryChunks(in, out);
  const File file(std::tmpfile(), &std::fclose);
  EXPECT_EQ(cinebar_tool::WriteFrame(file.get(), out, {1}), "");
  std::string output(std::size_t(std::ftell(file.get())), '\0');
  std::rewind(file.get());
  ASSERT_EQ(std::fread(output.data(), 1, output.size(), file.get()), output.size());
  const Reading out_libpng = ReadWithLibpng(output);
  EXPECT_FALSE(out_libpng.objects()) << what << ": " << out_libpng.objection();
  const bool written = ChunksOf(output, type).size() == 1;
  EXPECT_NE(written, std::count(out.dropped.begin(), out.dropped.end(), type) == 1) << what;
  const Carry carry =
      cinebar_tool::PngForm{change.depth, change.color_type, 0} == out.form() ? rule.kept : rule.changed;
  if (carry != Carry::kConvert) {
    EXPECT_EQ(written, carry == Carry::kCopy) << what;
  }
  if (carry == Carry::kCopy && written) {
    EXPECT_EQ(ChunksOf(output, type)[0], *data) << what;
  }
  if (type == "bKGD" && written) {  // the same colour, at 8 bits where the input was lower
    std::vector<unsigned> expected(out.color() ? 3 : 1, 0);
    for (std::size_t c = 0; c < expected.size(); ++c)
      expected[c] = in_libpng.background[std::min(c, in_libpng.background.size() - 1)] *
                    (change.depth < 8 ? 255 / ((1 << change.depth) - 1) : 1);
    EXPECT_EQ(out_libpng.background, expected) << what;
  }
  if (const std::optional<bool> promised = Promised(type, change, out)) {
    EXPECT_EQ(written, *promised) << what;
  }
}

TEST(PngChunks, EveryRuleInEveryChangeOfForm) {
  std::vector<std::pair<std::string, ChunkRule>> rules;
  for (const ChunkRule& rule : cinebar_tool::KnownChunkRules()) rules.emplace_back(rule.type, rule);
  for (const char* unknown : {"prVt", "prVT"}) rules.emplace_back(unknown, cinebar_tool::RuleOf(unknown));
  int walked = 0;
  for (const auto& [type, rule] : rules)
    for (const Change& change : kChanges) {
      Walk(type, rule, change);
      walked += ValidData(type, Input(change)).has_value();
    }
  EXPECT_EQ(walked, 18 * 9 + 1) << "every rule but tRNS in every change, hIST in the palette's";
}

}  // namespace
}  // namespace cinebar_png_test
