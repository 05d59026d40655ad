// The one PNG reader and writer of the tool, on libdeflate: the file is read
// whole, its image data inflated in one call (the Adler-32 checked with it)
// and unfiltered here; the writer deflates the filtered rows in one call.
#include <libdeflate.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "tools/cinebar/frame.h"
#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {
namespace {

// The most a deflate stream inflates to: 258 bytes from a little over two bits.
constexpr std::uint64_t kMaxInflation = 1032;
constexpr char kSignature[] = "\x89PNG\r\n\x1a\n";
// Ancillary chunks that stay true of an output whose picture samples are the
// input's; chunks not named here are copied when their name marks them safe to copy.
constexpr const char* kTrue[] = {"gAMA", "cHRM", "sRGB", "iCCP", "pHYs", "eXIf", "tEXt",
                                 "zTXt", "iTXt", "sPLT", "oFFs", "pCAL", "sCAL"};

std::uint32_t Be32(const std::uint8_t* p) {
  return std::uint32_t{p[0]} << 24 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 8 | p[3];
}

struct Png {  // what the chunks say, the image data still compressed
  std::uint32_t width = 0, height = 0;
  int depth = 0, type = 0, interlace = 0;
  std::string palette, trns;
  std::string_view idat;  // the one IDAT chunk in the file, or the thread's joined copy of several
};

[[noreturn]] void Bad(const std::string& path, const std::string& why) {
  throw ToolError(kExitInput, "cannot read " + path + ": " + why);
}

std::string Size(const Frame& f) {
  return std::to_string(f.width) + "x" + std::to_string(f.height) + (f.deep ? " at 16 bits" : " at 8 bits");
}

// The frame's memory and its image data as the file's would inflate it.
void Check(const std::string& path, const Png& png, const Frame& f) {
  const std::uint64_t world = std::uint64_t{png.width} * png.height * (f.deep ? 8 : 4);
  const int bits = png.depth * (png.type == 3 ? 1 : f.channels - (png.trns.empty() ? 0 : 1));
  const std::uint64_t data = std::uint64_t{png.height} * (1 + (std::uint64_t{png.width} * bits + 7) / 8);
  if (png.width > kMaxSide || png.height > kMaxSide)
    throw ToolError(kExitInput, path + " is " + std::to_string(png.width) + "x" + std::to_string(png.height) +
                                    ": the effect takes at most " + std::to_string(kMaxSide) +
                                    " pixels a side");
  if (world > kMaxWorldBytes)
    throw ToolError(kExitInput, path + " is " + Size(f) + ", which needs " + std::to_string(world >> 20) +
                                    " MiB; the simulated host's worlds hold at most " +
                                    std::to_string(kMaxWorldBytes >> 20) + " MiB");
  if (data > png.idat.size() * kMaxInflation)
    Bad(path, "its " + std::to_string(png.idat.size()) + " bytes of image data cannot hold a " + Size(f) +
                  " picture");
}

// Walks the chunks (CRCs checked), keeping the header, palette, tRNS, image
// data and the ancillary chunks sorted into copied and dropped.
Png Parse(const std::string& path, const std::string& file, Frame& frame) {
  if (file.compare(0, 8, kSignature, 8) != 0) throw ToolError(kExitInput, path + " is not a PNG file");
  Png png;
  frame.chunks.clear();
  frame.dropped.clear();
  frame.pixel_aspect.clear();
  frame.phys_x = frame.phys_y = 0;
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(file.data());
  for (std::size_t at = 8;;) {
    if (file.size() - at < 12) Bad(path, "the file ends inside a chunk (no IEND)");
    const std::uint32_t length = Be32(bytes + at);
    const std::string type = file.substr(at + 4, 4);
    if (length > file.size() - at - 12) Bad(path, "the " + type + " chunk runs past the end of the file");
    const std::string_view data(file.data() + at + 8, length);
    if (libdeflate_crc32(0, bytes + at + 4, length + 4) != Be32(bytes + at + 8 + length))
      Bad(path, "the " + type + " chunk fails its CRC");
    at += 12 + length;
    if (at == 20 + length && (type != "IHDR" || length != 13)) Bad(path, "it does not start with a header");
    if (type == "IHDR") {
      const auto* h = bytes + 16;
      png.width = Be32(h), png.height = Be32(h + 4), png.depth = h[8], png.type = h[9], png.interlace = h[12];
      static const char* const kDepths[] = {"\1\2\4\10\20", "", "\10\20", "\1\2\4\10",
                                            "\10\20",       "", "\10\20"};
      if (png.width == 0 || png.height == 0 || png.type > 6 || png.depth == 0 ||
          !std::strchr(kDepths[png.type], png.depth) || h[10] != 0 || h[11] != 0 || png.interlace > 1)
        Bad(path, "its header is not a valid PNG header");
    } else if (type == "PLTE") {
      png.palette = std::string(data);
    } else if (type == "tRNS") {
      png.trns = std::string(data);
    } else if (type == "IDAT") {
      thread_local std::string joined;
      if (png.idat.empty()) {
        png.idat = data;
      } else {
        if (png.idat.data() != joined.data()) joined.assign(png.idat);
        joined += data;
        png.idat = joined;
      }
    } else if (type == "IEND") {
      break;
    } else if (!(type[0] & 0x20)) {
      Bad(path, "it holds the unknown critical chunk " + type);
    } else {
      const bool named =
          std::any_of(std::begin(kTrue), std::end(kTrue), [&](const char* t) { return type == t; });
      // tIME dates a file that is new; sBIT and hIST describe samples and a
      // palette the bars change; a background index or low-depth grey no longer fits.
      const bool stale = type == "bKGD" && (png.type == 3 || png.depth < 8);
      if ((named || ((type[3] & 0x20) && type != "tIME" && type != "sBIT" && type != "hIST")) && !stale) {
        frame.chunks.push_back(Chunk{type, std::string(data)});
      } else if (frame.dropped.find(type) == std::string::npos) {
        frame.dropped += (frame.dropped.empty() ? "" : " ") + type;
      }
      if (type == "pHYs" && length == 9) {
        frame.phys_x = Be32(bytes + at - 13);
        frame.phys_y = Be32(bytes + at - 9);
        frame.pixel_aspect = std::to_string(frame.phys_x) + ":" + std::to_string(frame.phys_y) +
                             " pixels per " + (bytes[at - 5] == 1 ? "metre" : "unit");
      }
    }
  }
  if (png.type == 3 && (png.palette.empty() || png.palette.size() % 3 != 0 || png.palette.size() > 768))
    Bad(path, "its palette is missing or malformed");
  frame.width = static_cast<int>(png.width);
  frame.height = static_cast<int>(png.height);
  frame.channels = (png.type & 2 ? 3 : 1) + ((png.type & 4) || !png.trns.empty() ? 1 : 0);
  frame.deep = png.depth == 16;
  Check(path, png, frame);
  return png;
}

// The file's bytes, in memory kept by the thread for the next file.
const std::string& Load(const std::string& path) {
  thread_local std::string bytes;
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
  struct stat st {};
  if (!file || fstat(fileno(file.get()), &st) != 0)
    throw ToolError(kExitInput, "cannot open " + path + ": " + std::strerror(errno));
  bytes.resize(static_cast<std::size_t>(st.st_size));
  if (std::fread(bytes.data(), 1, bytes.size(), file.get()) != bytes.size())
    throw ToolError(kExitInput, "cannot read " + path + ": " + std::strerror(errno));
  return bytes;
}

// Undoes the row filters of `rows` rows of `stride` bytes (after their filter byte).
bool Unfilter(std::uint8_t* data, std::size_t rows, std::size_t stride, std::size_t bpp) {
  const std::uint8_t* prev = nullptr;
  for (std::size_t r = 0; r < rows; ++r, data += stride + 1) {
    std::uint8_t* x = data + 1;
    const auto left = [&](std::size_t i) { return i >= bpp ? x[i - bpp] : 0; };
    // Filters 0 to 4; on the first row, with no row above, Up, Average and Paeth as 6, 7 and 8.
    switch (data[0] > 4 ? -1 : prev == nullptr && data[0] >= 2 ? data[0] + 4 : data[0]) {
      case 0:
      case 6:  // Up with nothing above
        break;
      case 1:
        for (std::size_t i = bpp; i < stride; ++i) x[i] = static_cast<std::uint8_t>(x[i] + x[i - bpp]);
        break;
      case 2:
        for (std::size_t i = 0; i < stride; ++i) x[i] = static_cast<std::uint8_t>(x[i] + prev[i]);
        break;
      case 3:
        for (std::size_t i = 0; i < stride; ++i)
          x[i] = static_cast<std::uint8_t>(x[i] + (left(i) + prev[i]) / 2);
        break;
      case 7:  // Average with nothing above
        for (std::size_t i = bpp; i < stride; ++i) x[i] = static_cast<std::uint8_t>(x[i] + x[i - bpp] / 2);
        break;
      case 4:
        for (std::size_t i = 0; i < stride; ++i) {
          const int a = left(i), b = prev[i], c = i >= bpp ? prev[i - bpp] : 0;
          const int pa = std::abs(b - c), pb = std::abs(a - c), pc = std::abs(a + b - 2 * c);
          x[i] = static_cast<std::uint8_t>(x[i] + (pa <= pb && pa <= pc ? a : pb <= pc ? b : c));
        }
        break;
      case 8:  // Paeth with nothing above: the left byte
        for (std::size_t i = bpp; i < stride; ++i) x[i] = static_cast<std::uint8_t>(x[i] + x[i - bpp]);
        break;
      default:
        return false;
    }
    prev = x;
  }
  return true;
}

// Sample `index` of a row of `depth`-bit samples.
unsigned SampleAt(const std::uint8_t* row, std::size_t index, int depth) {
  if (depth == 16) return unsigned{row[2 * index]} << 8 | row[2 * index + 1];
  if (depth == 8) return row[index];
  const std::size_t bit = index * static_cast<std::size_t>(depth);
  return (row[bit / 8] >> (8 - depth - bit % 8)) & ((1u << depth) - 1);
}

// Pixel x of an unfiltered row into the frame's form: palette entries,
// low-depth grey widened to 8 bits, tRNS to alpha.
void Expand(const Png& png, const std::uint8_t* row, std::size_t x, std::uint8_t* out, int channels) {
  const int samples = png.type == 3 ? 1 : (png.type & 2 ? 3 : 1) + (png.type & 4 ? 1 : 0);
  unsigned v[4] = {0, 0, 0, 0}, alpha = png.depth == 16 ? 65535u : 255u;
  for (int c = 0; c < samples; ++c)
    v[c] = SampleAt(row, x * static_cast<std::size_t>(samples) + c, png.depth);
  if (png.type & 4) alpha = v[samples - 1];
  if (png.type == 3) {
    const std::size_t i = v[0];
    alpha = i < png.trns.size() ? static_cast<std::uint8_t>(png.trns[i]) : 255;
    for (int c = 0; c < 3; ++c)
      v[c] = i * 3 < png.palette.size() ? static_cast<std::uint8_t>(png.palette[i * 3 + c]) : 0;
  } else if (png.trns.size() >= static_cast<std::size_t>(samples) * 2) {
    const auto* t = reinterpret_cast<const std::uint8_t*>(png.trns.data());
    bool match = true;
    for (int c = 0; c < samples; ++c) match = match && v[c] == (unsigned{t[2 * c]} << 8 | t[2 * c + 1]);
    if (match) alpha = 0;
  }
  if (png.depth < 8 && png.type == 0) v[0] = v[0] * 255 / ((1u << png.depth) - 1);
  v[channels - 1] = channels % 2 == 0 ? alpha : v[channels - 1];
  for (int c = 0; c < channels; ++c) {
    if (png.depth == 16) {
      out[2 * c] = static_cast<std::uint8_t>(v[c] >> 8);
      out[2 * c + 1] = static_cast<std::uint8_t>(v[c]);
    } else {
      out[c] = static_cast<std::uint8_t>(v[c]);
    }
  }
}

void Decode(const std::string& path, const Png& png, Frame& frame) {
  static constexpr int kX0[] = {0, 4, 0, 2, 0, 1, 0}, kY0[] = {0, 0, 4, 0, 2, 0, 1};
  static constexpr int kDx[] = {8, 8, 4, 4, 2, 2, 1}, kDy[] = {8, 8, 8, 4, 4, 2, 2};
  const int samples = png.type == 3 ? 1 : (png.type & 2 ? 3 : 1) + (png.type & 4 ? 1 : 0);
  const std::size_t bits = static_cast<std::size_t>(samples * png.depth),
                    bpp = std::max<std::size_t>(bits / 8, 1);
  const int passes = png.interlace ? 7 : 1;
  std::size_t size = 0;
  const auto pass_size = [&](int p, std::size_t* w, std::size_t* h) {
    *w = png.interlace ? (png.width - kX0[p] + kDx[p] - 1) / kDx[p] : png.width;
    *h = png.interlace ? (png.height - kY0[p] + kDy[p] - 1) / kDy[p] : png.height;
    return *w == 0 || *h == 0 ? 0 : *h * (1 + (*w * bits + 7) / 8);
  };
  std::size_t w = 0, h = 0;
  for (int p = 0; p < passes; ++p) size += pass_size(p, &w, &h);
  thread_local std::vector<std::uint8_t> raw;
  raw.resize(size);
  thread_local std::unique_ptr<libdeflate_decompressor, void (*)(libdeflate_decompressor*)> inflater(
      libdeflate_alloc_decompressor(), &libdeflate_free_decompressor);
  if (!inflater) throw std::bad_alloc();
  std::size_t got = 0;
  const libdeflate_result result =
      libdeflate_zlib_decompress(inflater.get(), png.idat.data(), png.idat.size(), raw.data(), size, &got);
  if (result == LIBDEFLATE_INSUFFICIENT_SPACE) Bad(path, "it holds more image data than its header says");
  if (result != LIBDEFLATE_SUCCESS || got != size) Bad(path, "its image data is corrupt or cut short");
  frame.Resize(frame.width, frame.height, frame.channels, frame.deep);
  std::uint8_t* data = raw.data();
  for (int p = 0; p < passes; ++p) {
    const std::size_t bytes = pass_size(p, &w, &h), stride = (w * bits + 7) / 8;
    if (bytes == 0) continue;
    if (!Unfilter(data, h, stride, bpp)) Bad(path, "its image data has an unknown row filter");
    const bool direct = !png.interlace && png.depth >= 8 && png.type != 3 && png.trns.empty();
    for (std::size_t j = 0; j < h; ++j) {
      const std::uint8_t* row = data + j * (stride + 1) + 1;
      const int y = png.interlace ? kY0[p] + static_cast<int>(j) * kDy[p] : static_cast<int>(j);
      if (direct) {
        std::memcpy(frame.row(y), row, stride);
        continue;
      }
      for (std::size_t i = 0; i < w; ++i) {
        const std::size_t x = png.interlace ? kX0[p] + i * kDx[p] : i;
        Expand(png, row, i, frame.row(y) + x * frame.pixel_bytes(), frame.channels);
      }
    }
    data += bytes;
  }
}

}  // namespace

