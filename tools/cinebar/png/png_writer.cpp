#include "tools/cinebar/png/png_writer.h"

#include <libdeflate.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "tools/cinebar/png/png_form.h"

namespace cinebar_tool {
namespace {

constexpr std::size_t kMaxIdatChunk = std::size_t{1} << 30;

// One compressor per thread and level: they are not shared between threads.
libdeflate_compressor* Compressor(int level) {
  struct Owned {
    libdeflate_compressor* c = nullptr;
    int level = -1;
    ~Owned() { libdeflate_free_compressor(c); }
  };
  thread_local Owned owned;
  if (owned.level != level) {
    libdeflate_free_compressor(owned.c);
    owned.c = libdeflate_alloc_compressor(level);
    owned.level = owned.c ? level : -1;
  }
  if (owned.c == nullptr) throw std::bad_alloc();
  return owned.c;
}

// The deflate output, its pages touched only as far as it is written.
std::uint8_t* Packed(std::size_t size) {
  thread_local std::unique_ptr<std::uint8_t[]> bytes;
  thread_local std::size_t capacity = 0;
  if (size > capacity) {
    bytes.reset();
    bytes.reset(new std::uint8_t[size]);
    capacity = size;
  }
  return bytes.get();
}

// A PNG chunk: length, type, data, CRC of type and data.
bool PutChunk(std::FILE* out, const char* type, const void* data, std::size_t size) {
  std::uint8_t head[8], tail[4];
  PutBe32(head, static_cast<std::uint32_t>(size));
  std::memcpy(head + 4, type, 4);
  PutBe32(tail, libdeflate_crc32(libdeflate_crc32(0, type, 4), data, size));
  return std::fwrite(head, 1, 8, out) == 8 && std::fwrite(data, 1, size, out) == size &&
         std::fwrite(tail, 1, 4, out) == 4;
}

// The Up filter in place (each byte less the one above): one subtraction a
// byte, and on photographs within a few per cent of the best adaptive choice.
void FilterUp(std::uint8_t* row, const std::uint8_t* above, std::size_t stride) {
  for (std::size_t i = 0; i < stride; ++i) row[i] = static_cast<std::uint8_t>(row[i] - above[i]);
}

// Every row into `in` with its filter byte, bottom up; row y+1 is filtered
// once row y, the row above it, has arrived.
void FillRows(const PngImage& image, const RowSource& rows, bool up, std::uint8_t* in, std::size_t stride) {
  const std::size_t line = stride + 1;
  for (int y = image.height - 1; y >= 0; --y) {
    std::uint8_t* row = in + line * static_cast<std::size_t>(y);
    rows(y, row + 1);
    row[0] = up && y > 0 ? 2 : 0;
    if (up && y + 1 < image.height) FilterUp(row + line + 1, row + 1, stride);
  }
}

bool PutHeader(std::FILE* out, const PngImage& image) {
  const PngForm form = FrameForm(image.channels, image.deep);
  std::uint8_t header[13] = {};
  PutBe32(header, static_cast<std::uint32_t>(image.width));
  PutBe32(header + 4, static_cast<std::uint32_t>(image.height));
  header[8] = static_cast<std::uint8_t>(form.depth);
  header[9] = static_cast<std::uint8_t>(form.color_type);  // deflate, adaptive filtering, no interlace
  return std::fwrite(kPngSignature, 1, 8, out) == 8 && PutChunk(out, "IHDR", header, sizeof header);
}

}  // namespace

std::string WritePng(std::FILE* out, const PngImage& image, const RowSource& rows,
                     const WriteSettings& settings, std::vector<std::uint8_t>* buffer) {
  thread_local std::vector<std::uint8_t> own;
  std::vector<std::uint8_t>& in = buffer != nullptr ? *buffer : own;
  const std::size_t stride = static_cast<std::size_t>(image.width) * image.channels * (image.deep ? 2 : 1);
  const std::size_t size = (stride + 1) * static_cast<std::size_t>(image.height);
  if (in.size() < size) in.resize(size);
  FillRows(image, rows, settings.level > 0, in.data(), stride);
  libdeflate_compressor* c = Compressor(settings.level);
  const std::size_t bound = libdeflate_zlib_compress_bound(c, size);
  std::uint8_t* packed = Packed(bound);
  const std::size_t n = libdeflate_zlib_compress(c, in.data(), size, packed, bound);
  bool ok = n > 0 && PutHeader(out, image);
  if (image.chunks != nullptr)
    for (const Chunk& chunk : *image.chunks)
      ok = ok && PutChunk(out, chunk.type.c_str(), chunk.data.data(), chunk.data.size());
  for (std::size_t at = 0; ok && at < n; at += kMaxIdatChunk)
    ok = PutChunk(out, "IDAT", packed + at, std::min(kMaxIdatChunk, n - at));
  ok = ok && PutChunk(out, "IEND", "", 0) && std::fflush(out) == 0;
  if (ok) return "";
  return n == 0 ? "the image data did not compress" : std::strerror(errno);
}

}  // namespace cinebar_tool
