#include "png_oracle.h"

#include <png.h>
#include <zlib.h>

#include <algorithm>
#include <csetjmp>
#include <cstring>

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

void Flush(png_structp) {}

void OnError(png_structp png, png_const_charp message) {
  static_cast<Reading*>(png_get_error_ptr(png))->error = message;
  png_longjmp(png, 1);
}

void OnWarning(png_structp png, png_const_charp message) {
  static_cast<Reading*>(png_get_error_ptr(png))->warnings.emplace_back(message);
}

void Put32(std::string& out, std::uint32_t v) {
  for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>(v >> shift);
}

// Rows packed as the file holds them: big-endian 16-bit, low depths packed high bit first.
std::vector<std::vector<png_byte>> PackedRows(const Picture& p) {
  std::vector<std::vector<png_byte>> rows(static_cast<std::size_t>(p.height));
  const std::size_t per_row = static_cast<std::size_t>(p.width * p.channels());
  for (int y = 0; y < p.height; ++y) {
    auto& row = rows[static_cast<std::size_t>(y)];
    row.assign((per_row * static_cast<std::size_t>(p.depth) + 7) / 8, 0);
    for (std::size_t i = 0; i < per_row; ++i) {
      const unsigned v = p.samples[static_cast<std::size_t>(y) * per_row + i];
      if (p.depth == 16) {
        row[2 * i] = static_cast<png_byte>(v >> 8);
        row[2 * i + 1] = static_cast<png_byte>(v);
      } else {
        const std::size_t bit = i * static_cast<std::size_t>(p.depth);
        row[bit / 8] = static_cast<png_byte>(row[bit / 8] | v << (8 - p.depth - bit % 8));
      }
    }
  }
  return rows;
}

}  // namespace

Picture RandomPicture(std::mt19937& random, int max_side) {
  const auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
  static const int kTypes[] = {0, 2, 3, 4, 6};
  Picture p;
  p.color_type = kTypes[pick(5)];
  static const int kGrey[] = {1, 2, 4, 8, 16}, kPalette[] = {1, 2, 4, 8};
  p.depth = p.color_type == 0 ? kGrey[pick(5)] : p.color_type == 3 ? kPalette[pick(4)] : 8 + 8 * pick(2);
  p.width = 1 + pick(max_side);
  p.height = 1 + pick(max_side);
  p.interlaced = pick(4) == 0;
  const unsigned top = (1u << p.depth) - 1;
  const int entries = p.color_type == 3 ? 1 + pick(static_cast<int>(top) + 1) : 0;
  for (int i = 0; i < 3 * entries; ++i) p.palette += static_cast<char>(random());
  if (p.color_type == 3 && pick(2) == 0)
    for (int i = 0, n = 1 + pick(entries); i < n; ++i) p.trns += static_cast<char>(random());
  if ((p.color_type == 0 || p.color_type == 2) && pick(3) == 0)
    for (int c = 0; c < (p.color_type == 2 ? 3 : 1); ++c) {
      const unsigned v = random() % (top + 1);
      p.trns += static_cast<char>(v >> 8);
      p.trns += static_cast<char>(v);
    }
  const unsigned limit = p.color_type == 3 ? static_cast<unsigned>(entries) : top + 1;
  // A few distinct values make runs, so that tRNS matches and filters meet repeats.
  const unsigned spread = pick(2) == 0 ? std::min(limit, 3u) : limit;
  p.samples.resize(static_cast<std::size_t>(p.width * p.height * p.channels()));
  for (auto& s : p.samples) s = static_cast<std::uint16_t>(random() % spread);
  return p;
}

std::string WriteWithLibpng(const Picture& p) {
  std::string out;
  Reading sink;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &sink, OnError, OnWarning);
  png_infop info = png_create_info_struct(png);
  const auto rows = PackedRows(p);
  std::vector<png_bytep> pointers;
  for (const auto& row : rows) pointers.push_back(const_cast<png_bytep>(row.data()));
  if (setjmp(png_jmpbuf(png)) == 0) {
    png_set_write_fn(png, &out, WriteMemory, Flush);
    png_set_IHDR(png, info, static_cast<png_uint_32>(p.width), static_cast<png_uint_32>(p.height), p.depth,
                 p.color_type, p.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (!p.palette.empty())
      png_set_PLTE(png, info, reinterpret_cast<png_const_colorp>(p.palette.data()),
                   static_cast<int>(p.palette.size() / 3));
    if (!p.trns.empty()) {
      png_color_16 colour{};
      const auto at = [&](std::size_t i) {
        return static_cast<png_uint_16>(static_cast<std::uint8_t>(p.trns[2 * i]) << 8 |
                                        static_cast<std::uint8_t>(p.trns[2 * i + 1]));
      };
      if (p.color_type == 0) colour.gray = at(0);
      if (p.color_type == 2) colour.red = at(0), colour.green = at(1), colour.blue = at(2);
      const bool palette = p.color_type == 3;
      png_set_tRNS(png, info, palette ? reinterpret_cast<png_const_bytep>(p.trns.data()) : nullptr,
                   palette ? static_cast<int>(p.trns.size()) : 1, &colour);
    }
    png_set_rows(png, info, pointers.data());
    png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
  }
  png_destroy_write_struct(&png, &info);
  if (!sink.error.empty()) out.clear();
  return out;
}

