// The chunk table walked: every ancillary chunk libpng knows, in an input of
// one form and an output of the same or another, read and written by the PNG
// unit and judged by libpng on the output.
#include "tools/cinebar/png/png_chunks.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

#include "png_oracle.h"
#include "tools/cinebar/frame.h"
#include "tools/cinebar/png/png_reader.h"

namespace cinebar_png_test {
namespace {

using cinebar_tool::Carry;
using cinebar_tool::Frame;

struct Change {
  const char* what;
  int depth, color_type;  // the input file's form
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

std::string Be(std::uint32_t v, int bytes) {
  std::string out;
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) out += static_cast<char>(v >> shift);
  return out;
}

std::string Deflated(const std::string& text) {
  uLongf size = compressBound(static_cast<uLong>(text.size()));
  std::string out(size, '\0');
  compress(reinterpret_cast<Bytef*>(out.data()), &size, reinterpret_cast<const Bytef*>(text.data()),
           static_cast<uLong>(text.size()));
  out.resize(size);
  return out;
}

// Valid data of a chunk type in an image of the given form; nullopt where the
// type has no place in that form.
std::optional<std::string> ValidData(const std::string& type, const Picture& p) {
  const bool palette = p.color_type == 3, color = (p.color_type & 2) != 0;
  const unsigned top = (1u << p.depth) - 1;
  if (type == "cHRM") {
    std::string d;
    for (const std::uint32_t v : {31270u, 32900u, 64000u, 33000u, 30000u, 60000u, 15000u, 6000u})
      d += Be(v, 4);
    return d;
  }
  if (type == "gAMA") return Be(45455, 4);
  if (type == "iCCP") return IccpData(color ? "RGB " : "GRAY");
  if (type == "sRGB") return std::string(1, '\0');
  if (type == "sBIT")
    return std::string(palette ? 3 : static_cast<std::size_t>(p.channels()),
                       static_cast<char>(palette ? 5 : p.depth));
  if (type == "bKGD")
    return palette ? std::string(1, '\1')
           : color ? Be(top / 3, 2) + Be(top / 2, 2) + Be(top, 2)
                   : Be(top / 3, 2);
  if (type == "hIST")
    return palette ? std::optional<std::string>(std::string(p.palette.size() / 3 * 2, '\1')) : std::nullopt;
  if (type == "pHYs") return Be(2835, 4) + Be(3780, 4) + '\1';
  if (type == "oFFs") return Be(10, 4) + Be(20, 4) + '\0';
  if (type == "pCAL")
    return std::string("cal\0", 4) + Be(0, 4) + Be(255, 4) +
           std::string(
               "\0\2unit\0"
               "0\0"
               "1",
               10);
  if (type == "sCAL")
    return std::string(
        "\1"
        "1.5\0"
        "2.5",
        8);
  if (type == "sPLT") return std::string("pal\0\x08", 5) + std::string("\x10\x20\x30\xff\0\x01", 6);
  if (type == "eXIf") return std::string("MM\0\x2a\0\0\0\x08\0\0", 10);
  if (type == "tIME") return Be(2020, 2) + "\1\2\3\4\5";
  if (type == "tEXt") return std::string("Title\0Hi", 8);
  if (type == "zTXt") return std::string("Title\0\0", 7) + Deflated("Hi");
  if (type == "iTXt") return std::string("Title\0\0\0en\0\0Hi", 14);
  if (type == "prVt" || type == "prVT") return std::string("private");
  return std::nullopt;  // tRNS: read as alpha, not carried
}

Picture Input(const Change& c) {
  Picture p;
  p.width = 5, p.height = 4, p.depth = c.depth, p.color_type = c.color_type;
  if (c.color_type == 3) p.palette = "\x10\x20\x30\x40\x50\x60\x70\x80\x90\xa0\xb0\xc0";
  p.samples.resize(static_cast<std::size_t>(p.width * p.height * p.channels()));
  for (std::size_t i = 0; i < p.samples.size(); ++i)
    p.samples[i] = static_cast<std::uint16_t>(c.color_type == 3 ? i % 4 : i % (1u << c.depth));
  return p;
}

// The frame `in` rendered unchanged into `channels`, carried and written.
std::string Output(const Frame& in, int channels, Frame& out) {
  out.Resize(in.width, in.height, channels, in.deep);
  std::fill(out.samples.begin(), out.samples.end(), std::uint8_t{0x7f});
  cinebar_tool::CarryChunks(in, out);
  char* bytes = nullptr;
  std::size_t size = 0;
  std::FILE* memory = open_memstream(&bytes, &size);
  const std::string why = cinebar_tool::WriteFrame(memory, out, cinebar_tool::WriteSettings{1});
  std::fclose(memory);
  std::string file(bytes, size);
  std::free(bytes);
  EXPECT_EQ(why, "");
  return file;
}

// What the chunk's purpose demands, whatever the table says: a background
// survives every change here, a profile never crosses from grey to colour,
// a time stamp never survives, text always does.
std::optional<bool> Promised(const std::string& type, const Change& c, const Frame& out) {
  const bool grey_in = (c.color_type & 2) == 0;
  if (type == "bKGD") return true;
  if (type == "iCCP") return !(grey_in && out.color());
  if (type == "tIME" || type == "sBIT" || type == "hIST" || type == "prVT") return false;
  if (type == "tEXt" || type == "gAMA" || type == "pHYs" || type == "prVt") return true;
  return std::nullopt;
}

void Walk(const std::string& type, const cinebar_tool::ChunkRule& rule, const Change& change) {
  const std::string what = type + ", " + change.what;
  const Picture picture = Input(change);
  const std::optional<std::string> data = ValidData(type, picture);
  if (!data) return;
  const bool early = rule.place == cinebar_tool::Place::kBeforePalette;
  const std::string input = Insert(WriteWithLibpng(picture), ChunkBytes(type, *data),
                                   early && change.color_type == 3 ? "PLTE" : "IDAT");
  const Reading in_libpng = ReadWithLibpng(input);
  ASSERT_FALSE(in_libpng.objects()) << what << ": the input is not valid: " << in_libpng.error
                                    << (in_libpng.warnings.empty() ? "" : in_libpng.warnings[0]);
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> in_file(
      fmemopen(const_cast<char*>(input.data()), input.size(), "rb"), &std::fclose);
  Frame in, out;
  ASSERT_TRUE(cinebar_tool::ReadPng(in_file.get(), "in.png", in));
  const std::string output = Output(in, change.channels, out);
  const Reading out_libpng = ReadWithLibpng(output);
  EXPECT_FALSE(out_libpng.objects()) << what << ": " << out_libpng.error
                                     << (out_libpng.warnings.empty() ? "" : out_libpng.warnings[0]);
  const std::vector<std::string> written = ChunksOf(output, type);
  const bool dropped = std::count(out.dropped.begin(), out.dropped.end(), type) == 1;
  EXPECT_NE(written.size() == 1, dropped) << what << ": written once or named dropped";
  const cinebar_tool::PngForm from{change.depth, change.color_type, 0};
  const Carry carry = from == out.form() ? rule.kept : rule.changed;
  EXPECT_EQ(written.size() == 1, carry != Carry::kDrop && (carry == Carry::kCopy || !dropped)) << what;
  if (carry == Carry::kCopy && written.size() == 1) {
    EXPECT_EQ(written[0], *data) << what;
  }
  if (type == "bKGD" && written.size() == 1) {  // the same colour, at the output's depth
    const int scale = change.depth < 8 ? 255 / ((1 << change.depth) - 1) : 1;
    for (int c = 0; c < (out.color() ? 3 : 1); ++c)
      EXPECT_EQ(out_libpng.background[c], in_libpng.background[in.color() ? c : 0] * scale) << what;
  }
  if (const std::optional<bool> promised = Promised(type, change, out)) {
    EXPECT_EQ(written.size() == 1, *promised) << what;
  }
}

TEST(PngChunks, EveryRuleInEveryChangeOfForm) {
  std::vector<cinebar_tool::ChunkRule> rules = cinebar_tool::KnownChunkRules();
  for (const char* unknown : {"prVt", "prVT"}) rules.push_back(cinebar_tool::RuleOf(unknown));
  int walked = 0;
  for (std::size_t i = 0; i < rules.size(); ++i) {
    const std::string type = i < cinebar_tool::KnownChunkRules().size()
                                 ? rules[i].type
                                 : (i == rules.size() - 2 ? "prVt" : "prVT");
    for (const Change& change : kChanges) {
      Walk(type, rules[i], change);
      walked += ValidData(type, Input(change)).has_value();
    }
  }
  EXPECT_GT(walked, 120);
}

}  // namespace
}  // namespace cinebar_png_test
