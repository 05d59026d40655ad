// The Windows module file as the host and the system see it: the property
// list, the version, the bitmaps and the manifest, each found in English (US).
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <string>
#include <utility>

#include "expected_pipl.h"

namespace module_test {
namespace {

HMODULE Module() {
  static HMODULE module = LoadLibraryA(CINEBAR_MODULE_PATH);
  return module;
}

// The data of resource (type, name) in English (US), or an empty list.
std::vector<uint8_t> ReadResource(LPCSTR type, LPCSTR name) {
  HRSRC info = Module() ? FindResourceExA(Module(), type, name, MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US))
                        : nullptr;
  HGLOBAL data = info ? LoadResource(Module(), info) : nullptr;
  const auto* p = static_cast<const uint8_t*>(data ? LockResource(data) : nullptr);
  return p ? std::vector<uint8_t>(p, p + SizeofResource(Module(), info)) : std::vector<uint8_t>();
}

class ModuleFile : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(Module(), nullptr) << "LoadLibraryA(" << CINEBAR_MODULE_PATH << "), error " << GetLastError();
  }
};

TEST_F(ModuleFile, VersionIs1_1_12ForARelease) {
  DWORD ignored = 0;
  std::vector<char> block(GetFileVersionInfoSizeA(CINEBAR_MODULE_PATH, &ignored));
  ASSERT_FALSE(block.empty()) << "no version information, error " << GetLastError();
  ASSERT_TRUE(GetFileVersionInfoA(CINEBAR_MODULE_PATH, 0, DWORD(block.size()), block.data()));
  UINT length = 0;
  const auto query = [&](const std::string& path) {
    void* value = nullptr;
    return VerQueryValueA(block.data(), path.c_str(), &value, &length) ? value : nullptr;
  };
  const auto* fixed = static_cast<const DWORD*>(query("\\"));
  ASSERT_TRUE(fixed != nullptr && length == sizeof(VS_FIXEDFILEINFO));
  // Signature, structure version, file and product version 1.1.12.0, the flags
  // mask, no flags (not a debug, pre-release or patched build), OS Windows,
  // type DLL, no subtype, no date.
  const std::vector<DWORD> want = {0xFEEF04BD, 0x10000, 0x10001, 0xC0000, 0x10001, 0xC0000, 0x17,
                                   0,          0x4,     0x2,     0,       0,       0};
  EXPECT_EQ(std::vector<DWORD>(fixed, fixed + want.size()), want);
  const auto* translation = static_cast<const DWORD*>(query("\\VarFileInfo\\Translation"));
  ASSERT_TRUE(translation != nullptr && length == 4);
  EXPECT_EQ(*translation, 0x04B00409u);  // English (US), Unicode: the string table below
  for (const auto& [key, text] :
       {std::pair{"FileVersion", "1.1.12"}, std::pair{"ProductVersion", "1.1.12"},
        std::pair{"InternalName", "KSCinebar"}, std::pair{"OriginalFilename", "KSCinebar.aex"},
        std::pair{"CompanyName", "Tarnwick"}, std::pair{"ProductName", "Cinebar"},
        std::pair{"FileDescription", "Cinebar aspect-ratio bars effect for After Effects"}})
    EXPECT_STREQ(static_cast<const char*>(query(std::string("\\StringFileInfo\\040904B0\\") + key)), text)
        << key;
}

TEST_F(ModuleFile, BitmapsAndManifestAreThereAndDecode) {
  const struct {
    int id;
    LONG width, height;
    WORD bits;
  } rows[] = {{17833, 639, 248, 24},
              {17834, 639, 248, 24},
              {17835, 376, 500, 8},
              {18736, 1028, 245, 24},
              {18737, 1028, 245, 24}};
  for (const auto& row : rows) {
    SCOPED_TRACE("bitmap " + std::to_string(row.id));
    const std::vector<uint8_t> data = ReadResource(MAKEINTRESOURCEA(2), MAKEINTRESOURCEA(row.id));
    BITMAPINFOHEADER h{};
    ASSERT_GE(data.size(), sizeof h);
    memcpy(&h, data.data(), sizeof h);
    EXPECT_EQ((std::vector<LONG>{LONG(h.biSize), h.biWidth, h.biHeight, h.biPlanes, h.biBitCount,
                                 LONG(h.biCompression)}),
              (std::vector<LONG>{LONG(sizeof h), row.width, row.height, 1, row.bits, BI_RGB}));
    HANDLE image = LoadImageA(Module(), MAKEINTRESOURCEA(row.id), IMAGE_BITMAP, 0, 0, LR_CREATEDIBSECTION);
    EXPECT_NE(image, nullptr) << "the system does not decode it, error " << GetLastError();
    DeleteObject(image);
  }
  const std::vector<uint8_t> manifest = ReadResource(MAKEINTRESOURCEA(24), MAKEINTRESOURCEA(2));
  EXPECT_NE(std::string(manifest.begin(), manifest.end()).find("level=\"asInvoker\" uiAccess=\"false\""),
            std::string::npos);
}

// Byte for byte the table of expected_pipl.h, written out field by field as the host reads it.
TEST_F(ModuleFile, PropertyListMatchesTheTableByteForByte) {
  const std::vector<uint8_t> got = ReadResource("PiPL", MAKEINTRESOURCEA(16000));
  const std::vector<uint8_t>& want = ExpectedPiPL();
  ASSERT_EQ(want.size(), 314u);  // the table: 10-byte header, 13 heads of 16 bytes, 96 bytes of values
  ASSERT_EQ(got.size(), want.size()) << "the \"PiPL\" 16000 resource in English (US)";
  const auto diff = std::mismatch(got.begin(), got.end(), want.begin()).first;
  EXPECT_TRUE(diff == got.end()) << "first difference at byte offset " << diff - got.begin();
}

}  // namespace
}  // namespace module_test