void Frame::Resize(int w, int h, int c, bool d) {
  width = w;
  height = h;
  channels = c;
  deep = d;
  samples.resize(stride() * static_cast<std::size_t>(h));
}

Frame ReadHeader(const std::string& path) {
  Frame frame;
  Parse(path, Load(path), frame);
  return frame;
}

void ReadFrame(const std::string& path, Frame& frame) {
  const std::string& file = Load(path);
  Decode(path, Parse(path, file, frame), frame);
}

namespace {

void Put32(std::string& out, std::uint32_t v) {
  for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>(v >> shift);
}

// A PNG chunk: length, type, data, CRC of type and data.
void Write(std::FILE* file, const char* type, const void* data, std::size_t size) {
  std::string head, tail;
  Put32(head, static_cast<std::uint32_t>(size));
  head.append(type, 4);
  Put32(tail, libdeflate_crc32(libdeflate_crc32(0, type, 4), data, size));
  std::fwrite(head.data(), 1, head.size(), file);
  std::fwrite(data, 1, size, file);
  std::fwrite(tail.data(), 1, tail.size(), file);
}

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

// The Up filter (each byte less the one above it): one subtraction a byte,
// and on photographs within a few per cent of the best adaptive choice.
void Filter(const Frame& f, std::uint8_t* out, bool up) {
  const std::size_t stride = f.stride();
  for (int y = 0; y < f.height; ++y) {
    const std::uint8_t* row = f.row(y);
    std::uint8_t* o = out + (stride + 1) * static_cast<std::size_t>(y);
    o[0] = up && y > 0 ? 2 : 0;
    if (o[0] == 0) {
      std::memcpy(o + 1, row, stride);
      continue;
    }
    const std::uint8_t* above = row - stride;
    for (std::size_t i = 0; i < stride; ++i) o[1 + i] = static_cast<std::uint8_t>(row[i] - above[i]);
  }
}

}  // namespace

