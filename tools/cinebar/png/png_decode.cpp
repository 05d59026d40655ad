#include "tools/cinebar/png/png_decode.h"

#include <libdeflate.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

namespace cinebar_tool {
namespace {

// Adam7: each pass's first column and row and its steps.
constexpr int kX0[] = {0, 4, 0, 2, 0, 1, 0}, kY0[] = {0, 0, 4, 0, 2, 0, 1};
constexpr int kDx[] = {8, 8, 4, 4, 2, 2, 1}, kDy[] = {8, 8, 8, 4, 4, 2, 2};

struct Pass {
  std::size_t width = 0, height = 0, stride = 0;  // stride without the filter byte
  std::size_t bytes() const { return width == 0 ? 0 : height * (stride + 1); }
};

Pass PassOf(const PngLayout& png, int p) {
  Pass pass{png.width, png.height, 0};
  if (png.interlaced) {
    pass.width = (png.width - kX0[p] + kDx[p] - 1) / kDx[p];
    pass.height = (png.height - kY0[p] + kDy[p] - 1) / kDy[p];
  }
  if (pass.height == 0) pass.width = 0;
  pass.stride = (pass.width * static_cast<std::size_t>(png.form.samples() * png.form.depth) + 7) / 8;
  return pass;
}

// Undoes one row's filter from `in` into `x`, which is `in` or lies before it
// (each byte is written after the bytes at and below its source are read);
// `prev` is the unfiltered row above, or null.
bool UnfilterRow(int filter, const std::uint8_t* in, std::uint8_t* x, const std::uint8_t* prev,
                 std::size_t stride, std::size_t bpp) {
  if (prev == nullptr && filter >= 2 && filter <= 4)
    filter += 4;  // no row above: Up, Average, Paeth as 6, 7, 8
  const std::size_t head = std::min(bpp, stride);
  switch (filter) {
    case 0:
    case 6:
      if (x != in) std::memmove(x, in, stride);
      return true;
    case 1:
    case 8:  // Paeth with nothing above takes the left byte
      for (std::size_t i = 0; i < head; ++i) x[i] = in[i];
      for (std::size_t i = bpp; i < stride; ++i) x[i] = static_cast<std::uint8_t>(in[i] + x[i - bpp]);
      return true;
    case 2:
      for (std::size_t i = 0; i < stride; ++i) x[i] = static_cast<std::uint8_t>(in[i] + prev[i]);
      return true;
    case 3:
      for (std::size_t i = 0; i < head; ++i) x[i] = static_cast<std::uint8_t>(in[i] + prev[i] / 2);
      for (std::size_t i = bpp; i < stride; ++i)
        x[i] = static_cast<std::uint8_t>(in[i] + (x[i - bpp] + prev[i]) / 2);
      return true;
    case 7:
      for (std::size_t i = 0; i < head; ++i) x[i] = in[i];
      for (std::size_t i = bpp; i < stride; ++i) x[i] = static_cast<std::uint8_t>(in[i] + x[i - bpp] / 2);
      return true;
    case 4:
      for (std::size_t i = 0; i < stride; ++i) {
        const int a = i >= bpp ? x[i - bpp] : 0, b = prev[i], c = i >= bpp ? prev[i - bpp] : 0;
        const int pa = std::abs(b - c), pb = std::abs(a - c), pc = std::abs(a + b - 2 * c);
        x[i] = static_cast<std::uint8_t>(in[i] + (pa <= pb && pa <= pc ? a : pb <= pc ? b : c));
      }
      return true;
    default:
      return false;
  }
}

void Inflate(const std::string& compressed, std::uint8_t* out, std::size_t size, const ChunkStream& input) {
  thread_local std::unique_ptr<libdeflate_decompressor, void (*)(libdeflate_decompressor*)> inflater(
      libdeflate_alloc_decompressor(), &libdeflate_free_decompressor);
  if (!inflater) throw std::bad_alloc();
  std::size_t in = 0, got = 0;
  const libdeflate_result result = libdeflate_zlib_decompress_ex(inflater.get(), compressed.data(),
                                                                 compressed.size(), out, size, &in, &got);
  if (result == LIBDEFLATE_INSUFFICIENT_SPACE) input.Refuse("it holds more image data than its header says");
  if (result != LIBDEFLATE_SUCCESS) input.Refuse("its image data is corrupt");
  if (got != size) input.Refuse("its image data ends early (not enough image data)");
  if (in != compressed.size()) input.Refuse("it holds extra data after its compressed image data");
}

// Rows of whole-byte samples as the frame holds them: inflated into the
// frame's memory, each row unfiltered from where it landed down over the
// filter bytes before it (row y's bytes land y + 1 bytes after their place,
// so nothing unread is overwritten).
void DecodeInPlace(const std::string& compressed, Frame& frame, const ChunkStream& input) {
  const std::size_t stride = frame.stride(), rows = frame.height;
  frame.samples.resize(rows * (stride + 1));
  Inflate(compressed, frame.samples.data(), frame.samples.size(), input);
  std::uint8_t* base = frame.samples.data();
  const std::size_t bpp = frame.pixel_bytes();
  for (std::size_t y = 0; y < rows; ++y) {
    const std::uint8_t* raw = base + y * (stride + 1);
    if (!UnfilterRow(raw[0], raw + 1, base + y * stride, y == 0 ? nullptr : base + (y - 1) * stride, stride,
                     bpp))
      input.Refuse("its image data has an unknown row filter");
  }
  frame.samples.resize(rows * stride);
}

// Sample `index` of a row of `depth`-bit samples.
unsigned SampleAt(const std::uint8_t* row, std::size_t index, int depth) {
  if (depth == 16) return unsigned{row[2 * index]} << 8 | row[2 * index + 1];
  if (depth == 8) return row[index];
  const std::size_t bit = index * static_cast<std::size_t>(depth);
  return (row[bit / 8] >> (8 - depth - bit % 8)) & ((1u << depth) - 1);
}

// The first `channels` of four samples, big-endian at 16 bits.
void PutSamples(const std::array<unsigned, 4>& v, int channels, bool deep, std::uint8_t* out) {
  for (std::size_t c = 0; c < v.size() && c < static_cast<std::size_t>(channels); ++c) {
    if (deep) {
      out[2 * c] = static_cast<std::uint8_t>(v[c] >> 8);
      out[2 * c + 1] = static_cast<std::uint8_t>(v[c]);
    } else {
      out[c] = static_cast<std::uint8_t>(v[c]);
    }
  }
}

// Pixel i of an unfiltered row into the frame's form: palette entries,
// low-depth grey widened to 8 bits, tRNS to alpha. False for a palette index
// beyond the palette.
bool Expand(const PngLayout& png, const std::uint8_t* row, std::size_t i, std::uint8_t* out, int channels) {
  const int samples = png.form.samples(), depth = png.form.depth;
  std::array<unsigned, 4> v{};
  unsigned alpha = depth == 16 ? 65535u : 255u;
  for (int c = 0; c < samples; ++c) v[c] = SampleAt(row, i * static_cast<std::size_t>(samples) + c, depth);
  if (png.form.alpha()) alpha = v[samples - 1];
  if (png.form.color_type == kPalette) {
    const std::size_t index = v[0];
    if (index * 3 >= png.palette.size()) return false;
    alpha = index < png.trns.size() ? static_cast<std::uint8_t>(png.trns[index]) : 255;
    for (int c = 0; c < 3; ++c) v[c] = static_cast<std::uint8_t>(png.palette[index * 3 + c]);
  } else if (!png.trns.empty()) {
    const auto* t = reinterpret_cast<const std::uint8_t*>(png.trns.data());
    bool match = true;
    for (int c = 0; c < samples; ++c) match = match && v[c] == (unsigned{t[2 * c]} << 8 | t[2 * c + 1]);
    if (match) alpha = 0;
  }
  if (depth < 8 && png.form.color_type == kGrey) v[0] = v[0] * 255 / ((1u << depth) - 1);
  if (channels % 2 == 0) v[static_cast<std::size_t>(channels - 1) % v.size()] = alpha;
  PutSamples(v, channels, depth == 16, out);
  return true;
}

// Every pass inflated into one buffer, unfiltered and spread into the frame.
void DecodeExpanding(const PngLayout& png, const std::string& compressed, Frame& frame,
                     const ChunkStream& input) {
  std::vector<std::uint8_t> raw(png.DataBytes());
  Inflate(compressed, raw.data(), raw.size(), input);
  frame.Resize(frame.width, frame.height, frame.channels, frame.deep);
  const std::size_t bpp =
      std::max<std::size_t>(static_cast<std::size_t>(png.form.samples() * png.form.depth) / 8, 1);
  std::uint8_t* data = raw.data();
  for (int p = 0; p < (png.interlaced ? 7 : 1); ++p) {
    const Pass pass = PassOf(png, p);
    for (std::size_t j = 0; j < pass.height && pass.width > 0; ++j, data += pass.stride + 1) {
      const std::uint8_t* prev = j == 0 ? nullptr : data - pass.stride;
      if (!UnfilterRow(data[0], data + 1, data + 1, prev, pass.stride, bpp))
        input.Refuse("its image data has an unknown row filter");
      const int y = png.interlaced ? kY0[p] + static_cast<int>(j) * kDy[p] : static_cast<int>(j);
      for (std::size_t i = 0; i < pass.width; ++i) {
        const std::size_t x = png.interlaced ? kX0[p] + i * kDx[p] : i;
        if (!Expand(png, data + 1, i, frame.row(y) + x * frame.pixel_bytes(), frame.channels))
          input.Refuse("a palette index lies beyond its " + std::to_string(png.palette.size() / 3) +
                       "-entry palette");
      }
    }
  }
}

}  // namespace

std::uint64_t PngLayout::DataBytes() const {
  std::uint64_t total = 0;
  for (int p = 0; p < (interlaced ? 7 : 1); ++p) total += PassOf(*this, p).bytes();
  return total;
}

void DecodeImage(const PngLayout& png, const std::string& compressed, Frame& frame,
                 const ChunkStream& input) {
  const bool direct =
      !png.interlaced && png.form.depth >= 8 && png.form.color_type != kPalette && png.trns.empty();
  // Room for the widest output a writer may lay over the frame (RGBA rows with
  // their filter bytes): reserved, not touched, so it costs address space only
  // and spares a copy of the frame when bars add colour or alpha.
  const std::size_t sample = frame.deep ? 2 : 1, rows = static_cast<std::size_t>(frame.height);
  frame.samples.reserve(rows * (static_cast<std::size_t>(frame.width) * 4 * sample + 1));
  if (direct) {
    DecodeInPlace(compressed, frame, input);
  } else {
    DecodeExpanding(png, compressed, frame, input);
  }
}

}  // namespace cinebar_tool
