#include "png_oracle.h"

#include <png.h>
#include <zlib.h>

#include <fstream>
#include <iterator>

namespace cinebar_png_test {
namespace {

void OnError(png_structp png, png_const_charp message) {
  static_cast<Reading*>(png_get_error_ptr(png))->error = message;
  png_longjmp(png, 1);
}
void OnWarning(png_structp png, png_const_charp text) {
  static_cast<Reading*>(png_get_error_ptr(png))->warnings.emplace_back(text);
}

// The offset of every chunk in a file, and its length.
std::vector<std::pair<std::size_t, std::size_t>> Chunks(const std::string& file) {
  std::vector<std::pair<std::size_t, std::size_t>> found;
  for (std::size_t at = 8, length = 0; at + 8 <= file.size(); at += 12 + length, length = 0) {
    for (std::size_t i = 0; i < 4; ++i) length = length << 8 | std::uint8_t(file[at + i]);
    found.emplace_back(at, length);
  }
  return found;
}

}  // namespace

Picture RandomPicture(std::mt19937& random, std::pair<int, int> size) {
  const auto pick = [&](unsigned n) { return static_cast<int>(random() % n); };
  Picture p;
  p.color_type = std::array{0, 2, 3, 4, 6}[pick(5)];
  p.depth = p.color_type == 0 ? 1 << pick(5) : p.color_type == 3 ? 1 << pick(4) : 8 << pick(2);
  p.width = size.first;
  p.height = size.second;
  p.interlaced = pick(4) == 0;
  const unsigned values = 1u << p.depth, entries = p.color_type == 3 ? 1 + unsigned(pick(values)) : 0;
  for (unsigned i = 0; i < 3 * entries; ++i) p.palette += static_cast<char>(random());
  if (p.color_type == 3 && pick(2) == 0) p.trns = p.palette.substr(0, 1 + unsigned(pick(entries)));
  if ((p.color_type == 0 || p.color_type == 2) && pick(3) == 0)
    for (int c = 0; c < p.channels(); ++c) p.trns += Be(random() % values, 2);
  // Often a few values only, so that runs, tRNS matches and repeated rows occur.
  const unsigned limit = p.color_type == 3 ? entries : values, spread = pick(2) ? std::min(limit, 3u) : limit;
  p.samples.resize(static_cast<std::size_t>(p.width * p.height * p.channels()));
  for (auto& s : p.samples) s = static_cast<std::uint16_t>(random() % spread);
  return p;
}

Picture Pattern(int width, int height, int color_type, int depth) {
  const char* palette = color_type == 3 ? "\x10\x20\x30\x40\x50\x60\x70\x80\x90\xa0\xb0\xc0" : "";
  Picture p{width, height, depth, color_type, false, palette, "", {}};
  for (std::uint32_t i = 0; i < std::uint32_t(width * height * p.channels()); ++i)
    p.samples.push_back(std::uint16_t((i * 2654435761u >> 5) % (color_type == 3 ? 4 : 1u << depth)));
  return p;
}

// Rows of one byte a sample below 8 bits (libpng packs them), big-endian at 16.
std::string WriteWithLibpng(const Picture& p) {
  std::string rows;
  for (const std::uint16_t s : p.samples) rows += Be(s, p.depth == 16 ? 2 : 1);
  std::vector<png_bytep> pointers;
  for (std::size_t y = 0; y < std::size_t(p.height); ++y)
    pointers.push_back(reinterpret_cast<png_bytep>(&rows[y * rows.size() / p.height]));
  const File out(std::tmpfile(), &std::fclose);
  Reading sink;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &sink, OnError, OnWarning);
  png_infop info = png_create_info_struct(png);
  if (setjmp(png_jmpbuf(png)) == 0) {
    png_init_io(png, out.get());
    png_set_IHDR(png, info, png_uint_32(p.width), png_uint_32(p.height), p.depth, p.color_type,
                 p.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, 0, 0);
    if (!p.palette.empty())
      png_set_PLTE(png, info, reinterpret_cast<png_const_colorp>(p.palette.data()),
                   int(p.palette.size() / 3));
    png_set_rows(png, info, pointers.data());
    png_write_png(png, info, PNG_TRANSFORM_PACKING, nullptr);
  }
  png_destroy_write_struct(&png, &info);
  const std::string file = sink.error.empty() ? Contents(out.get()) : "";
  return p.trns.empty() ? file : Insert(file, ChunkBytes("tRNS", p.trns), "IDAT");
}

