// Broken files, each fed to libpng and to the reader: libpng refuses or
// objects to every one (but where noted), and the reader refuses it, saying
// why. Valid files of every form and chunk are read in png_codec_test.cpp,
// png_chunks_test.cpp and random_sequence_test.cpp.
#include <gtest/gtest.h>

#include "png_oracle.h"
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

std::string File(const Chunks& chunks) {
  std::string out("\x89PNG\r\n\x1a\n", 8);
  for (const auto& [type, data] : chunks) out += ChunkBytes(type, data);
  return out;
}

// A 4x3 8-bit picture of colour type 0, 2, 3 (two entries) or 6 with `data`
// as its image data, and `extra` chunks after IHDR, before IDAT or at the end.
enum Where { kAfterHeader, kBeforeData, kAtEnd };
std::string Picture(int type, const Chunks& extra = {}, Where where = kBeforeData, std::string data = "") {
  if (data.empty()) data = Zlib(Rows(3, type == 6 ? 16 : type == 2 ? 12 : 4));
  Chunks chunks{{"IHDR", Header(4, 8, type)}};
  if (where == kAfterHeader) chunks.insert(chunks.end(), extra.begin(), extra.end());
  if (type == 3) chunks.push_back({"PLTE", "\x10\x20\x30\x40\x50\x60"});
  if (where == kBeforeData) chunks.insert(chunks.end(), extra.begin(), extra.end());
  chunks.push_back({"IDAT", data});
  if (where == kAtEnd) chunks.insert(chunks.end(), extra.begin(), extra.end());
  return File(chunks) + ChunkBytes("IEND", "");
}

std::string Without(std::string file, const std::string& type) {
  const std::string chunk = ChunkBytes(type, ChunksOf(file, type).at(0));
  return file.erase(file.find(chunk), chunk.size());
}

std::string IdatSplitBy(const std::string& middle) {
  const std::string data = Zlib(Rows(3, 12));
  return File({{"IHDR", Header(4, 8, 2)},
               {"IDAT", data.substr(0, 5)},
               {middle, "x"},
               {"IDAT", data.substr(5)},
               {"IEND", ""}});
}

struct Broken {
  const char* what;
  std::string file;
  const char* reason;          // in the reader's message
  bool libpng_silent = false;  // broken by the PNG standard, though libpng 1.6 reads it without a word
};

