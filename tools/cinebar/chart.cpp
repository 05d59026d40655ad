#include "tools/cinebar/chart.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>

namespace cinebar_tool {
namespace {

struct Glyph {
  char c;
  std::uint8_t rows[kGlyphHeight];  // five bits each, the leftmost column in bit 4
};

constexpr Glyph kFont[] = {
    {'0', {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}}, {'1', {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    {'2', {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F}}, {'3', {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E}},
    {'4', {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}}, {'5', {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E}},
    {'6', {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}}, {'7', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08}},
    {'8', {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}}, {'9', {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C}},
    {'A', {0x0E, 0x11, 0x11, 0x11, 0x1F, 0x11, 0x11}}, {'B', {0x1E, 0x11, 0x11, 0x1E, 0x11, 0x11, 0x1E}},
    {'C', {0x0E, 0x11, 0x10, 0x10, 0x10, 0x11, 0x0E}}, {'D', {0x1C, 0x12, 0x11, 0x11, 0x11, 0x12, 0x1C}},
    {'E', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x1F}}, {'F', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x10}},
    {'G', {0x0E, 0x11, 0x10, 0x17, 0x11, 0x11, 0x0F}}, {'H', {0x11, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}},
    {'I', {0x0E, 0x04, 0x04, 0x04, 0x04, 0x04, 0x0E}}, {'J', {0x07, 0x02, 0x02, 0x02, 0x02, 0x12, 0x0C}},
    {'K', {0x11, 0x12, 0x14, 0x18, 0x14, 0x12, 0x11}}, {'L', {0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x1F}},
    {'M', {0x11, 0x1B, 0x15, 0x15, 0x11, 0x11, 0x11}}, {'N', {0x11, 0x11, 0x19, 0x15, 0x13, 0x11, 0x11}},
    {'O', {0x0E, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}}, {'P', {0x1E, 0x11, 0x11, 0x1E, 0x10, 0x10, 0x10}},
    {'Q', {0x0E, 0x11, 0x11, 0x11, 0x15, 0x12, 0x0D}}, {'R', {0x1E, 0x11, 0x11, 0x1E, 0x14, 0x12, 0x11}},
    {'S', {0x0F, 0x10, 0x10, 0x0E, 0x01, 0x01, 0x1E}}, {'T', {0x1F, 0x04, 0x04, 0x04, 0x04, 0x04, 0x04}},
    {'U', {0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}}, {'V', {0x11, 0x11, 0x11, 0x11, 0x11, 0x0A, 0x04}},
    {'W', {0x11, 0x11, 0x11, 0x15, 0x15, 0x15, 0x0A}}, {'X', {0x11, 0x11, 0x0A, 0x04, 0x0A, 0x11, 0x11}},
    {'Y', {0x11, 0x11, 0x11, 0x0A, 0x04, 0x04, 0x04}}, {'Z', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x10, 0x1F}},
    {':', {0x00, 0x0C, 0x0C, 0x00, 0x0C, 0x0C, 0x00}}, {'.', {0x00, 0x00, 0x00, 0x00, 0x00, 0x0C, 0x0C}},
    {'(', {0x02, 0x04, 0x08, 0x08, 0x08, 0x04, 0x02}}, {')', {0x08, 0x04, 0x02, 0x02, 0x02, 0x04, 0x08}},
    {'-', {0x00, 0x00, 0x00, 0x1F, 0x00, 0x00, 0x00}}, {'/', {0x00, 0x01, 0x02, 0x04, 0x08, 0x10, 0x00}},
    {'#', {0x0A, 0x0A, 0x1F, 0x0A, 0x1F, 0x0A, 0x0A}}, {',', {0x00, 0x00, 0x00, 0x00, 0x0C, 0x04, 0x08}},
};

const Glyph* Find(char c) {
  const char upper = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  for (const Glyph& g : kFont) {
    if (g.c == upper) return &g;
  }
  return nullptr;
}