Reading ReadWithLibpng(const std::string& file) {
  Reading r;
  Memory memory{&file};
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &r, OnError, OnWarning);
  png_infop info = png_create_info_struct(png);
  png_infop end = png_create_info_struct(png);
  std::vector<std::vector<png_byte>> rows;
  std::vector<png_bytep> pointers;
  if (setjmp(png_jmpbuf(png)) == 0) {
    png_set_read_fn(png, &memory, ReadMemory);
    png_set_check_for_invalid_index(png, 1);  // off unless asked for
    png_read_info(png, info);
    png_color_16p background = nullptr;
    if (png_get_bKGD(png, info, &background) != 0) {
      r.has_background = true;
      const png_color_16 b = *background;
      const bool palette = png_get_color_type(png, info) == PNG_COLOR_TYPE_PALETTE;
      png_colorp entries = nullptr;
      int count = 0;
      if (palette) png_get_PLTE(png, info, &entries, &count);
      r.background[0] = palette ? entries[b.index].red : (png_get_color_type(png, info) & 2) ? b.red : b.gray;
      r.background[1] = palette ? entries[b.index].green : b.green;
      r.background[2] = palette ? entries[b.index].blue : b.blue;
    }
    png_set_expand(png);
    const int passes = png_set_interlace_handling(png);
    (void)passes;
    png_read_update_info(png, info);
    r.width = static_cast<int>(png_get_image_width(png, info));
    r.height = static_cast<int>(png_get_image_height(png, info));
    r.channels = png_get_channels(png, info);
    r.depth = png_get_bit_depth(png, info);
    rows.assign(static_cast<std::size_t>(r.height), std::vector<png_byte>(png_get_rowbytes(png, info)));
    for (auto& row : rows) pointers.push_back(row.data());
    png_read_image(png, pointers.data());
    png_read_end(png, end);
    for (const auto& row : rows) r.samples.insert(r.samples.end(), row.begin(), row.end());
  }
  png_destroy_read_struct(&png, &info, &end);
  return r;
}

std::string ChunkBytes(const std::string& type, const std::string& data) {
  std::string out;
  Put32(out, static_cast<std::uint32_t>(data.size()));
  out += type + data;
  Put32(out, static_cast<std::uint32_t>(crc32(0, reinterpret_cast<const Bytef*>(out.data() + 4),
                                              static_cast<uInt>(data.size() + 4))));
  return out;
}

std::string Insert(const std::string& file, const std::string& chunk, const std::string& before) {
  for (std::size_t at = 8; at + 8 <= file.size();) {
    const auto* p = reinterpret_cast<const std::uint8_t*>(file.data() + at);
    const std::size_t length =
        std::size_t{p[0]} << 24 | std::size_t{p[1]} << 16 | std::size_t{p[2]} << 8 | p[3];
    if (file.compare(at + 4, 4, before) == 0) return file.substr(0, at) + chunk + file.substr(at);
    at += 12 + length;
  }
  return file + chunk;
}

std::vector<std::string> ChunksOf(const std::string& file, const std::string& type) {
  std::vector<std::string> found;
  for (std::size_t at = 8; at + 8 <= file.size();) {
    const auto* p = reinterpret_cast<const std::uint8_t*>(file.data() + at);
    const std::size_t length =
        std::size_t{p[0]} << 24 | std::size_t{p[1]} << 16 | std::size_t{p[2]} << 8 | p[3];
    if (file.compare(at + 4, 4, type) == 0) found.push_back(file.substr(at + 8, length));
    at += 12 + length;
  }
  return found;
}

std::string IccpData(const std::string& color_space) {
  std::string profile(132, '\0');
  const auto put = [&](std::size_t at, const std::string& s) { profile.replace(at, s.size(), s); };
  std::string length, version, d50;
  Put32(length, 132);
  Put32(version, 0x02100000);
  for (const std::uint32_t v : {0x0000F6D6u, 0x00010000u, 0x0000D32Du}) Put32(d50, v);
  put(0, length);
  put(8, version);
  put(12, "mntr");
  put(16, color_space);
  put(20, "XYZ ");
  put(36, "acsp");
  put(68, d50);
  uLongf size = compressBound(132);
  std::string packed(size, '\0');
  compress(reinterpret_cast<Bytef*>(packed.data()), &size, reinterpret_cast<const Bytef*>(profile.data()),
           132);
  packed.resize(size);
  // libpng reads 81 bytes of keyword before the profile: a short chunk is "too short" to it.
  return std::string(70, 'k') + std::string(2, '\0') + packed;
}

}  // namespace cinebar_png_test
