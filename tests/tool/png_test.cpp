// The PNG unit against libpng: broken files refused as libpng refuses them,
// saying why; the chunk table walked, each output written and judged by
// libpng. Valid files of every form are read in the tool's random sequences.
#include <gtest/gtest.h>

#include <algorithm>

#include "png_oracle.h"
#include "tools/cinebar/frame.h"
#include "tools/cinebar/png/png_reader.h"
#include "tools/cinebar/tool_error.h"

namespace cinebar_png_test {
namespace {

using Chunks = std::vector<std::pair<std::string, std::string>>;

std::string Header(std::uint32_t width, int depth, int type) {
  return Be(width) + Be(3) + char(depth) + char(type) + std::string(3, '\0');
}

// `height` rows of `stride` bytes after filter byte `filter`.
std::string Rows(int height, std::size_t stride, char filter = 0) {
  std::string raw;
  for (int y = 0; y < height; ++y) raw += filter + std::string(stride, char(y % 2));
  return raw;
}

std::string PngFile(const Chunks& chunks) {
  std::string out("\x89PNG\r\n\x1a\n", 8);
  for (const auto& [type, data] : chunks) out += ChunkBytes(type, data);
  return out + ChunkBytes("IEND", "");
}

std::string Without(std::string file, const std::string& type) {
  const std::string chunk = ChunkBytes(type, ChunksOf(file, type).at(0));
  return file.erase(file.find(chunk), chunk.size());
}

// A 4x3 8-bit picture of colour type 0, 2, 3 (two entries) or 6 with `extra`
// chunks before the chunk `before`, and `data` as its image data if not empty.
std::string Made(int type, const Chunks& extra = {}, const char* before = "IDAT", std::string data = "") {
  if (data.empty()) data = Zlib(Rows(3, type == 6 ? 16 : type == 2 ? 12 : 4));
  std::string file =
      PngFile({{"IHDR", Header(4, 8, type)}, {"PLTE", "\x10\x20\x30\x40\x50\x60"}, {"IDAT", data}});
  for (const auto& [chunk, bytes] : extra) file = Insert(file, ChunkBytes(chunk, bytes), before);
  return type == 3 ? file : Without(file, "PLTE");
}

TEST(PngRefusal, WhatLibpngRefusesTheReaderRefusesWithTheReason) {
  std::string bad_crc = Made(2);
  bad_crc[bad_crc.size() - 13] ^= 1;  // IDAT's CRC
  const std::string gamma = Be(45455), scale("\0011.5\0002.5", 8), data = Zlib(Rows(3, 12));
  const auto split_by = [&](const char* type) {  // IDAT split by another chunk
    return PngFile(
        {{"IHDR", Header(4, 8, 2)}, {"IDAT", data.substr(0, 5)}, {type, "x"}, {"IDAT", data.substr(5)}});
  };
  const struct {
    std::string file;
    const char* reason;          // in the reader's message
    bool libpng_silent = false;  // broken by the PNG standard, though libpng 1.6 reads it without a word
  } kBroken[] = {
      {Made(0, {{"tRNS", "abc"}}), "tRNS chunk does not fit"},  // 3 bytes in grey
      {Made(2, {{"tRNS", "ab"}}), "tRNS chunk does not fit"},   // 2 bytes in RGB
      {Made(3, {{"tRNS", "abc"}}), "tRNS chunk does not fit"},  // longer than the palette
      {Made(6, {{"tRNS", "ab"}}), "tRNS chunk does not fit"},   // with alpha
      {Made(3, {{"tRNS", "a"}}, "PLTE"), "before its palette"},
      // libpng shows such pixels black; its index check (png_set_check_for_invalid_index) stays silent.
      {Made(3, {}, "IEND", Zlib(Rows(3, 4).replace(3, 1, "\x05"))), "beyond its 2-entry palette", true},
      {Made(2, {{"IHDR", Header(4, 8, 2)}}), "second header"},
      {split_by("tEXt"), "split by another chunk"},
      {split_by("prVt"), "split by another chunk"},
      {Insert(Made(2), ChunkBytes("tEXt", "a"), "IHDR"), "does not start with a header"},
      {bad_crc, "fails its CRC"},
      {Made(2, {{"CRIT", "x"}}), "unknown critical chunk CRIT"},
      {Made(2, {{"tE1t", "x"}}), "not four letters"},
      {Made(2).replace(33, 4, Be(0x80000000u)), "length is out of range"},  // IDAT's length
      {Made(0, {{"PLTE", "abc"}}), "grey image has a palette"},
      {Without(Made(3), "PLTE"), "no palette before its image data"},
      {Made(3, {{"PLTE", "abc"}}), "second palette"},
      {Made(2, {{"PLTE", "abc"}}, "IEND"), "palette (PLTE) follows its image data"},
      {Made(2, {{"PLTE", "abcd"}}), "malformed"},
      {Without(Made(2), "IDAT"), "no image data"},
      {Without(Made(2), "IEND"), "ends inside"},
      {Without(Made(2), "IEND") + ChunkBytes("IEND", "x"), "IEND chunk is not empty"},
      {Made(2, {}, "IEND", Zlib(Rows(2, 12))), "ends early"},
      {Made(2, {}, "IEND", Zlib(Rows(4, 12))), "more image data"},
      {Made(2, {}, "IEND", "\x78\x9c\xff\xff\xff\xff"), "corrupt"},
      {Made(2, {}, "IEND", Zlib(Rows(3, 12, 5))), "unknown row filter"},
      // Depth 3, width 0.
      {PngFile({{"IHDR", Header(4, 3, 0)}, {"IDAT", Zlib(Rows(3, 2))}}), "not a valid PNG header"},
      {PngFile({{"IHDR", Header(0, 8, 0)}, {"IDAT", Zlib(Rows(3, 0))}}), "not a valid PNG header"},
      {Made(2, {{"bKGD", "ab"}}), "bKGD chunk does not fit"},
      {Made(3, {{"bKGD", "\x02"}}), "bKGD chunk does not fit"},
      {Made(2, {{"sBIT", std::string("\x08\x00\x08", 3)}}), "sBIT chunk does not fit"},
      {Made(3, {{"hIST", "ab"}}), "hIST chunk does not fit"},
      {Made(2, {{"gAMA", "abc"}}), "gAMA chunk does not fit"},
      {Made(3, {{"gAMA", gamma}}), "gAMA chunk follows its palette"},
      {Made(2, {{"pHYs", std::string(9, '\1')}}, "IEND"), "pHYs chunk follows its image data"},
      {Made(2, {{"gAMA", gamma}, {"gAMA", gamma}}), "second gAMA"},
      {Made(2, {{"sCAL", scale}, {"sCAL", scale}}), "second sCAL"},
      {Made(2, {{"tEXt", "a" + std::string(8000001, '\0')}}), "larger than libpng"},
  };
  for (const auto& broken : kBroken) {
    const Reading libpng = ReadWithLibpng(broken.file);
    EXPECT_NE(libpng.objects(), broken.libpng_silent) << broken.reason << ": libpng " << libpng.objection();
    cinebar_tool::Frame frame;
    try {
      cinebar_tool::ReadPng(ReadFrom(broken.file).get(), "broken.png", frame);
      ADD_FAILURE() << broken.reason << ": read (libpng: " << libpng.objection() << ")";
    } catch (const cinebar_tool::ToolError& e) {
      EXPECT_EQ(e.code(), cinebar_tool::kExitInput) << broken.reason;
      EXPECT_NE(std::string(e.what()).find(broken.reason), std::string::npos) << e.what();
      EXPECT_NE(std::string(e.what()).find("broken.png"), std::string::npos) << e.what();
    }
  }
}

// The chunk table walked: every ancillary chunk it names (and an unknown one
// safe to copy and one not), valid in an input of one form, read and carried
// into an output of the same form or another, written, and judged by libpng.

// Changes of form: the input's depth and colour type, the output's channels. RGB and grey kept; grey
// gaining alpha, turning RGB or RGBA; RGB gaining alpha; a palette read as RGB; 2-bit grey read as 8-bit
// grey or turning RGB.
struct Change {
  int depth, color_type, channels;
};
const Change kChanges[] = {{8, 2, 3}, {16, 0, 1}, {8, 0, 2}, {16, 0, 3}, {8, 0, 4},
                           {8, 2, 4}, {8, 3, 3},  {2, 0, 1}, {2, 0, 3}};

// Valid data of a chunk type in a picture; empty where the type has no place in its form.
std::string ValidData(const std::string& type, const Picture& p) {
  const bool palette = p.color_type == 3, color = p.color_type & 2;
  const unsigned top = (1u << p.depth) - 1;
  std::string chromaticities;
  for (const int v : {31270, 32900, 64000, 33000, 30000, 60000, 15000, 6000}) chromaticities += Be(v);
  // A minimal 132-byte profile of the picture's colour space; libpng reads 81 bytes of keyword
  // before it in iCCP: a shorter chunk is "too short" to it.
  const std::string profile = Be(132) + Be(0) + Be(0x02100000) + "mntr" + (color ? "RGB " : "GRAY") + "XYZ " +
                              std::string(12, '\0') + "acsp" + std::string(28, '\0') + Be(0xF6D6) +
                              Be(0x10000) + Be(0xD32D) + std::string(52, '\0');
  const std::vector<std::pair<const char*, std::string>> data = {
      {"cHRM", chromaticities},
      {"gAMA", Be(45455)},
      {"iCCP", std::string(70, 'k') + std::string(2, '\0') + Zlib(profile)},
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
      {"prVT", "private, not safe to copy"}};
  for (const auto& [name, bytes] : data)
    if (type == name && (type != "hIST" || palette)) return bytes;
  return "";  // tRNS: read as alpha, never carried
}

// One rule in one change: the output is valid to libpng; the chunk is written
// once or named dropped, never both; copied as it was, or converted to the
// same background colour. True when the chunk has a place in the input's form.
bool Walk(const std::string& type, const cinebar_tool::ChunkRule& rule, const Change& change) {
  SCOPED_TRACE(::testing::Message() << type << " from " << change.depth << "-bit type " << change.color_type
                                    << " to " << change.channels << " channels");
  const Picture picture = Pattern(5, 4, change.color_type, change.depth);
  const std::string data = ValidData(type, picture);
  if (data.empty()) return false;
  const std::string input =
      Insert(WriteWithLibpng(picture), ChunkBytes(type, data),
             rule.place == cinebar_tool::Place::kBeforePalette && change.color_type == 3 ? "PLTE" : "IDAT");
  const Reading in_libpng = ReadWithLibpng(input);
  EXPECT_FALSE(in_libpng.objects()) << "the input is not valid: " << in_libpng.objection();
  cinebar_tool::Frame in, out;
  EXPECT_TRUE(cinebar_tool::ReadPng(ReadFrom(input).get(), "in.png", in));
  out.Resize(in.width, in.height, change.channels, in.deep);
  cinebar_tool::CarryChunks(in, out);
  const File file(std::tmpfile(), &std::fclose);
  EXPECT_EQ(cinebar_tool::WriteFrame(file.get(), out, {1}), "");
  const std::string output = Contents(file.get());
  const Reading out_libpng = ReadWithLibpng(output);
  EXPECT_FALSE(out_libpng.objects()) << out_libpng.objection();
  const bool written = ChunksOf(output, type).size() == 1;
  EXPECT_NE(written, std::count(out.dropped.begin(), out.dropped.end(), type) == 1);
  const auto carry =
      cinebar_tool::PngForm{change.depth, change.color_type, 0} == out.form() ? rule.kept : rule.changed;
  EXPECT_TRUE(carry == cinebar_tool::Carry::kConvert || written == (carry == cinebar_tool::Carry::kCopy));
  EXPECT_TRUE(carry != cinebar_tool::Carry::kCopy || !written || ChunksOf(output, type)[0] == data);
  if (type == "bKGD" && written) {  // the same colour, at 8 bits where the input was lower
    std::vector<unsigned> expected = in_libpng.background;
    for (unsigned& value : expected) value *= change.depth < 8 ? 255 / ((1 << change.depth) - 1) : 1;
    expected.resize(out.color() ? 3 : 1, unsigned{expected.at(0)});  // grey spread
    EXPECT_EQ(out_libpng.background, expected);
  }
  // What the chunk's purpose demands, whatever the table says: a background survives every change here,
  // a profile never crosses from grey to colour, what describes the old samples or the old file never
  // survives, text does.
  EXPECT_TRUE(type != "iCCP" || written == ((change.color_type & 2) || !out.color()));
  EXPECT_TRUE(std::string("bKGD tEXt gAMA pHYs prVt").find(type) == std::string::npos || written);
  EXPECT_TRUE(std::string("tIME sBIT hIST prVT").find(type) == std::string::npos || !written);
  return true;
}

TEST(PngChunks, EveryRuleInEveryChangeOfForm) {
  std::vector<std::pair<std::string, cinebar_tool::ChunkRule>> rules;
  for (const auto& rule : cinebar_tool::KnownChunkRules()) rules.emplace_back(rule.type, rule);
  for (const char* unknown : {"prVt", "prVT"}) rules.emplace_back(unknown, cinebar_tool::RuleOf(unknown));
  int walked = 0;
  for (const auto& [type, rule] : rules)
    for (const Change& change : kChanges) walked += Walk(type, rule, change);
  EXPECT_EQ(walked, 18 * 9 + 1) << "every rule but tRNS in every change, hIST in the palette's";
}

}  // namespace
}  // namespace cinebar_png_test
