// Pictures the demo makes without any input: a test chart, text in a tiny
// built-in 5x7 bitmap font, thumbnails and a labelled contact sheet.
#pragma once

#include <string>
#include <vector>

#include "tools/cinebar/frame.h"

namespace cinebar_tool {

struct Rgb {
  int r, g, b;
};

// Draws text (upper-cased; characters without a glyph are blank) with its
// top-left corner at (x, y), each font pixel `scale` pixels square. Returns
// the width drawn. Pixels outside the image are skipped.
int DrawText(Frame& image, int x, int y, const std::string& text, int scale, Rgb color);
int TextWidth(const std::string& text, int scale);
constexpr int kGlyphHeight = 7;

// An opaque 8-bit RGB chart: colour bars, a grey ramp, a grid every 120 pixels
// with its coordinates written along the edges, a centre cross and circle.
Frame MakeTestChart(int width, int height);

// An 8-bit frame shrunk by a whole factor (box average of each factor x
// factor block), its channels kept.
Frame Shrink(const Frame& image, int factor);

struct Tile {
  Frame picture;      // a thumbnail
  std::string label;  // written under it
};

// An opaque 8-bit RGB sheet: tiles in rows of `columns`, each over a checkerboard
// so transparent pixels show, with its label underneath.
Frame MakeContactSheet(const std::vector<Tile>& tiles, int columns, const std::string& title);

}  // namespace cinebar_tool