std::uint8_t* At(const Frame& image, int x, int y) {
  return const_cast<std::uint8_t*>(image.row(y)) + static_cast<std::size_t>(x) * image.pixel_bytes();
}

void Put(Frame& image, int x, int y, Rgb c) {
  if (x < 0 || y < 0 || x >= image.width || y >= image.height) return;
  std::uint8_t* p = At(image, x, y);
  p[0] = static_cast<std::uint8_t>(c.r);
  p[1] = static_cast<std::uint8_t>(c.g);
  p[2] = static_cast<std::uint8_t>(c.b);
}

Frame Opaque(int width, int height) {
  Frame frame;
  frame.Resize(width, height, 3, false);
  return frame;
}

void Box(Frame& image, int x0, int y0, int x1, int y1, Rgb c) {
  for (int y = std::max(y0, 0); y < std::min(y1, image.height); ++y) {
    for (int x = std::max(x0, 0); x < std::min(x1, image.width); ++x) Put(image, x, y, c);
  }
}

constexpr int kAdvance = 6;  // glyph width 5 plus one column of space

}  // namespace

int TextWidth(const std::string& text, int scale) {
  return text.empty() ? 0 : (static_cast<int>(text.size()) * kAdvance - 1) * scale;
}

int DrawText(Frame& image, int x, int y, const std::string& text, int scale, Rgb color) {
  int pen = x;
  for (char c : text) {
    if (const Glyph* g = Find(c)) {
      for (int row = 0; row < kGlyphHeight; ++row) {
        for (int col = 0; col < 5; ++col) {
          if ((g->rows[row] >> (4 - col)) & 1)
            Box(image, pen + col * scale, y + row * scale, pen + (col + 1) * scale, y + (row + 1) * scale,
                color);
        }
      }
    }
    pen += kAdvance * scale;
  }
  return TextWidth(text, scale);
}

Frame MakeTestChart(int width, int height) {
  Frame chart = Opaque(width, height);
  Box(chart, 0, 0, width, height, Rgb{48, 52, 60});
  // Colour bars in the middle half, a grey ramp below them.
  const Rgb bars[] = {{235, 235, 235}, {235, 235, 16}, {16, 235, 235}, {16, 235, 16},
                      {235, 16, 235},  {235, 16, 16},  {16, 16, 235}};
  const int bar_top = height / 4, bar_bottom = height * 5 / 8, ramp_bottom = height * 3 / 4;
  const int left = width / 8, right = width - width / 8;
  for (int i = 0; i < 7; ++i)
    Box(chart, left + (right - left) * i / 7, bar_top, left + (right - left) * (i + 1) / 7, bar_bottom,
        bars[i]);
  for (int x = left; x < right; ++x) {
    const int v = 255 * (x - left) / std::max(right - left - 1, 1);
    Box(chart, x, bar_bottom, x + 1, ramp_bottom, Rgb{v, v, v});
  }
  // Grid with coordinates, so a bar's edge can be read off the picture.
  const Rgb grid{150, 150, 150};
  for (int x = 0; x < width; x += 120) {
    Box(chart, x, 0, x + 2, height, grid);
    if (x > 0) {
      DrawText(chart, x + 6, 6, std::to_string(x), 2, grid);
      DrawText(chart, x + 6, height - 6 - kGlyphHeight * 2, std::to_string(x), 2, grid);
    }
  }
  for (int y = 0; y < height; y += 120) {
    Box(chart, 0, y, width, y + 2, grid);
    if (y > 0) {
      DrawText(chart, 6, y + 6, std::to_string(y), 2, grid);
      DrawText(chart, width - 6 - TextWidth(std::to_string(y), 2), y + 6, std::to_string(y), 2, grid);
    }
  }
  // Centre cross and a circle: a circle that is round on screen shows the pixel aspect is right.
  const int cx = width / 2, cy = height / 2, radius = height * 3 / 8;
  const Rgb white{255, 255, 255};
  Box(chart, cx - 40, cy - 2, cx + 40, cy + 2, white);
  Box(chart, cx - 2, cy - 40, cx + 2, cy + 40, white);
  for (int y = cy - radius - 3; y <= cy + radius + 3; ++y) {
    for (int x = cx - radius - 3; x <= cx + radius + 3; ++x) {
      const long d2 = long(x - cx) * (x - cx) + long(y - cy) * (y - cy);
      if (d2 >= long(radius - 2) * (radius - 2) && d2 <= long(radius + 2) * (radius + 2))
        Put(chart, x, y, white);
    }
  }
  const std::string title = "CINEBAR TEST CHART " + std::to_string(width) + "X" + std::to_string(height);
  DrawText(chart, cx - TextWidth(title, 4) / 2, bar_top - 60, title, 4, white);
  return chart;
}

