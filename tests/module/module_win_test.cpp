// The Windows module file as the host sees it: loaded with LoadLibraryA, its
// entry point, and every resource it carries with its language and layout.
#include <gtest/gtest.h>
#include <windows.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "module_access.h"

namespace module_test {
namespace {

constexpr WORD kEnglishUS = 1033;

HMODULE Module() {
  static HMODULE module = LoadLibraryA(CINEBAR_MODULE_PATH);
  return module;
}

std::string ResourceName(LPCSTR name) {
  if (IS_INTRESOURCE(name)) return "#" + std::to_string(reinterpret_cast<ULONG_PTR>(name));
  return name;
}

// The resource data of (type, name) in language 1033, or an empty list.
std::vector<uint8_t> ReadResource(LPCSTR type, LPCSTR name) {
  HMODULE module = Module();
  if (!module) return {};
  HRSRC info = FindResourceExA(module, type, name, kEnglishUS);
  if (!info) return {};
  HGLOBAL data = LoadResource(module, info);
  const DWORD size = SizeofResource(module, info);
  const auto* p = static_cast<const uint8_t*>(data ? LockResource(data) : nullptr);
  if (!p) return {};
  return std::vector<uint8_t>(p, p + size);
}

class ModuleFile : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(Module(), nullptr) << "LoadLibraryA(" << CINEBAR_MODULE_PATH << ") failed, error "
                                 << GetLastError();
  }
};

TEST_F(ModuleFile, ExportsEntryPointFunc) {
  EXPECT_NE(reinterpret_cast<void*>(GetProcAddress(Module(), "EntryPointFunc")), nullptr);
}

TEST_F(ModuleFile, PropertyListIsFoundByTheNamedTypePiPL) {
  // The host asks for type "PiPL"; resource type names match without regard to case.
  HRSRC info = FindResourceA(Module(), MAKEINTRESOURCEA(16000), "PiPL");
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(SizeofResource(Module(), info), 314u);
}

// Every resource: type -> name -> languages.
using Inventory = std::map<std::string, std::map<std::string, std::set<WORD>>>;

BOOL CALLBACK OnLanguage(HMODULE, LPCSTR, LPCSTR, WORD language, LONG_PTR param) {
  reinterpret_cast<std::set<WORD>*>(param)->insert(language);
  return TRUE;
}

BOOL CALLBACK OnName(HMODULE module, LPCSTR type, LPSTR name, LONG_PTR param) {
  auto& names = *reinterpret_cast<std::map<std::string, std::set<WORD>>*>(param);
  std::set<WORD>& languages = names[ResourceName(name)];
  EnumResourceLanguagesA(module, type, name, OnLanguage, reinterpret_cast<LONG_PTR>(&languages));
  return TRUE;
}

BOOL CALLBACK OnType(HMODULE module, LPSTR type, LONG_PTR param) {
  auto& inventory = *reinterpret_cast<Inventory*>(param);
  auto& names = inventory[ResourceName(type)];
  EnumResourceNamesA(module, type, OnName, reinterpret_cast<LONG_PTR>(&names));
  return TRUE;
}

TEST_F(ModuleFile, CarriesExactlyItsResourcesAllInLanguage1033) {
  Inventory got;
  ASSERT_TRUE(EnumResourceTypesA(Module(), OnType, reinterpret_cast<LONG_PTR>(&got)));
  const std::set<WORD> us{kEnglishUS};
  const Inventory want = {
      {"PIPL", {{"#16000", us}}},
      {"#2",  // bitmaps
       {{"#17833", us}, {"#17834", us}, {"#17835", us}, {"#18736", us}, {"#18737", us}}},
      {"#16", {{"#1", us}}},  // version
      {"#24", {{"#2", us}}},  // manifest
  };
  EXPECT_EQ(got, want);
}

// Version resource.

