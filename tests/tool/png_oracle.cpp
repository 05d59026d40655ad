#include "png_oracle.h"

#include <png.h>
#include <zlib.h>

#include <csetjmp>
#include <cstring>
#include <fstream>
#include <sstream>

namespace cinebar_png_test {
namespace {

struct Memory {
  const std::string* bytes;
  std::size_t at = 0;
};

void ReadMemory(png_structp png, png_bytep out, png_size_t size) {
  auto* m = static_cast<Memory*>(png_get_io_ptr(png));
  if (m->bytes->size() - m->at < size) png_error(png, "read past the end");
  std::memcpy(out, m->bytes->data() + m->at, size);
  m->at += size;
}

void WriteMemory(png_structp png, png_bytep data, png_size_t size) {
  static_cast<std::string*>(png_get_io_ptr(png))->append(reinterpret_cast<const char*>(data), size);
}

void OnError(png_structp png, png_const_charp message) {
  static_cast<Reading*>(png_get_error_ptr(png))->error = message;
  png_longjmp(png, 1);
}

void OnWarning(png_structp png, png_const_charp message) {
  static_cast<Reading*>(png_get_error_ptr(png))->warnings.emplace_back(message);
}

// Rows as the file holds them: big-endian 16-bit, low depths packed high bit first.
std::vector<std::vector<png_byte>> PackedRows(const Picture& p) {
  std::vector<std::vector<png_byte>> rows(static_cast<std::size_t>(p.height));
  const std::size_t per_row = static_cast<std::size_t>(p.width * p.channels()), depth = std::size_t(p.depth);
  for (std::size_t y = 0; y < rows.size(); ++y) {
    rows[y].assign((per_row * depth + 7) / 8, 0);
    for (std::size_t i = 0, bit = 0; i < per_row; ++i, bit += depth) {
      const unsigned v = p.samples[y * per_row + i];
      for (std::size_t b = 0; b < depth; ++b)
        if ((v >> (depth - 1 - b)) & 1)
          rows[y][(bit + b) / 8] |= static_cast<png_byte>(0x80 >> ((bit + b) % 8));
    }
  }
  return rows;
}

// The offset of every chunk in a file, and its length.
std::vector<std::pair<std::size_t, std::size_t>> Chunks(const std::string& file) {
  std::vector<std::pair<std::size_t, std::size_t>> found;
  for (std::size_t at = 8; at + 8 <= file.size();) {
    const auto* p = reinterpret_cast<const std::uint8_t*>(file.data() + at);
    found.emplace_back(at, std::size_t{p[0]} << 24 | std::size_t{p[1]} << 16 | std::size_t{p[2]} << 8 | p[3]);
    at += 12 + found.back().second;
  }
  return found;
}

}  // namespace

std::string Be(std::uint32_t v, int bytes) {
  std::string out;
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) out += static_cast<char>(v >> shift);
  return out;
}

Picture RandomPicture(std::mt19937& random, int max_side, int width, int height) {
  const auto pick = [&](unsigned n) { return static_cast<int>(random() % n); };
  static const int kTypes[] = {0, 2, 3, 4, 6}, kDepths[] = {1, 2, 4, 8, 16};
  Picture p;
  p.color_type = kTypes[pick(5)];
  p.depth = p.color_type == 0 ? kDepths[pick(5)] : p.color_type == 3 ? kDepths[pick(4)] : 8 << pick(2);
  p.width = width != 0 ? width : 1 + pick(unsigned(max_side));
  p.height = height != 0 ? height : 1 + pick(unsigned(max_side));
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

std::string WriteWithLibpng(const Picture& p) {
  std::string out;
  Reading sink;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &sink, OnError, OnWarning);
  png_infop info = png_create_info_struct(png);
  auto rows = PackedRows(p);
  std::vector<png_bytep> pointers;
  for (auto& row : rows) pointers.push_back(row.data());
  if (setjmp(png_jmpbuf(png)) == 0) {
    png_set_write_fn(png, &out, WriteMemory, nullptr);
    png_set_IHDR(png, info, png_uint_32(p.width), png_uint_32(p.height), p.depth, p.color_type,
                 p.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, 0, 0);
    if (!p.palette.empty())
      png_set_PLTE(png, info, reinterpret_cast<png_const_colorp>(p.palette.data()),
                   int(p.palette.size() / 3));
    const auto* t = reinterpret_cast<const png_byte*>(p.trns.data());
    const auto at = [&](int i) { return png_uint_16(t[2 * i] << 8 | t[2 * i + 1]); };
    png_color_16 key{0, png_uint_16(p.trns.size() == 6 ? at(0) : 0),
                     png_uint_16(p.trns.size() == 6 ? at(1) : 0), png_uint_16(p.trns.size() == 6 ? at(2) : 0),
                     png_uint_16(p.trns.size() == 2 ? at(0) : 0)};
    if (!p.trns.empty()) png_set_tRNS(png, info, p.color_type == 3 ? t : nullptr, int(p.trns.size()), &key);
    png_set_rows(png, info, pointers.data());
    png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
  }
  png_destroy_write_struct(&png, &info);
  return sink.error.empty() ? out : "";
}

