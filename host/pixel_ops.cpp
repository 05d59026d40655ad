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

PixelProblem FillAny(const void* color, std::int64_t bpp, const PF_Rect* rect, PF_LayerDef& world) {
  const Span r = rect ? SpanOf(*rect) : WholeOf(world);
  const std::int64_t x0 = std::max<std::int64_t>(r.left, 0),
                     x1 = std::min<std::int64_t>(r.right, world.width);
  const std::int64_t y0 = std::max<std::int64_t>(r.top, 0),
                     y1 = std::min<std::int64_t>(r.bottom, world.height);
  if (x0 >= x1 || y0 >= y1) return {};
  // The rectangle's first row is built by doubling (one pixel, two, four, ...);
  // every further row is a copy of it, which runs at memcpy speed.
  const std::size_t row_bytes = static_cast<std::size_t>((x1 - x0) * bpp);
  std::uint8_t* first = PixelAt(world, x0, y0, bpp);
  std::memcpy(first, color, static_cast<std::size_t>(bpp));
  for (std::size_t done = static_cast<std::size_t>(bpp); done < row_bytes;) {
    const std::size_t n = std::min(done, row_bytes - done);
    std::memcpy(first + done, first, n);
    done += n;
  }
  for (std::int64_t y = y0 + 1; y < y1; ++y) std::memcpy(PixelAt(world, x0, y, bpp), first, row_bytes);
  return {};
}

}  // namespace

PixelProblem FillRect8(const PF_Pixel& color, const PF_Rect* rect, PF_LayerDef& world) {
  PixelProblem problem = CheckWorld(&world, false, "fill");
  return problem.empty() ? FillAny(&color, 4, rect, world) : problem;
}

PixelProblem FillRect16(const PF_Pixel16& color, const PF_Rect* rect, PF_LayerDef& world) {
  PixelProblem problem = CheckWorld(&world, true, "fill16");
  return problem.empty() ? FillAny(&color, 8, rect, world) : problem;
}

PixelProblem CopyRect(const PF_LayerDef& src, PF_LayerDef& dst, const PF_Rect* src_rect,
                      const PF_Rect* dst_rect) {
  const bool deep = (src.world_flags & PF_WorldFlag_DEEP) != 0;
  PixelProblem problem = CheckWorld(&src, deep, "copy source");
  if (problem.empty()) problem = CheckWorld(&dst, deep, "copy destination");
  if (!problem.empty()) return problem;
  const Span s = src_rect ? SpanOf(*src_rect) : WholeOf(src);
  const Span d = dst_rect ? SpanOf(*dst_rect) : WholeOf(dst);
  const std::int64_t w = s.right - s.left, h = s.bottom - s.top;
  if (w != d.right - d.left || h != d.bottom - d.top)
    return "copy: source and destination rectangles differ in size";
  if (w <= 0 || h <= 0) return {};
  // Offsets (dx, dy) inside the rectangles whose source and destination both lie in their worlds.
  const std::int64_t dx0 = std::max({std::int64_t{0}, -s.left, -d.left});
  const std::int64_t dx1 = std::min({w, std::int64_t{src.width} - s.left, std::int64_t{dst.width} - d.left});
  const std::int64_t dy0 = std::max({std::int64_t{0}, -s.top, -d.top});
  const std::int64_t dy1 = std::min({h, std::int64_t{src.height} - s.top, std::int64_t{dst.height} - d.top});
  if (dx0 >= dx1 || dy0 >= dy1) return {};
  const std::int64_t bpp = deep ? 8 : 4;
  const std::size_t row_bytes = static_cast<std::size_t>((dx1 - dx0) * bpp);
  if (src.data != dst.data) {
    // Whole rows of unpadded worlds lie end to end: one copy moves them all.
    if (src.rowbytes == dst.rowbytes && static_cast<std::size_t>(src.rowbytes) == row_bytes) {
      std::memcpy(PixelAt(dst, d.left + dx0, d.top + dy0, bpp), PixelAt(src, s.left + dx0, s.top + dy0, bpp),
                  row_bytes * static_cast<std::size_t>(dy1 - dy0));
      return {};
    }
    for (std::int64_t dy = dy0; dy < dy1; ++dy) {
      std::memcpy(PixelAt(dst, d.left + dx0, d.top + dy, bpp), PixelAt(src, s.left + dx0, s.top + dy, bpp),
                  row_bytes);
    }
    return {};
  }
  // Within one world the rows are staged first, so every pixel read is an original one.
  std::vector<std::uint8_t> staged(row_bytes * static_cast<std::size_t>(dy1 - dy0));
  for (std::int64_t dy = dy0; dy < dy1; ++dy) {
    std::memcpy(&staged[static_cast<std::size_t>(dy - dy0) * row_bytes],
                PixelAt(src, s.left + dx0, s.top + dy, bpp), row_bytes);
  }
  for (std::int64_t dy = dy0; dy < dy1; ++dy) {
    std::memcpy(PixelAt(dst, d.left + dx0, d.top + dy, bpp),
                &staged[static_cast<std::size_t>(dy - dy0) * row_bytes], row_bytes);
  }
  return {};
}

}  // namespace cinebar_simhost
