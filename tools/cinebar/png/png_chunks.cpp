#include "tools/cinebar/png/png_chunks.h"

#include <algorithm>
#include <cstdint>

namespace cinebar_tool {
namespace {

template <std::size_t kLength>
bool Length(const std::string& data, const PngForm&) {
  return data.size() == kLength;
}

// A background: a palette index within the palette, a grey or an RGB sample.
bool BackgroundFits(const std::string& data, const PngForm& form) {
  if (form.color_type == kPalette)
    return data.size() == 1 && static_cast<std::uint8_t>(data[0]) < form.palette_entries;
  return data.size() == (form.color() ? 6u : 2u);
}

// Significant bits: one count per sample (RGB for a palette), each 1 to the depth.
bool SignificantBitsFit(const std::string& data, const PngForm& form) {
  const int depth = form.color_type == kPalette ? 8 : form.depth;
  const std::size_t count = form.color_type == kPalette ? 3 : static_cast<std::size_t>(form.samples());
  return data.size() == count && std::all_of(data.begin(), data.end(), [&](char c) {
           return c > 0 && static_cast<std::uint8_t>(c) <= depth;
         });
}

bool HistogramFits(const std::string& data, const PngForm& form) {
  return form.color_type == kPalette && data.size() == 2u * static_cast<std::size_t>(form.palette_entries);
}

// Transparency: one alpha per palette entry at most, or one grey or RGB sample.
bool TransparencyFits(const std::string& data, const PngForm& form) {
  if (form.color_type == kPalette)
    return !data.empty() && data.size() <= static_cast<std::size_t>(form.palette_entries);
  return !form.alpha() && data.size() == (form.color() ? 6u : 2u);
}

using C = Carry;
using P = Place;
// tIME dates a file that is new; sBIT and hIST describe samples and a palette
// the bars change; tRNS becomes the frame's alpha. A background keeps its
// colour in another form when that colour is exact there; a profile stays
// while the output is grey or colour as the input was.
const std::vector<ChunkRule> kRules = {
    {"cHRM", C::kCopy, C::kCopy, P::kBeforePalette, true, Length<32>},
    {"gAMA", C::kCopy, C::kCopy, P::kBeforePalette, true, Length<4>},
    {"iCCP", C::kCopy, C::kConvert, P::kBeforePalette, true, nullptr},
    {"sRGB", C::kCopy, C::kCopy, P::kBeforePalette, true, Length<1>},
    {"sBIT", C::kDrop, C::kDrop, P::kBeforePalette, true, SignificantBitsFit},
    {"bKGD", C::kCopy, C::kConvert, P::kBeforeData, true, BackgroundFits},
    {"hIST", C::kDrop, C::kDrop, P::kBeforeData, true, HistogramFits},
    {"tRNS", C::kDrop, C::kDrop, P::kBeforeData, true, TransparencyFits},
    {"pHYs", C::kCopy, C::kCopy, P::kBeforeData, true, Length<9>},
    {"oFFs", C::kCopy, C::kCopy, P::kBeforeData, true, Length<9>},
    {"pCAL", C::kCopy, C::kCopy, P::kBeforeData, true, nullptr},
    {"sCAL", C::kCopy, C::kCopy, P::kBeforeData, true, nullptr},
    {"sPLT", C::kCopy, C::kCopy, P::kBeforeData, false, nullptr},
    {"eXIf", C::kCopy, C::kCopy, P::kAnywhere, true, nullptr},
    {"tIME", C::kDrop, C::kDrop, P::kAnywhere, true, Length<7>},
    {"tEXt", C::kCopy, C::kCopy, P::kAnywhere, false, nullptr},
    {"zTXt", C::kCopy, C::kCopy, P::kAnywhere, false, nullptr},
    {"iTXt", C::kCopy, C::kCopy, P::kAnywhere, false, nullptr},
};

// A sample of `depth` bits at 8 bits when it is below 8, as the reader widens it.
unsigned Widened(unsigned value, int depth) { return depth < 8 ? value * 255 / ((1u << depth) - 1) : value; }

// The background colour in form `to`, when it is exactly the same colour there.
bool ConvertBackground(std::string& data, const PngForm& from, const std::string& palette,
                       const PngForm& to) {
  const auto byte = [](const std::string& s, std::size_t i) { return static_cast<std::uint8_t>(s[i]); };
  unsigned rgb[3];
  int depth = from.depth < 8 ? 8 : from.depth;
  if (from.color_type == kPalette) {
    const std::size_t index = byte(data, 0);
    if (index * 3 + 3 > palette.size()) return false;
    for (int c = 0; c < 3; ++c) rgb[c] = byte(palette, index * 3 + c);
    depth = 8;
  } else {
    for (int c = 0; c < 3; ++c) {
      const std::size_t at = from.color() ? 2 * c : 0;
      rgb[c] = Widened(unsigned{byte(data, at)} << 8 | byte(data, at + 1), from.depth);
    }
  }
  if (depth != to.depth || (!to.color() && (rgb[0] != rgb[1] || rgb[1] != rgb[2]))) return false;
  data.clear();
  for (int c = 0; c < (to.color() ? 3 : 1); ++c) {
    data += static_cast<char>(rgb[c] >> 8);
    data += static_cast<char>(rgb[c]);
  }
  return true;
}

bool Convert(Chunk& chunk, const PngForm& from, const std::string& palette, const PngForm& to) {
  if (chunk.type == "bKGD") return ConvertBackground(chunk.data, from, palette, to);
  if (chunk.type == "iCCP") return from.color() == to.color();  // a grey profile is never an RGB one
  return false;
}

}  // namespace

const std::vector<ChunkRule>& KnownChunkRules() { return kRules; }

ChunkRule RuleOf(const std::string& type) {
  for (const ChunkRule& rule : kRules)
    if (type == rule.type) return rule;
  const Carry unknown = (type[3] & 0x20) ? Carry::kCopy : Carry::kDrop;  // safe to copy, or not
  return ChunkRule{"", unknown, unknown, Place::kAnywhere, false, nullptr};
}

std::vector<Chunk> CarryChunks(const std::vector<Chunk>& chunks, const PngForm& from,
                               const std::string& palette, const PngForm& to,
                               std::vector<std::string>& dropped) {
  std::vector<Chunk> out;
  out.reserve(chunks.size());
  for (const Chunk& chunk : chunks) {
    const ChunkRule rule = RuleOf(chunk.type);
    const Carry carry = from == to ? rule.kept : rule.changed;
    Chunk copy = chunk;
    if (carry == Carry::kCopy || (carry == Carry::kConvert && Convert(copy, from, palette, to))) {
      out.push_back(std::move(copy));
    } else if (std::find(dropped.begin(), dropped.end(), chunk.type) == dropped.end()) {
      dropped.push_back(chunk.type);
    }
  }
  return out;
}

}  // namespace cinebar_tool