Reading ReadWithLibpng(const std::string& file) {
  Reading r;
  Memory memory{&file};
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &r, OnError, OnWarning);
  png_infop info = png_create_info_struct(png), end = png_create_info_struct(png);
  std::vector<png_bytep> rows;
  if (setjmp(png_jmpbuf(png)) == 0) {
    png_set_read_fn(png, &memory, ReadMemory);
    png_set_check_for_invalid_index(png, 1);
    png_read_info(png, info);
    png_color_16p b = nullptr;
    png_colorp entries = nullptr;
    int count = 0;
    if (png_get_bKGD(png, info, &b) != 0 && png_get_PLTE(png, info, &entries, &count) != 0 &&
        count > b->index)
      r.background = {entries[b->index].red, entries[b->index].green, entries[b->index].blue};
    else if (b != nullptr)
      r.background = png_get_color_type(png, info) & 2 ? std::vector<unsigned>{b->red, b->green, b->blue}
                                                       : std::vector<unsigned>{b->gray};
    png_set_expand(png);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    r.width = int(png_get_image_width(png, info)), r.height = int(png_get_image_height(png, info));
    r.channels = png_get_channels(png, info), r.depth = png_get_bit_depth(png, info);
    const std::size_t stride = png_get_rowbytes(png, info);
    r.samples.resize(stride * std::size_t(r.height));
    for (std::size_t y = 0; y < std::size_t(r.height); ++y) rows.push_back(r.samples.data() + y * stride);
    png_read_image(png, rows.data());
    png_read_end(png, end);  // with somewhere to put them, chunks after the image data are checked
  }
  png_destroy_read_struct(&png, &info, &end);
  if (!r.error.empty()) r.samples.clear();
  return r;
}

std::array<int, 4> Reading::Rgba(int x, int y) const {
  const int bytes = depth / 8, full = (1 << depth) - 1;
  const std::uint8_t* p =
      samples.data() + (std::size_t(y) * std::size_t(width) + std::size_t(x)) * std::size_t(channels * bytes);
  int s[4] = {};
  for (int c = 0; c < channels; ++c) s[c] = bytes == 2 ? p[2 * c] << 8 | p[2 * c + 1] : p[c];
  const bool color = channels >= 3;
  return {s[0], s[color ? 1 : 0], s[color ? 2 : 0], channels % 2 == 0 ? s[channels - 1] : full};
}

std::string Contents(const std::string& path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

std::string ChunkBytes(const std::string& type, const std::string& data) {
  const std::string body = type + data;
  return Be(std::uint32_t(data.size()), 4) + body +
         Be(std::uint32_t(crc32(0, reinterpret_cast<const Bytef*>(body.data()), uInt(body.size()))), 4);
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

std::string IccpData(const std::string& color_space) {
  std::string profile = Be(132, 4) + Be(0, 4) + Be(0x02100000, 4) + "mntr" + color_space + "XYZ " +
                        std::string(12, '\0') + "acsp" + std::string(28, '\0') + Be(0xF6D6, 4) +
                        Be(0x10000, 4) + Be(0xD32D, 4);
  profile.resize(132, '\0');
  // libpng reads 81 bytes of keyword before the profile: a shorter chunk is "too short" to it.
  return std::string(70, 'k') + std::string(2, '\0') + Zlib(profile);
}

File ReadFrom(const std::string& bytes) {
  return File(fmemopen(const_cast<char*>(bytes.data()), bytes.size(), "rb"), &std::fclose);
}

}  // namespace cinebar_png_test
