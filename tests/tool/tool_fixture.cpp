#include "tool_fixture.h"

#include <dirent.h>
#include <png.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "tools/cinebar/tool.h"

namespace cinebar_tool_test {

void ToolTest::SetUp() {
  std::string pattern = ::testing::TempDir() + "cinebar-tool-XXXXXX";
  ASSERT_NE(mkdtemp(pattern.data()), nullptr);
  dir_ = pattern;
}

void ToolTest::TearDown() {
  const std::string command = "rm -rf '" + dir_ + "'";
  if (!dir_.empty()) {
    EXPECT_EQ(std::system(command.c_str()), 0);
  }
}

Outcome ToolTest::Run(std::vector<std::string> args) {
  args.push_back("--module");
  args.push_back(CINEBAR_MODULE_PATH);
  std::ostringstream out, err;
  cinebar_tool::Console console{out, err, false, "", nullptr};
  Outcome outcome;
  outcome.code = cinebar_tool::RunTool(args, console);
  outcome.out = out.str();
  outcome.err = err.str();
  return outcome;
}

std::vector<std::string> ToolTest::Files(const std::string& sub) const {
  std::vector<std::string> names;
  DIR* dir = opendir((sub.empty() ? dir_ : Path(sub)).c_str());
  if (dir == nullptr) return names;
  while (const dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  closedir(dir);
  std::sort(names.begin(), names.end());
  return names;
}

void ToolTest::WriteText(const std::string& name, const std::string& text) const {
  std::ofstream(Path(name), std::ios::binary) << text;
}

cinebar_tool::Image PatternImage(int width, int height, bool deep) {
  cinebar_tool::Image image(width, height, deep);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const std::uint32_t h =
          static_cast<std::uint32_t>(x) * 2654435761u ^ static_cast<std::uint32_t>(y) * 40503u;
      for (int c = 0; c < 4; ++c)
        image.at(x, y)[c] =
            static_cast<std::uint16_t>(deep ? (h >> (4 * c)) & 0xFFFF : (h >> (8 * c)) & 0xFF);
    }
  }
  return image;
}

void WriteFormatPng(const std::string& path, int width, int height, const char* layout, bool deep,
                    const std::function<std::uint16_t(int, int, int)>& sample) {
  png_image image;
  std::memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(width);
  image.height = static_cast<png_uint_32>(height);
  const std::string kind = layout;
  const int channels = kind == "gray" ? 1 : kind == "rgb" ? 3 : 4;
  image.format = (channels == 1   ? PNG_FORMAT_GRAY
                  : channels == 3 ? PNG_FORMAT_RGB
                                  : PNG_FORMAT_RGBA) |
                 (deep ? PNG_FORMAT_FLAG_LINEAR : 0u);
  std::vector<std::uint16_t> wide(static_cast<std::size_t>(width * height * channels));
  std::vector<std::uint8_t> narrow(wide.size());
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      for (int c = 0; c < channels; ++c) {
        const std::size_t i = static_cast<std::size_t>((y * width + x) * channels + c);
        wide[i] = sample(x, y, c);
        narrow[i] = static_cast<std::uint8_t>(wide[i]);
      }
    }
  }
  const void* buffer = deep ? static_cast<const void*>(wide.data()) : narrow.data();
  ASSERT_NE(png_image_write_to_file(&image, path.c_str(), 0, buffer, 0, nullptr), 0) << image.message;
}

::testing::AssertionResult OneLineError(const Outcome& outcome) {
  const std::string& err = outcome.err;
  if (err.rfind("cinebar: ", 0) != 0) return ::testing::AssertionFailure() << "stderr: \"" << err << "\"";
  if (std::count(err.begin(), err.end(), '\n') != 1 || err.back() != '\n')
    return ::testing::AssertionFailure() << "not one line: \"" << err << "\"";
  return ::testing::AssertionSuccess();
}

}  // namespace cinebar_tool_test