class VersionInfo : public ModuleFile {
 protected:
  void SetUp() override {
    ModuleFile::SetUp();
    DWORD ignored = 0;
    const DWORD size = GetFileVersionInfoSizeA(CINEBAR_MODULE_PATH, &ignored);
    ASSERT_GT(size, 0u) << "no version information, error " << GetLastError();
    block_.resize(size);
    ASSERT_TRUE(GetFileVersionInfoA(CINEBAR_MODULE_PATH, 0, size, block_.data()));
  }
  bool Query(const char* path, void** value, UINT* length) {
    return VerQueryValueA(block_.data(), path, value, length) != 0;
  }
  std::vector<char> block_;
};

TEST_F(VersionInfo, FixedPartSays1_1_12_0AndDynamicLibrary) {
  void* value = nullptr;
  UINT length = 0;
  ASSERT_TRUE(Query("\\", &value, &length));
  ASSERT_GE(length, sizeof(VS_FIXEDFILEINFO));
  const auto* f = static_cast<const VS_FIXEDFILEINFO*>(value);
  const struct {
    const char* field;
    DWORD got;
    DWORD want;
  } rows[] = {
      {"dwSignature", f->dwSignature, 0xFEEF04BDu},
      {"dwFileVersionMS", f->dwFileVersionMS, (1u << 16) | 1u},
      {"dwFileVersionLS", f->dwFileVersionLS, (12u << 16) | 0u},
      {"dwProductVersionMS", f->dwProductVersionMS, (1u << 16) | 1u},
      {"dwProductVersionLS", f->dwProductVersionLS, (12u << 16) | 0u},
      {"dwFileFlagsMask", f->dwFileFlagsMask, 0x17u},
      {"dwFileFlags", f->dwFileFlags, 0u},
      {"dwFileOS", f->dwFileOS, 0x4u},
      {"dwFileType", f->dwFileType, 0x2u},
      {"dwFileSubtype", f->dwFileSubtype, 0u},
  };
  for (const auto& row : rows) EXPECT_EQ(row.got, row.want) << row.field;
}

TEST_F(VersionInfo, TranslationIsEnglishUSUnicode) {
  void* value = nullptr;
  UINT length = 0;
  ASSERT_TRUE(Query("\\VarFileInfo\\Translation", &value, &length));
  ASSERT_EQ(length, 4u);
  const auto* words = static_cast<const WORD*>(value);
  EXPECT_EQ(words[0], 0x0409);
  EXPECT_EQ(words[1], 0x04B0);
}

TEST_F(VersionInfo, StringTableOfLanguage040904B0) {
  const struct {
    const char* key;
    const char* want;
  } rows[] = {
      {"FileVersion", "1.1.12"},
      {"ProductVersion", "1.1.12"},
      {"InternalName", "KSCinebar"},
      {"OriginalFilename", "KSCinebar.aex"},
      {"CompanyName", "Tarnwick"},
      {"ProductName", "Cinebar"},
      {"FileDescription", "Cinebar aspect-ratio bars effect for After Effects"},
  };
  for (const auto& row : rows) {
    void* value = nullptr;
    UINT length = 0;
    const std::string path = std::string("\\StringFileInfo\\040904B0\\") + row.key;
    ASSERT_TRUE(Query(path.c_str(), &value, &length)) << row.key;
    EXPECT_EQ(std::string(static_cast<const char*>(value)), row.want) << row.key;
  }
}

// Manifest.

// Names of the elements of an XML text, in document order.
std::vector<std::string> ElementNames(const std::string& xml) {
  std::vector<std::string> names;
  for (size_t pos = xml.find('<'); pos != std::string::npos; pos = xml.find('<', pos + 1)) {
    const char next = pos + 1 < xml.size() ? xml[pos + 1] : '\0';
    if (next == '?' || next == '/' || next == '!') continue;
    const size_t end = xml.find_first_of(" \t\r\n/>", pos + 1);
    names.push_back(xml.substr(pos + 1, end == std::string::npos ? std::string::npos : end - pos - 1));
  }
  return names;
}

