// The Windows module file as the host and the system see it: every resource
// with its language, the version, the manifest and the bitmaps.
#include <gtest/gtest.h>
#include <windows.h>

#include <set>
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

// Every resource as "type name language".
struct Listing {
  std::set<std::string>* all;
  std::string prefix;
};
std::string Id(LPCSTR id) {
  return IS_INTRESOURCE(id) ? "#" + std::to_string(reinterpret_cast<ULONG_PTR>(id)) : std::string(id);
}
BOOL CALLBACK OnLanguage(HMODULE, LPCSTR, LPCSTR, WORD language, LONG_PTR param) {
  const auto* listing = reinterpret_cast<const Listing*>(param);
  listing->all->insert(listing->prefix + " " + std::to_string(language));
  return TRUE;
}
BOOL CALLBACK OnName(HMODULE module, LPCSTR type, LPSTR name, LONG_PTR param) {
  const auto* of_type = reinterpret_cast<const Listing*>(param);
  Listing listing{of_type->all, of_type->prefix + " " + Id(name)};
  return EnumResourceLanguagesA(module, type, name, OnLanguage, reinterpret_cast<LONG_PTR>(&listing));
}
BOOL CALLBACK OnType(HMODULE module, LPSTR type, LONG_PTR param) {
  Listing listing{reinterpret_cast<std::set<std::string>*>(param), Id(type)};
  return EnumResourceNamesA(module, type, OnName, reinterpret_cast<LONG_PTR>(&listing));
}

TEST_F(ModuleFile, CarriesExactlyItsResourcesAllInEnglishUS) {
  std::set<std::string> got;
  ASSERT_TRUE(EnumResourceTypesA(Module(), OnType, reinterpret_cast<LONG_PTR>(&got)));
  // The property list, five bitmaps (type 2), the version (16) and the manifest (24).
  const std::set<std::string> want = {"PIPL #16000 1033", "#2 #17833 1033", "#2 #17834 1033",
                                      "#2 #17835 1033",   "#2 #18736 1033", "#2 #18737 1033",
                                      "#16 #1 1033",      "#24 #2 1033"};
  EXPECT_EQ(got, want);
}

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

TEST_F(ModuleFile, ManifestAsksToRunAsInvoker) {
  const std::vector<uint8_t> data = ReadResource(MAKEINTRESOURCEA(24), MAKEINTRESOURCEA(2));
  const std::string xml(data.begin(), data.end());
  for (const char* part : {"<requestedExecutionLevel ", "level=\"asInvoker\"", "uiAccess=\"false\""})
    EXPECT_NE(xml.find(part), std::string::npos) << part << " in \"" << xml << "\"";
}

TEST_F(ModuleFile, BitmapsHaveTheirSizesAndDepthsAndDecode) {
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
    // The palette (all 2^bits colours when biClrUsed is 0), then rows padded to 4 bytes.
    const size_t colours = h.biClrUsed ? h.biClrUsed : row.bits <= 8 ? size_t(1) << row.bits : 0;
    EXPECT_EQ(data.size(),
              sizeof h + 4 * colours + (size_t(row.width) * row.bits / 8 + 3) / 4 * 4 * size_t(row.height));
    HANDLE image = LoadImageA(Module(), MAKEINTRESOURCEA(row.id), IMAGE_BITMAP, 0, 0, LR_CREATEDIBSECTION);
    EXPECT_NE(image, nullptr) << "the system does not decode it, error " << GetLastError();
    DeleteObject(image);
  }
}

}  // namespace

std::vector<uint8_t> ReadModulePiPL() {
  std::vector<uint8_t> bytes = ReadResource("PiPL", MAKEINTRESOURCEA(16000));
  if (bytes.empty()) ADD_FAILURE() << "no resource \"PiPL\" 16000 in English (US) in " << CINEBAR_MODULE_PATH;
  return bytes;
}

}  // namespace module_test
