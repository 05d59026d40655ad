#include "host/world.h"

#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>

#include "hostapi/ae_constants.h"
#include "platform/pages.h"

namespace cinebar_simhost {

A_long World::RowBytes(A_long width, A_long height, bool deep, A_long row_padding) {
  if (width < 0 || height < 0 || row_padding < 0) {
    throw std::invalid_argument("World: width, height and row padding must not be negative (got " +
                                std::to_string(width) + "x" + std::to_string(height) + ", padding " +
                                std::to_string(row_padding) + ")");
  }
  const std::int64_t row = std::int64_t{width} * BytesPerPixel(deep) + row_padding;
  if (row > std::numeric_limits<A_long>::max() || row * height > (std::int64_t{1} << 30)) {
    throw std::invalid_argument("World: " + std::to_string(width) + "x" + std::to_string(height) +
                                " is too large for a simulated world");
  }
  return static_cast<A_long>(row);
}

World::World(A_long width, A_long height, bool deep, A_long row_padding)
    : width_(width), height_(height), deep_(deep), rowbytes_(RowBytes(width, height, deep, row_padding)) {
  // Transparent black is all zero bytes, which calloc hands out without a
  // pass over fresh pages. A large world is written whole by the module's
  // first fill: its pages are faulted in by one call, not one fault a page
  // (a third off the kernel's share of an 8000x8000 frame).
  const std::size_t rows = data_bytes();
  size_ = rows + kTailGuardBytes;
  bytes_.reset(static_cast<std::uint8_t*>(std::calloc(size_, 1)));
  if (!bytes_) throw std::bad_alloc();
  if (size_ >= (std::size_t{1} << 22)) cinebar_platform::PrefaultForWriting(bytes_.get(), size_);
  const std::size_t used = static_cast<std::size_t>(width) * static_cast<std::size_t>(bytes_per_pixel());
  if (row_padding > 0) {
    for (std::size_t at = used; at < rows; at += static_cast<std::size_t>(rowbytes_))
      std::memset(&bytes_[at], kGuardByte, static_cast<std::size_t>(row_padding));
  }
  std::memset(&bytes_[rows], kGuardByte, kTailGuardBytes);
}

World::World(A_long width, A_long height, bool deep, NoPixels)
    : width_(width),
      height_(height),
      deep_(deep),
      rowbytes_(RowBytes(width, height, deep, 0)),
      has_pixels_(false) {
  const std::size_t bytes = data_bytes();
  if (bytes == 0) return;
  auto* start = static_cast<std::uint8_t*>(cinebar_platform::ReserveUntouched(bytes));
  if (start == nullptr) {
    throw std::runtime_error("World: this system cannot reserve " + std::to_string(bytes) +
                             " bytes of address space for a world without pixels");
  }
  reserved_.reset(start, [bytes](std::uint8_t* at) { cinebar_platform::ReleaseUntouched(at, bytes); });
}

World::World(const World& other)
    : width_(other.width_),
      height_(other.height_),
      deep_(other.deep_),
      rowbytes_(other.rowbytes_),
      pixel_aspect_(other.pixel_aspect_),
      bytes_(static_cast<std::uint8_t*>(other.size_ > 0 ? std::malloc(other.size_) : nullptr)),
      size_(other.size_),
      has_pixels_(other.has_pixels_),
      reserved_(other.reserved_) {
  if (size_ > 0 && !bytes_) throw std::bad_alloc();
  if (size_ > 0) std::memcpy(bytes_.get(), other.bytes_.get(), size_);
}

World& World::operator=(const World& other) {
  if (this != &other) *this = World(other);
  return *this;
}

World World::WithoutPixels(A_long width, A_long height, bool deep) {
  return World(width, height, deep, NoPixels{});
}

std::size_t World::data_bytes() const {
  return static_cast<std::size_t>(rowbytes_) * static_cast<std::size_t>(height_);
}

bool World::PixelsTouched() const {
  return !has_pixels_ && cinebar_platform::AnyPageTouched(reserved_.get(), data_bytes());
}

std::uint8_t* World::mutable_data() { return has_pixels_ ? bytes_.get() : reserved_.get(); }

const void* World::data() const { return has_pixels_ ? bytes_.get() : reserved_.get(); }

std::size_t World::Offset(A_long x, A_long y) const {
  if (!has_pixels_) throw std::logic_error("World: a world without pixels has none to read or write");
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
  if (!has_pixels_) return true;  // nothing was written there: it has no guards
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
  layer_.data = reinterpret_cast<PF_PixelPtr>(mutable_data());
  layer_.rowbytes = rowbytes_;
  layer_.width = width_;
  layer_.height = height_;
  layer_.extent_hint = PF_Rect{0, 0, width_, height_};
  layer_.pix_aspect_ratio = pixel_aspect_;
  return &layer_;
}

}  // namespace cinebar_simhost
