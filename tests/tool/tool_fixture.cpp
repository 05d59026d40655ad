#include "tool_fixture.h"

#include <png.h>
#include <stdlib.h>
#include <zlib.h>

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "tools/cinebar/tool.h"

namespace fs = std::filesystem;

namespace cinebar_tool_test {

void ToolTest::SetUp() {
  std::string pattern = ::testing::TempDir() + "cinebar-tool-XXXXXX";
  ASSERT_NE(mkdtemp(pattern.data()), nullptr);
  home_ = fs::current_path();
  dir_ = pattern;
  fs::current_path(dir_);
}

void ToolTest::TearDown() {
  if (dir_.empty()) return;
  fs::current_path(home_);
  fs::remove_all(dir_);
}

Outcome ToolTest::Run(std::vector<std::string> args) {
  args.insert(args.end(), {"--module", CINEBAR_MODULE_PATH});
  std::ostringstream out, err;
  cinebar_tool::Console console{out, err, false, "", nullptr};
  const int code = cinebar_tool::RunTool(args, console);
  return Outcome{code, out.str(), err.str()};
}

std::vector<std::string> ToolTest::Files(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code missing;
  for (const auto& entry : fs::directory_iterator(folder, missing))
    names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

std::uint16_t Sample(int x, int y, int channel, bool deep) {
  const std::uint32_t h =
      static_cast<std::uint32_t>(x) * 2654435761u ^ static_cast<std::uint32_t>(y) * 40503u;
  return static_cast<std::uint16_t>(deep ? (h >> (4 * channel)) & 0xFFFF : (h >> (8 * channel)) & 0xFF);
}

void WritePattern(const std::string& path, int width, int height, const std::string& layout, bool deep) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(width);
  image.height = static_cast<png_uint_32>(height);
  const int channels = layout == "gray" ? 1 : layout == "ga" ? 2 : layout == "rgb" ? 3 : 4;
  const png_uint_32 formats[] = {PNG_FORMAT_GRAY, PNG_FORMAT_GA, PNG_FORMAT_RGB, PNG_FORMAT_RGBA};
  image.format = formats[channels - 1] | (deep ? PNG_FORMAT_FLAG_LINEAR : 0u);
  std::vector<std::uint16_t> wide;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      for (int c = 0; c < channels; ++c) wide.push_back(Sample(x, y, c, deep));
  const std::vector<std::uint8_t> narrow(wide.begin(), wide.end());
  const void* buffer = deep ? static_cast<const void*>(wide.data()) : narrow.data();
  ASSERT_NE(png_image_write_to_file(&image, path.c_str(), 0, buffer, 0, nullptr), 0) << image.message;
}

std::string Contents(const std::string& path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

Decoded Decode(const std::string& path) {
  Decoded d;
  std::FILE* file = std::fopen(path.c_str(), "rb");
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  if (file == nullptr || setjmp(png_jmpbuf(png))) {
    ADD_FAILURE() << "cannot decode " << path;
  } else {
    png_init_io(png, file);
    png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    d.width = static_cast<int>(png_get_image_width(png, info));
    d.height = static_cast<int>(png_get_image_height(png, info));
    d.channels = png_get_channels(png, info);
    d.depth = png_get_bit_depth(png, info);
    const png_bytepp rows = png_get_rows(png, info);
    for (int y = 0; y < d.height; ++y)
      for (int i = 0; i < d.width * d.channels; ++i)
        d.samples.push_back(d.depth == 16
                                ? static_cast<std::uint16_t>(rows[y][2 * i] << 8 | rows[y][2 * i + 1])
                                : rows[y][i]);
  }
  png_destroy_read_struct(&png, &info, nullptr);
  if (file != nullptr) std::fclose(file);
  return d;
}

std::string PngChunk(const std::string& type, const std::string& data) {
  const std::string body = type + data;
  std::string chunk;
  for (const uLong v :
       {uLong(data.size()), crc32(0, reinterpret_cast<const Bytef*>(body.data()), uInt(body.size()))})
    for (int shift = 24; shift >= 0; shift -= 8) chunk += static_cast<char>(v >> shift);
  return chunk.insert(4, body);
}

std::string Png(const std::string& header, const std::string& idat) {
  return "\x89PNG\r\n\x1a\n" + PngChunk("IHDR", header + std::string(3, '\0')) + PngChunk("IDAT", idat) +
         PngChunk("IEND", "");
}

std::vector<std::string> Words(const std::string& text) {
  std::istringstream in(text);
  return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

::testing::AssertionResult ErrorLines(const Outcome& outcome) {
  const std::string& err = outcome.err;
  for (std::size_t at = 0; at < err.size(); at = err.find('\n', at) + 1)
    if (err.compare(at, 9, "cinebar: ") != 0 || err.find('\n', at) == std::string::npos)
      return ::testing::AssertionFailure() << "not lines of \"cinebar: ...\": \"" << err << "\"";
  if (err.empty()) return ::testing::AssertionFailure() << "nothing on stderr";
  return ::testing::AssertionSuccess();
}

}  // namespace cinebar_tool_test
