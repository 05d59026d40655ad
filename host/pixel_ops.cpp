#include "host/pixel_ops.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "hostapi/ae_constants.h"

namespace cinebar_simhost {
namespace {

struct Span {
  std::int64_t left, top, right, bottom;
};

Span WholeOf(const PF_LayerDef& world) { return Span{0, 0, world.width, world.height}; }
Span SpanOf(const PF_Rect& r) { return Span{r.left, r.top, r.right, r.bottom}; }

PixelProblem CheckWorld(const PF_LayerDef* world, bool want_deep, const char* what) {
  const std::string name(what);
  if (world == nullptr) return name + ": null world";
  if (world->width < 0 || world->height < 0) return name + ": world with a negative size";
  const bool deep = (world->world_flags & PF_WorldFlag_DEEP) != 0;
  if (deep != want_deep)
    return name +
           (want_deep ? ": 8-bit world where 16-bit was needed" : ": 16-bit world where 8-bit was needed");
  if (world->width == 0 || world->height == 0) return {};
  if (world->data == nullptr) return name + ": world without pixels";
  const std::int64_t bpp = deep ? 8 : 4;
  if (world->rowbytes < std::int64_t{world->width} * bpp) return name + ": rowbytes shorter than a row";
  return {};
}

std::uint8_t* PixelAt(const PF_LayerDef& world, std::int64_t x, std::int64_t y, std::int64_t bpp) {
  return reinterpret_cast<std::uint8_t*>(world.data) + y * world.rowbytes + x * bpp;
}

bool Empty(const PF_Rect& r) { return r.left >= r.right || r.top >= r.bottom; }

void FillAny(const void* color, std::int64_t bpp, const PF_Rect& area, PF_LayerDef& world) {
  // The rectangle's first row is built by doubling (one pixel, two, four, ...);
  // every further row is a copy of it, which runs at memcpy speed.
  const std::size_t row_bytes = static_cast<std::size_t>((area.right - area.left) * bpp);
  std::uint8_t* first = PixelAt(world, area.left, area.top, bpp);
  std::memcpy(first, color, static_cast<std::size_t>(bpp));
  for (std::size_t done = static_cast<std::size_t>(bpp); done < row_bytes;) {
    const std::size_t n = std::min(done, row_bytes - done);
    std::memcpy(first + done, first, n);
    done += n;
  }
  for (std::int64_t y = area.top + 1; y < area.bottom; ++y)
    std::memcpy(PixelAt(world, area.left, y, bpp), first, row_bytes);
}

}  // namespace

PF_Rect FilledArea(const PF_Rect* rect, const PF_LayerDef& world) {
  const Span r = rect ? SpanOf(*rect) : WholeOf(world);
  const PF_Rect area{static_cast<A_long>(std::max<std::int64_t>(r.left, 0)),
                     static_cast<A_long>(std::max<std::int64_t>(r.top, 0)),
                     static_cast<A_long>(std::min<std::int64_t>(r.right, world.width)),
                     static_cast<A_long>(std::min<std::int64_t>(r.bottom, world.height))};
  return Empty(area) ? PF_Rect{0, 0, 0, 0} : area;
}

PF_Rect CopiedArea(const PF_LayerDef& src, const PF_LayerDef& dst, const PF_Rect* src_rect,
                   const PF_Rect* dst_rect) {
  const Span s = src_rect ? SpanOf(*src_rect) : WholeOf(src);
  const Span d = dst_rect ? SpanOf(*dst_rect) : WholeOf(dst);
  const std::int64_t w = s.right - s.left, h = s.bottom - s.top;
  if (w != d.right - d.left || h != d.bottom - d.top || w <= 0 || h <= 0) return PF_Rect{0, 0, 0, 0};
  // Offsets (dx, dy) inside the rectangles whose source and destination both lie in their worlds.
  const std::int64_t dx0 = std::max({std::int64_t{0}, -s.left, -d.left});
  const std::int64_t dx1 = std::min({w, std::int64_t{src.width} - s.left, std::int64_t{dst.width} - d.left});
  const std::int64_t dy0 = std::max({std::int64_t{0}, -s.top, -d.top});
  const std::int64_t dy1 = std::min({h, std::int64_t{src.height} - s.top, std::int64_t{dst.height} - d.top});
  if (dx0 >= dx1 || dy0 >= dy1) return PF_Rect{0, 0, 0, 0};
  return PF_Rect{static_cast<A_long>(d.left + dx0), static_cast<A_long>(d.top + dy0),
                 static_cast<A_long>(d.left + dx1), static_cast<A_long>(d.top + dy1)};
}

PixelProblem FillRect8(const PF_Pixel& color, const PF_Rect* rect, PF_LayerDef& world, bool draw) {
  PixelProblem problem = CheckWorld(&world, false, "fill");
  const PF_Rect area = problem.empty() ? FilledArea(rect, world) : PF_Rect{};
  if (draw && !Empty(area)) FillAny(&color, 4, area, world);
  return problem;
}

PixelProblem FillRect16(const PF_Pixel16& color, const PF_Rect* rect, PF_LayerDef& world, bool draw) {
  PixelProblem problem = CheckWorld(&world, true, "fill16");
  const PF_Rect area = problem.empty() ? FilledArea(rect, world) : PF_Rect{};
  if (draw && !Empty(area)) FillAny(&color, 8, area, world);
  return problem;
}

PixelProblem CopyRect(const PF_LayerDef& src, PF_LayerDef& dst, const PF_Rect* src_rect,
                      const PF_Rect* dst_rect, bool draw) {
  const bool deep = (src.world_flags & PF_WorldFlag_DEEP) != 0;
  PixelProblem problem = CheckWorld(&src, deep, "copy source");
  if (problem.empty()) problem = CheckWorld(&dst, deep, "copy destination");
  if (!problem.empty()) return problem;
  const Span s = src_rect ? SpanOf(*src_rect) : WholeOf(src);
  const Span d = dst_rect ? SpanOf(*dst_rect) : WholeOf(dst);
  if (s.right - s.left != d.right - d.left || s.bottom - s.top != d.bottom - d.top)
    return "copy: source and destination rectangles differ in size";
  const PF_Rect area = CopiedArea(src, dst, src_rect, dst_rect);
  if (!draw || Empty(area)) return {};
  const std::int64_t bpp = deep ? 8 : 4;
  const std::int64_t sx = s.left + (area.left - d.left), sy = s.top + (area.top - d.top);
  const std::int64_t rows = area.bottom - area.top;
  const std::size_t row_bytes = static_cast<std::size_t>((area.right - area.left) * bpp);
  if (src.data != dst.data) {
    // Whole rows of unpadded worlds lie end to end: one copy moves them all.
    if (src.rowbytes == dst.rowbytes && static_cast<std::size_t>(src.rowbytes) == row_bytes) {
      std::memcpy(PixelAt(dst, area.left, area.top, bpp), PixelAt(src, sx, sy, bpp),
                  row_bytes * static_cast<std::size_t>(rows));
      return {};
    }
    for (std::int64_t y = 0; y < rows; ++y)
      std::memcpy(PixelAt(dst, area.left, area.top + y, bpp), PixelAt(src, sx, sy + y, bpp), row_bytes);
    return {};
  }
  // Within one world the rows are staged first, so every pixel read is an original one.
  std::vector<std::uint8_t> staged(row_bytes * static_cast<std::size_t>(rows));
  for (std::int64_t y = 0; y < rows; ++y)
    std::memcpy(&staged[static_cast<std::size_t>(y) * row_bytes], PixelAt(src, sx, sy + y, bpp), row_bytes);
  for (std::int64_t y = 0; y < rows; ++y)
    std::memcpy(PixelAt(dst, area.left, area.top + y, bpp), &staged[static_cast<std::size_t>(y) * row_bytes],
                row_bytes);
  return {};
}

}  // namespace cinebar_simhost
