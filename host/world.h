// A pixel world owned by the simulated host: the buffer behind a PF_LayerDef,
// 8 or 16 bits per channel, with optional padding at the end of every row.
// Padding bytes and a tail after the last row hold kGuardByte, so a drawing
// function that writes outside the image is caught by GuardsIntact().
// A world without pixels (for measuring what a module draws) has a real
// record but only reserved address space behind it: no guards, no pixels.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "hostapi/ae_effect.h"

namespace cinebar_simhost {

class World {
 public:
  static constexpr std::uint8_t kGuardByte = 0xA5;
  static constexpr std::size_t kTailGuardBytes = 32;

  // Throws std::invalid_argument for a negative size, a negative padding or a
  // row longer than the record's 32-bit rowbytes can express.
  World(A_long width, A_long height, bool deep = false, A_long row_padding = 0);
  World(const World& other);  // a duplicated layer: the same pixels in a buffer of its own
  World& operator=(const World& other);
  World(World&&) noexcept = default;
  World& operator=(World&&) noexcept = default;

  // The same record (size, rowbytes, flags, extent) over address space that
  // takes no memory until touched. The host's fill and copy on it record the
  // call and touch nothing; pixel access throws std::logic_error. Throws
  // std::runtime_error where the system cannot reserve the range.
  static World WithoutPixels(A_long width, A_long height, bool deep = false);
  bool has_pixels() const { return has_pixels_; }
  // Where the record's data points, and the bytes it spans: rowbytes times height.
  const void* data() const;
  std::size_t data_bytes() const;
  // Whether any page behind a world without pixels was read or written since
  // it was made (always false for a world with pixels).
  bool PixelsTouched() const;

  A_long width() const { return width_; }
  A_long height() const { return height_; }
  bool deep() const { return deep_; }
  A_long rowbytes() const { return rowbytes_; }
  static constexpr A_long BytesPerPixel(bool deep) { return deep ? 8 : 4; }
  A_long bytes_per_pixel() const { return BytesPerPixel(deep_); }
  void set_pixel_aspect(PF_RationalScale ratio) { pixel_aspect_ = ratio; }

  // Pixel access; coordinates outside the world throw std::out_of_range.
  PF_Pixel Get8(A_long x, A_long y) const;
  void Set8(A_long x, A_long y, PF_Pixel pixel);
  PF_Pixel16 Get16(A_long x, A_long y) const;
  void Set16(A_long x, A_long y, PF_Pixel16 pixel);

  // Test images. Pattern() gives every pixel a value derived from its
  // position and `seed`, so moved or misplaced pixels are noticed.
  void Fill8(PF_Pixel pixel);
  void Fill16(PF_Pixel16 pixel);
  void FillPattern(std::uint32_t seed);
  static PF_Pixel Pattern8(A_long x, A_long y, std::uint32_t seed);
  static PF_Pixel16 Pattern16(A_long x, A_long y, std::uint32_t seed);

  // True when every padding byte and the tail still hold kGuardByte.
  bool GuardsIntact() const;

  // The record view handed to the module; valid while the world lives and is
  // not moved. extent_hint is the whole world.
  PF_LayerDef* layer();

 private:
  struct NoPixels {};
  World(A_long width, A_long height, bool deep, NoPixels);
  static A_long RowBytes(A_long width, A_long height, bool deep, A_long row_padding);
  std::size_t Offset(A_long x, A_long y) const;
  std::uint8_t* mutable_data();

  A_long width_;
  A_long height_;
  bool deep_;
  A_long rowbytes_;
  PF_RationalScale pixel_aspect_{1, 1};
  struct Free {
    void operator()(std::uint8_t* bytes) const { std::free(bytes); }
  };
  std::unique_ptr<std::uint8_t[], Free> bytes_;  // rows, then the tail guard
  std::size_t size_ = 0;
  bool has_pixels_ = true;
  // A world without pixels' range; copies share it, there being nothing in it to copy.
  std::shared_ptr<std::uint8_t> reserved_;
  PF_LayerDef layer_{};
};

}  // namespace cinebar_simhost
