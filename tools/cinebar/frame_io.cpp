// libpng reports errors by longjmp: the functions holding a setjmp point keep
// only plain pointers and call nothing that throws, so a jump back skips no
// destructor; every C++ object they fill lives in the caller.
#include "tools/cinebar/frame_io.h"

#include <libdeflate.h>

#include <csetjmp>
#include <cstdio>
#include <cstring>

#include "tools/cinebar/png_report.h"
#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {
namespace {

using cinebar_simhost::World;

struct ReadStruct {
  png_structp png = nullptr;
  png_infop info = nullptr;
  ~ReadStruct() { png_destroy_read_struct(&png, info ? &info : nullptr, nullptr); }
};

// The header, and libpng told to give rows as the host's ARGB pixels.
bool ReadHeader(png_structp png, png_infop info, std::FILE* file, FrameForm* form, int* passes) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_init_io(png, file);
  png_set_user_limits(png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);  // our own limit, with its own message
  // Every chunk's CRC is still checked; the image data's second checksum costs 8 % of a frame.
  png_set_option(png, PNG_IGNORE_ADLER32, PNG_OPTION_ON);
  png_read_info(png, info);
  const png_byte type = png_get_color_type(png, info);
  form->width = static_cast<int>(png_get_image_width(png, info));
  form->height = static_cast<int>(png_get_image_height(png, info));
  form->deep = png_get_bit_depth(png, info) == 16;
  form->color = (type & PNG_COLOR_MASK_COLOR) != 0;
  form->alpha = (type & PNG_COLOR_MASK_ALPHA) != 0 || png_get_valid(png, info, PNG_INFO_tRNS);
  png_set_expand(png);
  if (!form->color) png_set_gray_to_rgb(png);
  if (form->alpha) {
    png_set_swap_alpha(png);
  } else {
    png_set_filler(png, form->deep ? 0xFFFF : 0xFF, PNG_FILLER_BEFORE);
  }
  if (form->deep) png_set_swap(png);  // native byte order
  *passes = png_set_interlace_handling(png);
  png_read_update_info(png, info);
  return true;
}

void RowToHost16(std::uint16_t* row, int samples) {
  for (int i = 0; i < samples; ++i)
    row[i] = static_cast<std::uint16_t>((std::uint32_t{row[i]} * 65536u + 65535u) / 131070u);
}

bool ReadRows(png_structp png, png_infop info, PF_LayerDef* layer, int passes, bool deep) {
  if (setjmp(png_jmpbuf(png))) return false;
  auto* base = reinterpret_cast<png_bytep>(layer->data);
  for (int pass = 0; pass < passes; ++pass) {
    for (A_long y = 0; y < layer->height; ++y) {
      png_bytep row = base + static_cast<std::size_t>(y) * static_cast<std::size_t>(layer->rowbytes);
      png_read_row(png, row, nullptr);
      if (deep && pass == passes - 1) RowToHost16(reinterpret_cast<std::uint16_t*>(row), layer->width * 4);
    }
  }
  png_read_end(png, info);
  return true;
}

PngChunks Chunks(png_structp png, png_infop info) {
  PngChunks c;
  png_fixed_point gamma = 0;
  if (png_get_gAMA_fixed(png, info, &gamma)) c.gamma = gamma;
  int intent = 0;
  if (png_get_sRGB(png, info, &intent)) c.srgb_intent = intent;
  png_charp name = nullptr;
  int compression = 0;
  png_bytep profile = nullptr;
  png_uint_32 length = 0;
  if (png_get_iCCP(png, info, &name, &compression, &profile, &length) && profile != nullptr) {
    c.icc_name = name;
    c.icc_profile.assign(profile, profile + length);
  }
  png_uint_32 x = 0, y = 0;
  if (png_get_pHYs(png, info, &x, &y, &c.phys_unit)) {
    c.phys_x = x;
    c.phys_y = y;
  }
  png_textp texts = nullptr;
  const int count = png_get_text(png, info, &texts, nullptr);
  for (int i = 0; i < count; ++i) {
    const png_text& t = texts[i];
    c.texts.push_back(
        {t.compression, t.key, t.text ? t.text : "", t.lang ? t.lang : "", t.lang_key ? t.lang_key : ""});
  }
  return c;
}

std::string Size(const FrameForm& f) {
  return std::to_string(f.width) + "x" + std::to_string(f.height) + (f.deep ? " at 16 bits" : " at 8 bits");
}

// Does the result need colour, alpha? Looks only as far as it must; the
// loops are branch-free so that they vectorise.
template <typename Sample>
void Needs(PF_LayerDef* layer, Sample opaque, bool* color, bool* alpha) {
  const auto* base = reinterpret_cast<const std::uint8_t*>(layer->data);
  for (A_long y = 0; y < layer->height && !(*color && *alpha); ++y) {
    const auto* p = reinterpret_cast<const Sample*>(base + static_cast<std::size_t>(y) *
                                                               static_cast<std::size_t>(layer->rowbytes));
    unsigned c = 0, a = 0;
    for (A_long x = 0; x < layer->width; ++x, p += 4) {
      a |= static_cast<unsigned>(p[0] ^ opaque);
      c |= static_cast<unsigned>((p[1] ^ p[2]) | (p[2] ^ p[3]));
    }
    *color |= c != 0;
    *alpha |= a != 0;
  }
}