Frame Shrink(const Frame& image, int factor) {
  factor = std::max(factor, 1);
  Frame small;
  small.Resize(image.width / factor, image.height / factor, image.channels, false);
  const std::uint32_t area = static_cast<std::uint32_t>(factor * factor);
  for (int y = 0; y < small.height; ++y) {
    for (int x = 0; x < small.width; ++x) {
      std::uint32_t sum[4] = {0, 0, 0, 0};
      for (int dy = 0; dy < factor; ++dy) {
        for (int dx = 0; dx < factor; ++dx) {
          const std::uint8_t* p = At(image, x * factor + dx, y * factor + dy);
          for (int c = 0; c < image.channels; ++c) sum[c] += p[c];
        }
      }
      for (int c = 0; c < image.channels; ++c)
        At(small, x, y)[c] = static_cast<std::uint8_t>((sum[c] + area / 2) / area);
    }
  }
  return small;
}

Frame MakeContactSheet(const std::vector<Tile>& tiles, int columns, const std::string& title) {
  const int margin = 24, label_height = kGlyphHeight * 2 + 12, title_height = kGlyphHeight * 3 + 2 * margin;
  int cell_w = 0, cell_h = 0;
  for (const Tile& t : tiles) {
    cell_w = std::max(cell_w, t.picture.width);
    cell_h = std::max(cell_h, t.picture.height);
  }
  columns = std::max(columns, 1);
  const int rows = (static_cast<int>(tiles.size()) + columns - 1) / columns;
  Frame sheet =
      Opaque(margin + columns * (cell_w + margin), title_height + rows * (cell_h + label_height + margin));
  Box(sheet, 0, 0, sheet.width, sheet.height, Rgb{28, 28, 32});
  DrawText(sheet, margin, margin, title, 3, Rgb{240, 240, 240});
  for (std::size_t i = 0; i < tiles.size(); ++i) {
    const Frame& pic = tiles[i].picture;
    const int x0 = margin + static_cast<int>(i % static_cast<std::size_t>(columns)) * (cell_w + margin);
    const int y0 = title_height +
                   static_cast<int>(i / static_cast<std::size_t>(columns)) * (cell_h + label_height + margin);
    for (int y = 0; y < pic.height; ++y) {
      for (int x = 0; x < pic.width; ++x) {
        const std::uint8_t* p = At(pic, x, y);
        const int checker = ((x / 8 + y / 8) % 2) ? 96 : 160;
        const int alpha = pic.alpha() ? p[pic.channels - 1] : 255;
        int out[3];
        for (int c = 0; c < 3; ++c) out[c] = (p[pic.color() ? c : 0] * alpha + checker * (255 - alpha)) / 255;
        Put(sheet, x0 + x, y0 + y, Rgb{out[0], out[1], out[2]});
      }
    }
    DrawText(sheet, x0, y0 + pic.height + 8, tiles[i].label, 2, Rgb{220, 220, 220});
  }
  return sheet;
}

}  // namespace cinebar_tool