TEST_F(ModuleFile, ManifestOnlyRequestsToRunAsInvoker) {
  const std::vector<uint8_t> data = ReadResource(MAKEINTRESOURCEA(24), MAKEINTRESOURCEA(2));
  ASSERT_FALSE(data.empty());
  const std::string xml(data.begin(), data.end());
  const std::vector<std::string> want = {"assembly", "trustInfo", "security", "requestedPrivileges",
                                         "requestedExecutionLevel"};
  EXPECT_EQ(ElementNames(xml), want);
  for (const char* attribute : {"manifestVersion=\"1.0\"", "level=\"asInvoker\"", "uiAccess=\"false\""}) {
    EXPECT_NE(xml.find(attribute), std::string::npos) << attribute;
  }
}

// Bitmaps.

struct BitmapRow {
  int id;
  LONG width;
  LONG height;
  WORD bits;
};

const BitmapRow kBitmaps[] = {
    {17833, 639, 248, 24},  {17834, 639, 248, 24},  {17835, 376, 500, 8},
    {18736, 1028, 245, 24}, {18737, 1028, 245, 24},
};

TEST_F(ModuleFile, BitmapsHaveTheirSizesAndDepths) {
  for (const BitmapRow& row : kBitmaps) {
    SCOPED_TRACE("bitmap " + std::to_string(row.id));
    const std::vector<uint8_t> data = ReadResource(MAKEINTRESOURCEA(2), MAKEINTRESOURCEA(row.id));
    ASSERT_GE(data.size(), sizeof(BITMAPINFOHEADER));
    BITMAPINFOHEADER h;
    memcpy(&h, data.data(), sizeof h);
    EXPECT_EQ(h.biSize, sizeof(BITMAPINFOHEADER));
    EXPECT_EQ(h.biWidth, row.width);
    EXPECT_EQ(h.biHeight, row.height);
    EXPECT_EQ(h.biPlanes, 1);
    EXPECT_EQ(h.biBitCount, row.bits);
    EXPECT_EQ(h.biCompression, DWORD(BI_RGB));
    // Palette: 2^bits entries for indexed images (biClrUsed 0 means all).
    const size_t colours = row.bits <= 8 ? (h.biClrUsed ? h.biClrUsed : (1u << row.bits)) : h.biClrUsed;
    if (row.bits <= 8) {
      EXPECT_GT(colours, 0u);
      EXPECT_LE(colours, size_t(1) << row.bits);
    }
    const size_t stride = (size_t(row.width) * row.bits / 8 + 3) / 4 * 4;
    EXPECT_EQ(data.size(), sizeof(BITMAPINFOHEADER) + 4 * colours + stride * size_t(row.height));
  }
}

TEST_F(ModuleFile, BitmapsDecodeThroughTheSystem) {
  for (const BitmapRow& row : kBitmaps) {
    SCOPED_TRACE("bitmap " + std::to_string(row.id));
    HANDLE image = LoadImageA(Module(), MAKEINTRESOURCEA(row.id), IMAGE_BITMAP, 0, 0, LR_CREATEDIBSECTION);
    ASSERT_NE(image, nullptr) << "error " << GetLastError();
    BITMAP bm;
    ASSERT_EQ(GetObjectA(image, sizeof bm, &bm), int(sizeof bm));
    EXPECT_EQ(bm.bmWidth, row.width);
    EXPECT_EQ(bm.bmHeight, row.height);
    EXPECT_EQ(bm.bmBitsPixel, row.bits);
    DeleteObject(image);
  }
}

}  // namespace

std::vector<uint8_t> ReadModulePiPL() {
  if (!Module()) {
    ADD_FAILURE() << "LoadLibraryA(" << CINEBAR_MODULE_PATH << ") failed, error " << GetLastError();
    return {};
  }
  HRSRC info = FindResourceExA(Module(), "PiPL", MAKEINTRESOURCEA(16000), kEnglishUS);
  if (!info) {
    ADD_FAILURE() << "no resource \"PiPL\" 16000 in language 1033";
    return {};
  }
  HGLOBAL data = LoadResource(Module(), info);
  const auto* p = static_cast<const uint8_t*>(data ? LockResource(data) : nullptr);
  if (!p) {
    ADD_FAILURE() << "resource \"PiPL\" 16000 cannot be loaded";
    return {};
  }
  return std::vector<uint8_t>(p, p + SizeofResource(Module(), info));
}

}  // namespace module_test
