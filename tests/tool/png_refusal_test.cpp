// Broken files, each fed to libpng and to the reader: every file here is one
// libpng refuses or objects to, and the reader refuses it, saying why.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdio>
#include <functional>
#include <memory>

#include "png_oracle.h"
#include "tools/cinebar/png/png_reader.h"
#include "tools/cinebar/tool_error.h"

namespace cinebar_png_test {
namespace {

using Chunks = std::vector<std::pair<std::string, std::string>>;

std::string Be32(std::uint32_t v) {
  std::string out;
  for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>(v >> shift);
  return out;
}

std::string Header(std::uint32_t width, std::uint32_t height, int depth, int type) {
  return Be32(width) + Be32(height) + static_cast<char>(depth) + static_cast<char>(type) +
         std::string(3, '\0');
}

std::string Zlib(const std::string& raw) {
  uLongf size = compressBound(static_cast<uLong>(raw.size()));
  std::string out(size, '\0');
  compress(reinterpret_cast<Bytef*>(out.data()), &size, reinterpret_cast<const Bytef*>(raw.data()),
           static_cast<uLong>(raw.size()));
  out.resize(size);
  return out;
}

// Rows of `stride` bytes each after filter byte `filter`, values from the row and column.
std::string Rows(int height, std::size_t stride, char filter = 0) {
  std::string raw;
  for (int y = 0; y < height; ++y) {
    raw += filter;
    for (std::size_t x = 0; x < stride; ++x)
      raw += static_cast<char>((x * 7 + static_cast<std::size_t>(y)) % 2);
  }
  return raw;
}

std::string File(const Chunks& chunks) {
  std::string out("\x89PNG\r\n\x1a\n", 8);
  for (const auto& [type, data] : chunks) out += ChunkBytes(type, data);
  return out;
}

// A 4x3 picture: 8-bit RGB, grey or a two-entry palette, with `extra` chunks
// placed by `where` (after IHDR, before IDAT or before IEND).
enum Where { kAfterHeader, kBeforeData, kAtEnd };
std::string Picture(int type, const Chunks& extra = {}, Where where = kBeforeData) {
  const std::size_t stride = type == 2 ? 12 : 4;
  Chunks chunks{{"IHDR", Header(4, 3, 8, type)}};
  const auto add = [&](Where w) {
    if (w == where) chunks.insert(chunks.end(), extra.begin(), extra.end());
  };
  add(kAfterHeader);
  if (type == 3) chunks.push_back({"PLTE", std::string("\x10\x20\x30\x40\x50\x60", 6)});
  add(kBeforeData);
  chunks.push_back({"IDAT", Zlib(Rows(3, stride))});
  add(kAtEnd);
  chunks.push_back({"IEND", ""});
  return File(chunks);
}

std::string Without(std::string file, const std::string& type) {
  const std::string chunk = ChunkBytes(type, ChunksOf(file, type).at(0));
  return file.erase(file.find(chunk), chunk.size());
}

std::string IdatSplitBy(const std::string& middle) {
  const std::string data = Zlib(Rows(3, 12));
  return File({{"IHDR", Header(4, 3, 8, 2)},
               {"IDAT", data.substr(0, 5)},
               {middle, "x"},
               {"IDAT", data.substr(5)},
               {"IEND", ""}});
}

std::string WithImageData(int type, const std::string& idat) {
  Chunks chunks{{"IHDR", Header(4, 3, 8, type)}};
  if (type == 3) chunks.push_back({"PLTE", std::string("\x10\x20\x30\x40\x50\x60", 6)});
  chunks.push_back({"IDAT", idat});
  chunks.push_back({"IEND", ""});
  return File(chunks);
}

struct Broken {
  const char* what;
  std::string file;
  const char* reason;          // in the reader's message
  bool libpng_silent = false;  // broken by the PNG standard, though libpng 1.6 reads it without a word
};

std::vector<Broken> BrokenFiles() {
  std::string bad_crc = Picture(2);
  bad_crc[bad_crc.size() - 13] ^= 1;  // the last byte of IDAT's CRC
  std::string huge_length = Picture(2);
  huge_length.replace(33, 4, Be32(0x80000000u));  // the length of the chunk after IHDR
  const std::string indices = Zlib(Rows(3, 4).replace(3, 1, "\x05"));
  return {
      {"tRNS of 3 bytes in grey", Picture(0, {{"tRNS", "abc"}}), "tRNS chunk does not fit"},
      {"tRNS of 2 bytes in RGB", Picture(2, {{"tRNS", "ab"}}), "tRNS chunk does not fit"},
      {"tRNS longer than the palette", Picture(3, {{"tRNS", "abc"}}), "tRNS chunk does not fit"},
      {"tRNS in an image with alpha",
       WithImageData(6, Zlib(Rows(3, 16))).insert(33, ChunkBytes("tRNS", "ab")), "tRNS chunk does not fit"},
      {"tRNS before the palette", Picture(3, {{"tRNS", "a"}}, kAfterHeader), "before its palette"},
      // libpng shows such pixels black; its index check (png_set_check_for_invalid_index) stays silent.
      {"palette index beyond the palette", WithImageData(3, indices), "beyond its 2-entry palette", true},
      {"IHDR twice", Picture(2, {{"IHDR", Header(4, 3, 8, 2)}}), "second header"},
      {"IDAT split by tEXt", IdatSplitBy("tEXt"), "split by another chunk"},
      {"IDAT split by an unknown chunk", IdatSplitBy("prVt"), "split by another chunk"},
      {"tEXt before IHDR", File({{"tEXt", "a\0b"}}) + Picture(2).substr(8), "does not start with a header"},
      {"IDAT CRC wrong", bad_crc, "fails its CRC"},
      {"unknown critical chunk", Picture(2, {{"CRIT", "x"}}), "unknown critical chunk CRIT"},
      {"chunk type not letters", Picture(2, {{"tE1t", "x"}}), "not four letters"},
      {"chunk length beyond 2^31-1", huge_length, "length is out of range"},
      {"PLTE in a grey image", Picture(0, {{"PLTE", "abc"}}), "grey image has a palette"},
      {"palette image without PLTE", Without(Picture(3), "PLTE"), "no palette before its image data"},
      {"PLTE twice", Picture(3, {{"PLTE", "abc"}}), "second palette"},
      {"PLTE after IDAT", Picture(2, {{"PLTE", "abc"}}, kAtEnd), "palette (PLTE) follows its image data"},
      {"PLTE of 4 bytes",
       Without(Picture(3, {{"PLTE", "abcd"}}, kAfterHeader), "PLTE").insert(33, ChunkBytes("PLTE", "abcd")),
       "malformed"},
      {"no IDAT", Without(Picture(2), "IDAT"), "no image data"},
      {"no IEND", Without(Picture(2), "IEND"), "ends inside"},
      {"IEND with data", Without(Picture(2), "IEND") + ChunkBytes("IEND", "x"), "IEND chunk is not empty"},
      {"image data a row short", WithImageData(2, Zlib(Rows(2, 12))), "ends early"},
      {"image data a row long", WithImageData(2, Zlib(Rows(4, 12))), "more image data"},
      {"image data corrupt", WithImageData(2, "\x78\x9c\xff\xff\xff\xff"), "corrupt"},
      {"unknown row filter", WithImageData(2, Zlib(Rows(3, 12, 5))), "unknown row filter"},
      {"bit depth 3", File({{"IHDR", Header(4, 3, 3, 0)}, {"IDAT", Zlib(Rows(3, 2))}, {"IEND", ""}}),
       "not a valid PNG header"},
      {"width 0", File({{"IHDR", Header(0, 3, 8, 0)}, {"IDAT", Zlib(Rows(3, 0))}, {"IEND", ""}}),
       "not a valid PNG header"},
      {"bKGD of 2 bytes in RGB", Picture(2, {{"bKGD", "ab"}}), "bKGD chunk does not fit"},
      {"bKGD index beyond the palette", Picture(3, {{"bKGD", "\x02"}}), "bKGD chunk does not fit"},
      {"sBIT of 0 bits", Picture(2, {{"sBIT", std::string("\x08\x00\x08", 3)}}, kAfterHeader),
       "sBIT chunk does not fit"},
      {"hIST not one count per entry", Picture(3, {{"hIST", "ab"}}), "hIST chunk does not fit"},
      {"gAMA of 3 bytes", Picture(2, {{"gAMA", "abc"}}), "gAMA chunk does not fit"},
      {"gAMA after PLTE", Picture(3, {{"gAMA", Be32(45455)}}), "gAMA chunk follows its palette"},
      {"pHYs after IDAT", Picture(2, {{"pHYs", std::string(9, '\1')}}, kAtEnd),
       "pHYs chunk follows its image data"},
      {"gAMA twice", Picture(2, {{"gAMA", Be32(45455)}, {"gAMA", Be32(45455)}}), "second gAMA"},
      {"tEXt larger than 8000000 bytes", Picture(2, {{"tEXt", "a" + std::string(8000001, '\0')}}),
       "larger than libpng takes"},
  };
}

TEST(PngRefusal, WhatLibpngRefusesTheReaderRefusesWithTheReason) {
  for (const Broken& broken : BrokenFiles()) {
    const Reading libpng = ReadWithLibpng(broken.file);
    EXPECT_NE(libpng.objects(), broken.libpng_silent) << broken.what << ": libpng " << libpng.error;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> in(
        fmemopen(const_cast<char*>(broken.file.data()), broken.file.size(), "rb"), &std::fclose);
    cinebar_tool::Frame frame;
    try {
      cinebar_tool::ReadPng(in.get(), "broken.png", frame);
      ADD_FAILURE() << broken.what << ": read (libpng: " << libpng.error << ")";
    } catch (const cinebar_tool::ToolError& e) {
      EXPECT_EQ(e.code(), cinebar_tool::kExitInput) << broken.what;
      EXPECT_NE(std::string(e.what()).find(broken.reason), std::string::npos)
          << broken.what << ": " << e.what();
      EXPECT_NE(std::string(e.what()).find("broken.png"), std::string::npos) << e.what();
    }
  }
}

// The pictures the broken files are made from, and chunks in the places they
// belong, are read by both without objection.
TEST(PngRefusal, TheUnbrokenFilesAreReadByBoth) {
  const std::vector<std::pair<const char*, std::string>> good = {
      {"grey", Picture(0)},
      {"RGB", Picture(2)},
      {"palette", Picture(3)},
      {"palette with tRNS and bKGD", Picture(3, {{"tRNS", "a"}, {"bKGD", "\x01"}})},
      {"RGB with gAMA before data", Picture(2, {{"gAMA", Be32(45455)}}, kAfterHeader)},
      {"text after data", Picture(2, {{"tEXt", std::string("a\0b", 3)}}, kAtEnd)},
      {"IDAT in two chunks", File({{"IHDR", Header(4, 3, 8, 2)},
                                   {"IDAT", Zlib(Rows(3, 12)).substr(0, 5)},
                                   {"IDAT", Zlib(Rows(3, 12)).substr(5)},
                                   {"IEND", ""}})},
  };
  for (const auto& [what, file] : good) {
    const Reading libpng = ReadWithLibpng(file);
    EXPECT_FALSE(libpng.objects()) << what << ": " << libpng.error
                                   << (libpng.warnings.empty() ? "" : libpng.warnings[0]);
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> in(
        fmemopen(const_cast<char*>(file.data()), file.size(), "rb"), &std::fclose);
    cinebar_tool::Frame frame;
    EXPECT_NO_THROW(cinebar_tool::ReadPng(in.get(), what, frame)) << what;
    EXPECT_TRUE(frame.samples == libpng.samples) << what;
  }
}

}  // namespace
}  // namespace cinebar_png_test
