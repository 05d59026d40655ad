// libpng reports errors by longjmp: the functions holding a setjmp point keep
// only plain pointers and call nothing that throws, so a jump back skips no
// destructor; every C++ object they fill lives in the caller.
#include "tools/cinebar/frame_io.h"

#include <csetjmp>
#include <cstdio>
#include <cstring>

#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {
namespace {

using cinebar_simhost::World;

struct Report {
  char message[200] = "";
};

void OnError(png_structp png, png_const_charp message) {
  auto* report = static_cast<Report*>(png_get_error_ptr(png));
  std::snprintf(report->message, sizeof report->message, "%s", message);
  png_longjmp(png, 1);
}

void OnWarning(png_structp, png_const_charp) {}

struct ReadStruct {
  png_structp png = nullptr;
  png_infop info = nullptr;
  ~ReadStruct() { png_destroy_read_struct(&png, info ? &info : nullptr, nullptr); }
};

struct WriteStruct {
  png_structp png = nullptr;
  png_infop info = nullptr;
  ~WriteStruct() { png_destroy_write_struct(&png, info ? &info : nullptr); }
};

// The header, and libpng told to give rows as the host's ARGB pixels.
bool ReadHeader(png_structp png, png_infop info, std::FILE* file, FrameForm* form, int* passes) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_init_io(png, file);
  png_set_user_limits(png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);  // our own limit, with its own message
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

// Does the result need colour, alpha? Looks only as far as it must.
template <typename Sample>
void Needs(PF_LayerDef* layer, Sample opaque, bool* color, bool* alpha) {
  const auto* base = reinterpret_cast<const std::uint8_t*>(layer->data);
  for (A_long y = 0; y < layer->height && !(*color && *alpha); ++y) {
    const auto* p = reinterpret_cast<const Sample*>(base + static_cast<std::size_t>(y) *
                                                               static_cast<std::size_t>(layer->rowbytes));
    bool c = false, a = false;
    for (A_long x = 0; x < layer->width; ++x, p += 4) {
      a |= p[0] != opaque;
      c |= (p[1] != p[2]) | (p[2] != p[3]);
    }
    *color |= c;
    *alpha |= a;
  }
}

std::uint16_t HostToPng16(std::uint16_t s) {
  return s >= 32768 ? 65535 : static_cast<std::uint16_t>((std::uint32_t{s} * 131070u + 32768u) >> 16);
}

// One row of ARGB pixels in the file's channel order (alpha last, grey from red).
template <typename Sample>
void PackRow(const Sample* p, int width, bool color, bool alpha, png_bytep out) {
  for (int x = 0; x < width; ++x, p += 4) {
    Sample s[4];
    int n = 0;
    s[n++] = p[1];
    if (color) {
      s[n++] = p[2];
      s[n++] = p[3];
    }
    if (alpha) s[n++] = p[0];
    for (int i = 0; i < n; ++i) {
      if constexpr (sizeof(Sample) == 1) {
        *out++ = s[i];
      } else {
        const std::uint16_t v = HostToPng16(s[i]);
        *out++ = static_cast<png_byte>(v >> 8);
        *out++ = static_cast<png_byte>(v);
      }
    }
  }
}

struct WriteJob {
  PF_LayerDef* layer;
  bool deep, color, alpha;
  const PngChunks* chunks;
  const WriteSettings* settings;
  png_bytep row;
  std::vector<png_text>* texts;
};

bool WriteRows(png_structp png, png_infop info, std::FILE* file, const WriteJob* job) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_init_io(png, file);
  png_set_benign_errors(png, 1);
  png_set_compression_level(png, job->settings->level);
  png_set_filter(png, PNG_FILTER_TYPE_BASE, job->settings->level <= 3 ? PNG_FILTER_NONE : PNG_ALL_FILTERS);
  png_set_compression_buffer_size(png, 1 << 16);
  const int type = (job->color ? PNG_COLOR_MASK_COLOR : 0) | (job->alpha ? PNG_COLOR_MASK_ALPHA : 0);
  png_set_IHDR(png, info, static_cast<png_uint_32>(job->layer->width),
               static_cast<png_uint_32>(job->layer->height), job->deep ? 16 : 8, type, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  const PngChunks& c = *job->chunks;
  if (c.gamma) png_set_gAMA_fixed(png, info, *c.gamma);
  if (c.srgb_intent) png_set_sRGB(png, info, *c.srgb_intent);
  if (!c.icc_profile.empty()) {
    png_set_iCCP(png, info, c.icc_name.c_str(), PNG_COMPRESSION_TYPE_BASE, c.icc_profile.data(),
                 static_cast<png_uint_32>(c.icc_profile.size()));
  }
  if (c.phys_x) png_set_pHYs(png, info, *c.phys_x, *c.phys_y, c.phys_unit);
  if (!job->texts->empty()) png_set_text(png, info, job->texts->data(), static_cast<int>(job->texts->size()));
  png_write_info(png, info);
  const auto* base = reinterpret_cast<const std::uint8_t*>(job->layer->data);
  for (A_long y = 0; y < job->layer->height; ++y) {
    const std::uint8_t* src =
        base + static_cast<std::size_t>(y) * static_cast<std::size_t>(job->layer->rowbytes);
    if (job->deep) {
      PackRow(reinterpret_cast<const std::uint16_t*>(src), job->layer->width, job->color, job->alpha,
              job->row);
    } else {
      PackRow(src, job->layer->width, job->color, job->alpha, job->row);
    }
    png_write_row(png, job->row);
  }
  png_write_end(png, nullptr);
  return true;
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
  Report report;
  ReadStruct s;
  s.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &report, OnError, OnWarning);
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
  const int channels = (color ? 3 : 1) + (alpha ? 1 : 0);
  std::vector<png_byte> row(static_cast<std::size_t>(layer->width) * channels * (world.deep() ? 2 : 1));
  std::vector<png_text> texts;
  for (const PngChunks::Text& t : input.chunks.texts) {
    png_text text{};
    text.compression = t.compression;
    text.key = const_cast<png_charp>(t.key.c_str());
    text.text = const_cast<png_charp>(t.text.c_str());
    text.text_length = t.text.size();
    text.lang = const_cast<png_charp>(t.lang.c_str());
    text.lang_key = const_cast<png_charp>(t.lang_key.c_str());
    texts.push_back(text);
  }
  Report report;
  WriteStruct s;
  s.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &report, OnError, OnWarning);
  if (s.png != nullptr) s.info = png_create_info_struct(s.png);
  if (s.info == nullptr) throw std::bad_alloc();
  const WriteJob job{layer, world.deep(), color, alpha, &input.chunks, &settings, row.data(), &texts};
  return WriteRows(s.png, s.info, file, &job) ? "" : report.message;
}

}  // namespace cinebar_tool