std::uint16_t HostToPng16(std::uint16_t s) {
  return s >= 32768 ? 65535 : static_cast<std::uint16_t>((std::uint32_t{s} * 131070u + 32768u) >> 16);
}

// One row of ARGB pixels in the file's channel order (alpha last, grey from red).
template <typename Sample, bool kColor, bool kAlpha>
void PackRow(const Sample* p, int width, png_bytep out) {
  constexpr int kChannels = (kColor ? 3 : 1) + (kAlpha ? 1 : 0);
  for (int x = 0; x < width; ++x, p += 4) {
    Sample s[4] = {p[1], kColor ? p[2] : p[0], kColor ? p[3] : p[0], p[0]};
    for (int i = 0; i < kChannels; ++i) {
      if constexpr (sizeof(Sample) == 1) {
        out[i] = s[i];
      } else {
        const std::uint16_t v = HostToPng16(s[i]);
        out[2 * i] = static_cast<png_byte>(v >> 8);
        out[2 * i + 1] = static_cast<png_byte>(v);
      }
    }
    out += kChannels * sizeof(Sample);
  }
}

template <typename Sample>
void PackRow(const std::uint8_t* src, int width, bool color, bool alpha, png_bytep out) {
  const auto* p = reinterpret_cast<const Sample*>(src);
  if (color && alpha) PackRow<Sample, true, true>(p, width, out);
  if (color && !alpha) PackRow<Sample, true, false>(p, width, out);
  if (!color && alpha) PackRow<Sample, false, true>(p, width, out);
  if (!color && !alpha) PackRow<Sample, false, false>(p, width, out);
}

void Put32(std::string& out, std::uint32_t v) {
  for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>(v >> shift);
}

// A PNG chunk: length, type, data, CRC of type and data.
void Chunk(std::FILE* file, const char* type, const void* data, std::size_t size) {
  std::string head;
  Put32(head, static_cast<std::uint32_t>(size));
  head.append(type, 4);
  std::uint32_t crc = libdeflate_crc32(0, type, 4);
  crc = libdeflate_crc32(crc, data, size);
  std::string tail;
  Put32(tail, crc);
  std::fwrite(head.data(), 1, head.size(), file);
  std::fwrite(data, 1, size, file);
  std::fwrite(tail.data(), 1, tail.size(), file);
}

void Chunk(std::FILE* file, const char* type, const std::string& data) {
  Chunk(file, type, data.data(), data.size());
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

// A thread's scratch memory, kept from frame to frame and never cleared.
struct Scratch {
  std::unique_ptr<png_byte[]> bytes;
  std::size_t size = 0;
  png_bytep Get(std::size_t n) {
    if (n > size) {
      bytes.reset();
      bytes.reset(new png_byte[n]);
      size = n;
    }
    return bytes.get();
  }
};

std::string Zlib(int level, const void* data, std::size_t size) {
  libdeflate_compressor* c = Compressor(level);
  std::string out(libdeflate_zlib_compress_bound(c, size), '\0');
  out.resize(libdeflate_zlib_compress(c, data, size, out.data(), out.size()));
  return out;
}

void AncillaryChunks(std::FILE* file, const PngChunks& c, int level) {
  std::string data;
  if (!c.icc_profile.empty()) {
    data = c.icc_name + std::string(2, '\0') + Zlib(level, c.icc_profile.data(), c.icc_profile.size());
    Chunk(file, "iCCP", data);
  } else if (c.srgb_intent) {
    Chunk(file, "sRGB", std::string(1, static_cast<char>(*c.srgb_intent)));
  }
  if (c.gamma) {
    data.clear();
    Put32(data, static_cast<std::uint32_t>(*c.gamma));
    Chunk(file, "gAMA", data);
  }
  if (c.phys_x) {
    data.clear();
    Put32(data, *c.phys_x);
    Put32(data, *c.phys_y);
    data += static_cast<char>(c.phys_unit);
    Chunk(file, "pHYs", data);
  }
  for (const PngChunks::Text& t : c.texts) {
    const std::string key = t.key + std::string(1, '\0');
    if (t.compression == PNG_TEXT_COMPRESSION_NONE) {
      Chunk(file, "tEXt", key + t.text);
    } else if (t.compression == PNG_TEXT_COMPRESSION_zTXt) {
      Chunk(file, "zTXt", key + std::string(1, '\0') + Zlib(level, t.text.data(), t.text.size()));
    } else {
      const bool packed = t.compression == PNG_ITXT_COMPRESSION_zTXt;
      data = key + std::string(1, packed ? '\1' : '\0') + std::string(1, '\0') + t.lang +
             std::string(1, '\0') + t.lang_key + std::string(1, '\0') +
             (packed ? Zlib(level, t.text.data(), t.text.size()) : t.text);
      Chunk(file, "iTXt", data);
    }
  }
}

}  // namespace