Reading ReadWithLibpng(const std::string& file) {
  Reading r;
  const File in = ReadFrom(file);
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &r, OnError, OnWarning);
  png_infop info = png_create_info_struct(png);
  if (setjmp(png_jmpbuf(png)) == 0) {
    png_init_io(png, in.get());
    png_set_check_for_invalid_index(png, 1);
    png_read_png(png, info, PNG_TRANSFORM_EXPAND, nullptr);  // chunks after the image data checked too
    r.width = int(png_get_image_width(png, info)), r.height = int(png_get_image_height(png, info));
    r.channels = png_get_channels(png, info), r.depth = png_get_bit_depth(png, info);
    for (int y = 0; y < r.height; ++y)
      r.samples.insert(r.samples.end(), png_get_rows(png, info)[y],
                       png_get_rows(png, info)[y] + png_get_rowbytes(png, info));
    png_color_16p b = nullptr;  // libpng fills in a palette entry's colour
    if (png_get_bKGD(png, info, &b) != 0)
      r.background =
          r.channels >= 3 ? std::vector<unsigned>{b->red, b->green, b->blue} : std::vector<unsigned>{b->gray};
  }
  png_destroy_read_struct(&png, &info, nullptr);
  if (!r.error.empty()) r.samples.clear();
  return r;
}

std::array<int, 4> Reading::Rgba(int x, int y) const {
  const int bytes = depth / 8, full = (1 << depth) - 1, color = channels >= 3 ? 1 : 0;
  const std::uint8_t* p =
      &samples[(std::size_t(y) * std::size_t(width) + std::size_t(x)) * std::size_t(channels * bytes)];
  int s[4] = {};
  for (int c = 0; c < channels; ++c) s[c] = bytes == 2 ? p[2 * c] << 8 | p[2 * c + 1] : p[c];
  return {s[0], s[color], s[2 * color], channels % 2 == 0 ? s[channels - 1] : full};
}

std::string Contents(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

std::string Contents(std::FILE* file) {
  std::string bytes(std::size_t(std::ftell(file)), '\0');
  std::rewind(file);
  return bytes.substr(0, std::fread(bytes.data(), 1, bytes.size(), file));
}

std::string Be(std::uint32_t v, int bytes) {
  std::string out;
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) out += static_cast<char>(v >> shift);
  return out;
}

std::string ChunkBytes(const std::string& type, const std::string& data) {
  const std::string body = type + data;
  return Be(std::uint32_t(data.size())) + body +
         Be(crc32(0, reinterpret_cast<const Bytef*>(body.data()), uInt(body.size())));
}

std::string Insert(const std::string& file, const std::string& chunk, const std::string& before) {
  for (const auto& [at, length] : Chunks(file))
    if (file.compare(at + 4, 4, before) == 0) return file.substr(0, at) + chunk + file.substr(at);
  return file + chunk;
}

std::vector<std::string> ChunksOf(const std::string& file, const std::string& type) {
  std::vector<std::string> found;
  for (const auto& [at, length] : Chunks(file))
    if (file.compare(at + 4, 4, type) == 0) found.push_back(file.substr(at + 8, length));
  return found;
}

std::string Zlib(const std::string& bytes) {
  uLongf size = compressBound(uLong(bytes.size()));
  std::string out(size, '\0');
  compress(reinterpret_cast<Bytef*>(out.data()), &size, reinterpret_cast<const Bytef*>(bytes.data()),
           uLong(bytes.size()));
  return out.substr(0, size);
}

}  // namespace cinebar_png_test
