#include "tools/cinebar/replay.h"

#include <algorithm>
#include <cstring>

#include "host/pixel_ops.h"
#include "hostapi/ae_constants.h"

namespace cinebar_tool {

using cinebar_simhost::CallRecord;
using cinebar_simhost::HostFn;

namespace {

constexpr std::size_t kMostSteps = 256;  // at most (2 * 256 + 2)^2 cells

bool Over(const std::optional<PF_LayerDef>& record, const PF_LayerDef& world) {
  return record && record->data != nullptr && record->data == world.data;
}

// The same record as the host's world, not another view of its pixels.
bool Same(const PF_LayerDef& a, const PF_LayerDef& b) {
  return a.data == b.data && a.width == b.width && a.height == b.height && a.rowbytes == b.rowbytes &&
         a.world_flags == b.world_flags;
}

template <typename Pixel>
std::uint64_t Bytes(const Pixel& pixel) {
  static_assert(sizeof pixel <= sizeof(std::uint64_t));
  std::uint64_t bytes = 0;
  std::memcpy(&bytes, &pixel, sizeof pixel);
  return bytes;
}

void Include(Picture& box, A_long left, A_long top, A_long right, A_long bottom) {
  box.left = std::min(box.left, left), box.top = std::min(box.top, top);
  box.right = std::max(box.right, right), box.bottom = std::max(box.bottom, bottom);
}

}  // namespace

std::uint64_t FlatPixel(std::uint8_t value, int bytes) {
  std::uint64_t pixel = 0;
  std::memset(&pixel, value, static_cast<std::size_t>(bytes));
  return pixel;
}

std::optional<Drawing> Drawing::Replay(const std::vector<CallRecord>& calls, std::size_t first,
                                       const PF_LayerDef& input, const PF_LayerDef& output) {
  std::vector<Step> steps;
  for (std::size_t i = first; i < calls.size(); ++i) {
    const CallRecord& c = calls[i];
    if (!Over(c.world, input) && !Over(c.world, output) && !Over(c.src_world, input) &&
        !Over(c.src_world, output))
      continue;
    if (!Over(c.world, output) || !Same(*c.world, output)) return std::nullopt;
    if (c.result != 0 || c.faulted) continue;  // refused: nothing drawn
    const PF_Rect* rect = c.rect ? &*c.rect : nullptr;
    if (c.fn == HostFn::kFill && c.color) {
      steps.push_back({cinebar_simhost::FilledArea(rect, *c.world), Cell{false, Bytes(*c.color)}});
    } else if (c.fn == HostFn::kFill16 && c.color16) {
      steps.push_back({cinebar_simhost::FilledArea(rect, *c.world), Cell{false, Bytes(*c.color16)}});
    } else if (c.fn == HostFn::kCopy && Over(c.src_world, input) && Same(*c.src_world, input)) {
      const PF_Rect* src_rect = c.src_rect ? &*c.src_rect : nullptr;
      steps.push_back({cinebar_simhost::CopiedArea(*c.src_world, *c.world, src_rect, rect), Cell{true, 0}});
    } else {
      return std::nullopt;
    }
    if (steps.size() > kMostSteps) return std::nullopt;
  }
  return Drawing(output, steps);
}

Drawing::Drawing(const PF_LayerDef& output, const std::vector<Step>& steps)
    : pixel_bytes_((output.world_flags & PF_WorldFlag_DEEP) != 0 ? 8 : 4) {
  xs_ = {0, output.width}, ys_ = {0, output.height};
  for (const Step& s : steps) {
    xs_.insert(xs_.end(), {s.area.left, s.area.right});
    ys_.insert(ys_.end(), {s.area.top, s.area.bottom});
  }
  for (std::vector<A_long>* edges : {&xs_, &ys_}) {
    std::sort(edges->begin(), edges->end());
    edges->erase(std::unique(edges->begin(), edges->end()), edges->end());
  }
  cells_.assign((xs_.size() - 1) * (ys_.size() - 1), Cell{});
  const auto index = [](const std::vector<A_long>& edges, A_long at) {
    return static_cast<std::size_t>(std::lower_bound(edges.begin(), edges.end(), at) - edges.begin());
  };
  for (const Step& s : steps) {  // later calls over earlier ones
    const std::size_t x0 = index(xs_, s.area.left), x1 = index(xs_, s.area.right);
    const std::size_t y0 = index(ys_, s.area.top), y1 = index(ys_, s.area.bottom);
    for (std::size_t y = y0; y < y1; ++y)
      for (std::size_t x = x0; x < x1; ++x) cells_[Index(x, y)] = s.cell;
  }
}

Looked Drawing::Look(std::uint8_t value) const {
  const std::uint64_t flat = FlatPixel(value, pixel_bytes_);
  const A_long width = xs_.back(), height = ys_.back();
  Looked seen;
  seen.shown = seen.cleared = Picture{width, height, 0, 0, true};
  if (cells_.empty()) return seen;
  const auto pixel = [&](const Cell& cell) { return cell.input ? flat : cell.pixel; };
  for (std::size_t y = 0; y + 1 < ys_.size(); ++y) {
    for (std::size_t x = 0; x + 1 < xs_.size(); ++x) {
      const std::uint64_t p = pixel(cells_[Index(x, y)]);
      if (p == flat) Include(seen.shown, xs_[x], ys_[y], xs_[x + 1], ys_[y + 1]);
      if (p == 0) Include(seen.cleared, xs_[x], ys_[y], xs_[x + 1], ys_[y + 1]);
    }
  }
  seen.first = pixel(cells_.front());
  seen.last = pixel(cells_.back());
  return seen;
}

}  // namespace cinebar_tool