std::string WriteFrame(std::FILE* file, const Frame& frame, const WriteSettings& settings) {
  thread_local std::vector<std::uint8_t> rows, packed;
  const std::size_t size = (frame.stride() + 1) * static_cast<std::size_t>(frame.height);
  rows.resize(size);
  Filter(frame, rows.data(), settings.level > 0);
  libdeflate_compressor* c = Compressor(settings.level);
  packed.resize(libdeflate_zlib_compress_bound(c, size));
  const std::size_t n = libdeflate_zlib_compress(c, rows.data(), size, packed.data(), packed.size());
  std::string header;
  Put32(header, static_cast<std::uint32_t>(frame.width));
  Put32(header, static_cast<std::uint32_t>(frame.height));
  static const char kType[] = {0, 0, 4, 2, 6};  // colour type by channels: grey, grey+alpha, RGB, RGBA
  header += static_cast<char>(frame.deep ? 16 : 8);
  header += kType[frame.channels];
  header += std::string(3, '\0');  // deflate, adaptive filtering, no interlace
  std::fwrite(kSignature, 1, 8, file);
  Write(file, "IHDR", header.data(), header.size());
  for (const Chunk& chunk : frame.chunks)
    Write(file, chunk.type.c_str(), chunk.data.data(), chunk.data.size());
  Write(file, "IDAT", packed.data(), n);
  Write(file, "IEND", "", 0);
  return "";
}

}  // namespace cinebar_tool
