// Ancillary chunks: which are read, where they may stand, and which stay true
// of an output whose form (depth, colour type) is the input's or differs from
// it. One table decides all of it.
#pragma once

#include <string>
#include <vector>

#include "tools/cinebar/png/png_form.h"

namespace cinebar_tool {

struct Chunk {
  std::string type, data;
};

// What becomes of a chunk in an output of the same or another form.
enum class Carry { kCopy, kConvert, kDrop };

// Where a chunk may stand: anywhere, before PLTE (and image data), before the image data.
enum class Place { kAnywhere, kBeforePalette, kBeforeData };

struct ChunkRule {
  const char* type;
  Carry kept, changed;  // the form kept; the form changed
  Place place;
  bool once;                                                   // at most one in a file
  bool (*fits)(const std::string& data, const PngForm& form);  // nullptr: any data
};

// The rule of an ancillary chunk type; unknown types get the rule their
// safe-to-copy bit gives them (copied either way when set, dropped when not).
ChunkRule RuleOf(const std::string& type);
const std::vector<ChunkRule>& KnownChunkRules();

// The chunks of a picture of form `from` that stay true of one of form `to`
// drawn from it (a palette of `palette` RGB triples where `from` has one):
// copied, converted or dropped by their rule. Dropped types are added to
// `dropped` once each.
std::vector<Chunk> CarryChunks(const std::vector<Chunk>& chunks, const PngForm& from,
                               const std::string& palette, const PngForm& to,
                               std::vector<std::string>& dropped);

}  // namespace cinebar_tool