FrameForm ReadFrame(const std::string& path, std::unique_ptr<World>& world) {
  std::FILE* opened = std::fopen(path.c_str(), "rb");
  if (opened == nullptr) throw ToolError(kExitInput, "cannot open " + path + ": " + std::strerror(errno));
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(opened, &std::fclose);
  png_byte signature[8] = {};
  if (std::fread(signature, 1, sizeof signature, file.get()) != sizeof signature ||
      png_sig_cmp(signature, 0, sizeof signature) != 0)
    throw ToolError(kExitInput, path + " is not a PNG file");
  std::rewind(file.get());
  PngReport report;
  ReadStruct s;
  s.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &report, OnPngError, OnPngWarning);
  if (s.png != nullptr) s.info = png_create_info_struct(s.png);
  if (s.info == nullptr) throw std::bad_alloc();
  FrameForm form;
  int passes = 1;
  if (!ReadHeader(s.png, s.info, file.get(), &form, &passes))
    throw ToolError(kExitInput, "cannot read " + path + ": " + report.message);
  const std::uint64_t bytes = std::uint64_t(form.width) * std::uint64_t(form.height) * (form.deep ? 8 : 4);
  if (bytes > kMaxWorldBytes) {
    throw ToolError(kExitInput, path + " is " + Size(form) + ", which needs " + std::to_string(bytes >> 20) +
                                    " MiB; the simulated host's worlds hold at most " +
                                    std::to_string(kMaxWorldBytes >> 20) + " MiB");
  }
  if (!world || world->width() != form.width || world->height() != form.height ||
      world->deep() != form.deep) {
    world.reset();
    world = std::make_unique<World>(form.width, form.height, form.deep);
  }
  if (!ReadRows(s.png, s.info, world->layer(), passes, form.deep))
    throw ToolError(kExitInput, "cannot read " + path + ": " + report.message);
  form.chunks = Chunks(s.png, s.info);
  return form;
}

std::string WriteFrame(std::FILE* file, World& world, const FrameForm& input, const WriteSettings& settings) {
  PF_LayerDef* layer = world.layer();
  bool color = input.color, alpha = input.alpha;
  if (world.deep()) {
    Needs<std::uint16_t>(layer, 32768, &color, &alpha);
  } else {
    Needs<std::uint8_t>(layer, 255, &color, &alpha);
  }
  const std::size_t pixel =
      static_cast<std::size_t>((color ? 3 : 1) + (alpha ? 1 : 0)) * (world.deep() ? 2 : 1);
  const std::size_t stride = 1 + static_cast<std::size_t>(layer->width) * pixel;
  // The rows as the file holds them, each after its filter byte: none for
  // speed, Sub (difference to the pixel on the left) for size.
  const bool sub = settings.level > 3;
  thread_local Scratch rows_memory, packed_memory;
  const std::size_t rows_size = stride * static_cast<std::size_t>(layer->height);
  png_bytep rows = rows_memory.Get(rows_size);
  const auto* base = reinterpret_cast<const std::uint8_t*>(layer->data);
  for (A_long y = 0; y < layer->height; ++y) {
    png_bytep row = rows + stride * static_cast<std::size_t>(y);
    const std::uint8_t* src = base + static_cast<std::size_t>(y) * static_cast<std::size_t>(layer->rowbytes);
    if (world.deep()) {
      PackRow<std::uint16_t>(src, layer->width, color, alpha, row + 1);
    } else {
      PackRow<std::uint8_t>(src, layer->width, color, alpha, row + 1);
    }
    row[0] = sub ? 1 : 0;
    if (sub) {
      for (std::size_t i = stride - 1; i > pixel; --i)
        row[i] = static_cast<png_byte>(row[i] - row[i - pixel]);
    }
  }
  std::string header;
  Put32(header, static_cast<std::uint32_t>(layer->width));
  Put32(header, static_cast<std::uint32_t>(layer->height));
  header += static_cast<char>(world.deep() ? 16 : 8);
  header += static_cast<char>((color ? PNG_COLOR_MASK_COLOR : 0) | (alpha ? PNG_COLOR_MASK_ALPHA : 0));
  header += std::string(3, '\0');  // deflate, adaptive filtering, no interlace
  static const png_byte kSignature[8] = {137, 80, 78, 71, 13, 10, 26, 10};
  std::fwrite(kSignature, 1, sizeof kSignature, file);
  Chunk(file, "IHDR", header);
  AncillaryChunks(file, input.chunks, settings.level);
  libdeflate_compressor* c = Compressor(settings.level);
  const std::size_t bound = libdeflate_zlib_compress_bound(c, rows_size);
  png_bytep packed = packed_memory.Get(bound);
  Chunk(file, "IDAT", packed, libdeflate_zlib_compress(c, rows, rows_size, packed, bound));
  Chunk(file, "IEND", "", 0);
  return "";
}

}  // namespace cinebar_tool
