// PNG reading and writing through libpng. libpng reports errors by longjmp:
// the functions that call it keep only plain pointers in their own frames and
// put every C++ object they fill in the caller's frame, so a jump back to the
// setjmp point skips no destructor and leaves no local in doubt.
#include <png.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/cinebar/image.h"
#include "tools/cinebar/png_report.h"
#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {
namespace {

struct ReadState {
  Image* image;
  std::vector<png_bytep> rows;
};

// Sizes the image once libpng knows the header; a C++ call that completes
// before libpng runs again.
void SizeImage(ReadState& state, png_uint_32 width, png_uint_32 height, bool deep) {
  *state.image = Image(static_cast<int>(width), static_cast<int>(height), deep);
  state.rows.resize(height);
  for (png_uint_32 y = 0; y < height; ++y)
    state.rows[y] = reinterpret_cast<png_bytep>(state.image->at(0, static_cast<int>(y)));
}

// Returns false with report->message set when libpng failed.
bool ReadWithLibpng(std::FILE* file, ReadState* state, PngReport* report) {
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, report, OnPngError, OnPngWarning);
  if (png == nullptr) return false;
  png_infop info = png_create_info_struct(png);
  if (info == nullptr || setjmp(png_jmpbuf(png))) {
    png_destroy_read_struct(&png, info ? &info : nullptr, nullptr);
    return false;
  }
  png_init_io(png, file);
  png_set_user_limits(png, 32767, 32767);
  png_read_info(png, info);
  const png_byte depth = png_get_bit_depth(png, info);
  const png_byte type = png_get_color_type(png, info);
  png_set_expand(png);  // palette to RGB, low-depth gray to 8 bits, tRNS to alpha
  if (type == PNG_COLOR_TYPE_GRAY || type == PNG_COLOR_TYPE_GRAY_ALPHA) png_set_gray_to_rgb(png);
  const bool deep = depth == 16;
  if ((type & PNG_COLOR_MASK_ALPHA) == 0 && !png_get_valid(png, info, PNG_INFO_tRNS))
    png_set_filler(png, deep ? 0xFFFF : 0xFF, PNG_FILLER_AFTER);
  // Every sample takes two bytes in memory: 8-bit rows are widened after reading.
  if (deep) png_set_swap(png);  // PNG is big-endian, the samples are native
  png_set_interlace_handling(png);
  png_read_update_info(png, info);
  SizeImage(*state, png_get_image_width(png, info), png_get_image_height(png, info), deep);
  // 8-bit rows land in the first half of each row's storage and are widened afterwards.
  png_read_image(png, state->rows.data());
  png_read_end(png, nullptr);
  png_destroy_read_struct(&png, &info, nullptr);
  return true;
}

// 8-bit samples were read as bytes into the front of each row: spread them
// over the row's 16-bit samples, last first so nothing is overwritten early.
void Widen8(Image& image) {
  for (int y = 0; y < image.height; ++y) {
    std::uint16_t* row = image.at(0, y);
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(row);
    for (int i = image.width * 4 - 1; i >= 0; --i) row[i] = bytes[i];
  }
}

struct WriteState {
  const Image* image;
  std::vector<std::uint8_t> row;  // one row as the file stores it
};

void EncodeRow(WriteState& state, int y) {
  const Image& image = *state.image;
  const std::uint16_t* src = image.at(0, y);
  const std::size_t n = static_cast<std::size_t>(image.width) * 4;
  if (image.deep) {
    for (std::size_t i = 0; i < n; ++i) {
      state.row[2 * i] = static_cast<std::uint8_t>(src[i] >> 8);
      state.row[2 * i + 1] = static_cast<std::uint8_t>(src[i] & 0xFF);
    }
  } else {
    for (std::size_t i = 0; i < n; ++i) state.row[i] = static_cast<std::uint8_t>(src[i]);
  }
}

bool WriteWithLibpng(std::FILE* file, WriteState* state, PngReport* report) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, report, OnPngError, OnPngWarning);
  if (png == nullptr) return false;
  png_infop info = png_create_info_struct(png);
  if (info == nullptr || setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, info ? &info : nullptr);
    return false;
  }
  png_init_io(png, file);
  png_set_compression_level(png, 1);  // previews: speed over size
  png_set_IHDR(png, info, static_cast<png_uint_32>(state->image->width),
               static_cast<png_uint_32>(state->image->height), state->image->deep ? 16 : 8,
               PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (int y = 0; y < state->image->height; ++y) {
    EncodeRow(*state, y);
    png_write_row(png, state->row.data());
  }
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return true;
}

std::string SystemError() { return std::strerror(errno); }

}  // namespace

Image ReadPng(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) throw ToolError(kExitInput, "cannot open " + path + ": " + SystemError());
  png_byte signature[8] = {};
  const std::size_t got = std::fread(signature, 1, sizeof signature, file);
  if (got != sizeof signature || png_sig_cmp(signature, 0, sizeof signature) != 0) {
    std::fclose(file);
    throw ToolError(kExitInput, path + " is not a PNG file");
  }
  std::rewind(file);
  Image image;
  ReadState state{&image, {}};
  PngReport report;
  const bool ok = ReadWithLibpng(file, &state, &report);
  std::fclose(file);
  if (!ok) {
    throw ToolError(kExitInput, "cannot read " + path + ": " +
                                    (report.message[0] ? report.message : "libpng could not start"));
  }
  if (!image.deep) Widen8(image);
  return image;
}

void WritePng(const std::string& path, const Image& image) {
  const std::size_t slash = path.find_last_of('/');
  const std::string folder = slash == std::string::npos ? "" : path.substr(0, slash + 1);
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  std::string temp = folder + "." + name + ".XXXXXX";
  const int fd = mkstemp(temp.data());
  if (fd < 0) throw ToolError(kExitOutput, "cannot write " + path + ": " + SystemError());
  std::FILE* file = fdopen(fd, "wb");
  if (file == nullptr) {
    const std::string why = SystemError();
    close(fd);
    unlink(temp.c_str());
    throw ToolError(kExitOutput, "cannot write " + path + ": " + why);
  }
  WriteState state{&image,
                   std::vector<std::uint8_t>(static_cast<std::size_t>(image.width) * (image.deep ? 8 : 4))};
  PngReport report;
  bool ok = WriteWithLibpng(file, &state, &report);
  std::string why = report.message[0] ? report.message : "libpng could not start";
  if (std::fflush(file) != 0 || std::ferror(file)) {
    ok = false;
    why = SystemError();
  }
  if (std::fclose(file) != 0 && ok) {
    ok = false;
    why = SystemError();
  }
  // mkstemp creates the file for its owner only; the result gets the usual mode.
  if (ok) {
    const mode_t mask = umask(0);
    umask(mask);
    chmod(temp.c_str(), 0666 & ~mask);
  }
  if (ok && std::rename(temp.c_str(), path.c_str()) != 0) {
    ok = false;
    why = SystemError();
  }
  if (!ok) {
    unlink(temp.c_str());
    throw ToolError(kExitOutput, "cannot write " + path + ": " + why);
  }
}

}  // namespace cinebar_tool
