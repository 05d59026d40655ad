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
  home_ = fs::current_path();
  std::string dir = ::testing::TempDir() + "cinebar-tool-XXXXXX";
  ASSERT_NE(mkdtemp(dir.data()), nullptr);
  fs::current_path(dir_ = dir);
}

void ToolTest::TearDown() {
  if (dir_.empty()) return;
  fs::current_path(home_);
  fs::remove_all(dir_);
}

Outcome ToolTest::Run(std::vector<std::string> args) { return Run(std::move(args), nullptr, nullptr); }

Outcome ToolTest::Run(std::vector<std::string> args, std::FILE* in, std::FILE* out_file) {
  args.insert(args.end(), {"--module", CINEBAR_MODULE_PATH});
  std::ostringstream out, err;
  cinebar_tool::Console console{out, err, false, "", nullptr, in, out_file};
  return Outcome{cinebar_tool::RunTool(args, console), out.str(), err.str()};
}

std::vector<std::string> ToolTest::Files(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code missing;
  for (const auto& entry : fs::directory_iterator(folder, missing))
    names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
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
      for (int c = 0; c < channels; ++c) {
        const std::uint32_t h =
            static_cast<std::uint32_t>(x) * 2654435761u ^ static_cast<std::uint32_t>(y) * 40503u;
        wide.push_back(static_cast<std::uint16_t>(deep ? h >> (4 * c) : (h >> (8 * c)) & 0xFF));
      }
  const std::vector<std::uint8_t> narrow(wide.begin(), wide.end());
  const void* buffer = deep ? static_cast<const void*>(wide.data()) : narrow.data();
  ASSERT_NE(png_image_write_to_file(&image, path.c_str(), 0, buffer, 0, nullptr), 0) << image.message;
}

std::string Contents(const std::string& path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

Decoded Decode(const std::string& path) {  // empty when libpng cannot read it
  Decoded d;
  std::FILE* file = std::fopen(path.c_str(), "rb");
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  if (file != nullptr && !setjmp(png_jmpbuf(png))) {
    png_init_io(png, file);
    png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    d = {static_cast<int>(png_get_image_width(png, info)),
         static_cast<int>(png_get_image_height(png, info)),
         png_get_channels(png, info),
         png_get_bit_depth(png, info),
         {}};
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

}  // namespace cinebar_tool_test