std::vector<Broken> BrokenFiles() {
  std::string bad_crc = Picture(2), huge_length = Picture(2);
  bad_crc[bad_crc.size() - 13] ^= 1;            // IDAT's CRC
  huge_length.replace(33, 4, Be(0x80000000u));  // IDAT's length
  const std::string gamma = Be(45455), scale("\0011.5\0002.5", 8);
  return {
      {"tRNS of 3 bytes in grey", Picture(0, {{"tRNS", "abc"}}), "tRNS chunk does not fit"},
      {"tRNS of 2 bytes in RGB", Picture(2, {{"tRNS", "ab"}}), "tRNS chunk does not fit"},
      {"tRNS longer than the palette", Picture(3, {{"tRNS", "abc"}}), "tRNS chunk does not fit"},
      {"tRNS in an image with alpha", Picture(6, {{"tRNS", "ab"}}), "tRNS chunk does not fit"},
      {"tRNS before the palette", Picture(3, {{"tRNS", "a"}}, kAfterHeader), "before its palette"},
      // libpng shows such pixels black; its index check (png_set_check_for_invalid_index) stays silent.
      {"palette index beyond the palette", Picture(3, {}, kAtEnd, Zlib(Rows(3, 4).replace(3, 1, "\x05"))),
       "beyond its 2-entry palette", true},
      {"IHDR twice", Picture(2, {{"IHDR", Header(4, 8, 2)}}), "second header"},
      {"IDAT split by tEXt", IdatSplitBy("tEXt"), "split by another chunk"},
      {"IDAT split by an unknown chunk", IdatSplitBy("prVt"), "split by another chunk"},
      {"tEXt before IHDR", File({{"tEXt", "a"}}) + Picture(2).substr(8), "does not start with a header"},
      {"IDAT CRC wrong", bad_crc, "fails its CRC"},
      {"unknown critical chunk", Picture(2, {{"CRIT", "x"}}), "unknown critical chunk CRIT"},
      {"chunk type not letters", Picture(2, {{"tE1t", "x"}}), "not four letters"},
      {"chunk length beyond 2^31-1", huge_length, "length is out of range"},
      {"PLTE in a grey image", Picture(0, {{"PLTE", "abc"}}), "grey image has a palette"},
      {"palette image without PLTE", Without(Picture(3), "PLTE"), "no palette before its image data"},
      {"PLTE twice", Picture(3, {{"PLTE", "abc"}}), "second palette"},
      {"PLTE after IDAT", Picture(2, {{"PLTE", "abc"}}, kAtEnd), "palette (PLTE) follows its image data"},
      {"PLTE of 4 bytes", Picture(2, {{"PLTE", "abcd"}}), "malformed"},
      {"no IDAT", Without(Picture(2), "IDAT"), "no image data"},
      {"no IEND", Without(Picture(2), "IEND"), "ends inside"},
      {"IEND with data", Without(Picture(2), "IEND") + ChunkBytes("IEND", "x"), "IEND chunk is not empty"},
      {"image data a row short", Picture(2, {}, kAtEnd, Zlib(Rows(2, 12))), "ends early"},
      {"image data a row long", Picture(2, {}, kAtEnd, Zlib(Rows(4, 12))), "more image data"},
      {"image data corrupt", Picture(2, {}, kAtEnd, "\x78\x9c\xff\xff\xff\xff"), "corrupt"},
      {"unknown row filter", Picture(2, {}, kAtEnd, Zlib(Rows(3, 12, 5))), "unknown row filter"},
      {"bit depth 3", File({{"IHDR", Header(4, 3, 0)}, {"IDAT", Zlib(Rows(3, 2))}}),
       "not a valid PNG header"},
      {"width 0", File({{"IHDR", Header(0, 8, 0)}, {"IDAT", Zlib(Rows(3, 0))}}), "not a valid PNG header"},
      {"bKGD of 2 bytes in RGB", Picture(2, {{"bKGD", "ab"}}), "bKGD chunk does not fit"},
      {"bKGD index beyond the palette", Picture(3, {{"bKGD", "\x02"}}), "bKGD chunk does not fit"},
      {"sBIT of 0 bits", Picture(2, {{"sBIT", std::string("\x08\x00\x08", 3)}}), "sBIT chunk does not fit"},
      {"hIST not one count per entry", Picture(3, {{"hIST", "ab"}}), "hIST chunk does not fit"},
      {"gAMA of 3 bytes", Picture(2, {{"gAMA", "abc"}}), "gAMA chunk does not fit"},
      {"gAMA after PLTE", Picture(3, {{"gAMA", gamma}}), "gAMA chunk follows its palette"},
      {"pHYs after IDAT", Picture(2, {{"pHYs", std::string(9, '\1')}}, kAtEnd),
       "pHYs chunk follows its image data"},
      {"gAMA twice", Picture(2, {{"gAMA", gamma}, {"gAMA", gamma}}), "second gAMA"},
      {"sCAL twice", Picture(2, {{"sCAL", scale}, {"sCAL", scale}}), "second sCAL"},
      {"tEXt over 8000000 bytes", Picture(2, {{"tEXt", "a" + std::string(8000001, '\0')}}),
       "larger than libpng"},
  };
}

TEST(PngRefusal, WhatLibpngRefusesTheReaderRefusesWithTheReason) {
  for (const Broken& broken : BrokenFiles()) {
    const Reading libpng = ReadWithLibpng(broken.file);
    EXPECT_NE(libpng.objects(), broken.libpng_silent) << broken.what << ": libpng " << libpng.objection();
    cinebar_tool::Frame frame;
    try {
      cinebar_tool::ReadPng(ReadFrom(broken.file).get(), "broken.png", frame);
      ADD_FAILURE() << broken.what << ": read (libpng: " << libpng.objection() << ")";
    } catch (const cinebar_tool::ToolError& e) {
      EXPECT_EQ(e.code(), cinebar_tool::kExitInput) << broken.what;
      EXPECT_NE(std::string(e.what()).find(broken.reason), std::string::npos)
          << broken.what << ": " << e.what();
      EXPECT_NE(std::string(e.what()).find("broken.png"), std::string::npos) << e.what();
    }
  }
}

}  // namespace
}  // namespace cinebar_png_test
