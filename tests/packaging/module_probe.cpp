// Checks an installed module file the way After Effects first meets it: loads
// it with LoadLibraryA, finds EntryPointFunc, reads its version resource, and
// runs global setup and global setdown against a minimal host.
//
//   packaging_module_probe <module path>
//
// Prints one line per failed check; the exit code is the number of failures.
#include <windows.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "cinebar_identity.h"
#include "hostapi/ae_constants.h"

namespace {

constexpr char kEntryPoint[] = "EntryPointFunc";

int g_failures = 0;
HMODULE g_module = nullptr;

void Fail(const char* format, ...) __attribute__((format(printf, 1, 2)));
void Fail(const char* format, ...) {
  std::va_list args;
  va_start(args, format);
  std::fputs("FAIL: ", stdout);
  std::vprintf(format, args);
  std::fputs("\n", stdout);
  va_end(args);
  ++g_failures;
}

// ---- a minimal host -----------------------------------------------------------

// A host handle is a pointer to a master pointer to the block.
PF_Handle NewHandle(A_HandleSize size) {
  void** master = static_cast<void**>(std::malloc(sizeof(void*)));
  if (master == nullptr) return nullptr;
  *master = std::calloc(1, size == 0 ? 1 : size);
  if (*master == nullptr) {
    std::free(master);
    return nullptr;
  }
  return master;
}
void* LockHandle(PF_Handle handle) { return handle != nullptr ? *handle : nullptr; }
void UnlockHandle(PF_Handle) {}
void DisposeHandle(PF_Handle handle) {
  if (handle == nullptr) return;
  std::free(*handle);
  std::free(handle);
}

PF_Err GetPlatformData(PF_ProgPtr, A_long which, void* data) {
  if (data == nullptr) return PF_Err_BAD_CALLBACK_PARAM;
  switch (which) {
    case PF_PlatData_RES_DLLINSTANCE:
      *static_cast<HINSTANCE*>(data) = g_module;
      return PF_Err_NONE;
    case PF_PlatData_MAIN_WND:
      *static_cast<HWND*>(data) = nullptr;
      return PF_Err_NONE;
    default:
      return PF_Err_BAD_CALLBACK_PARAM;
  }
}

int HostSprintf(A_char* buffer, const A_char* format, ...) {
  std::va_list args;
  va_start(args, format);
  const int written = std::vsnprintf(buffer, 256, format, args);  // the size of return_msg
  va_end(args);
  return written;
}
A_char* HostStrcpy(A_char* dest, const A_char* src) { return std::strcpy(dest, src); }

// The suite broker has no suites: global setup must not need any.
int g_suites_asked = 0;
SPErr AcquireSuite(const char*, int32_t, const void** suite) {
  ++g_suites_asked;
  if (suite != nullptr) *suite = nullptr;
  return 1;
}
SPErr ReleaseSuite(const char*, int32_t) { return 0; }

// ---- the checks -----------------------------------------------------------------

std::string ExpectedVersionText() {
  return std::to_string(cinebar_identity::kVersionMajor) + "." +
         std::to_string(cinebar_identity::kVersionMinor) + "." +
         std::to_string(cinebar_identity::kVersionBugfix);
}

void CheckVersionResource(const char* path) {
  DWORD ignored = 0;
  const DWORD size = GetFileVersionInfoSizeA(path, &ignored);
  if (size == 0) return Fail("%s has no version resource (error %lu)", path, GetLastError());
  std::vector<char> block(size);
  if (!GetFileVersionInfoA(path, 0, size, block.data())) return Fail("GetFileVersionInfoA failed");

  VS_FIXEDFILEINFO* fixed = nullptr;
  UINT fixed_size = 0;
  if (!VerQueryValueA(block.data(), "\\", reinterpret_cast<void**>(&fixed), &fixed_size) ||
      fixed_size < sizeof *fixed) {
    return Fail("the version resource has no fixed file information");
  }
  const DWORD want_ms = MAKELONG(cinebar_identity::kVersionMinor, cinebar_identity::kVersionMajor);
  const DWORD want_ls = MAKELONG(cinebar_identity::kVersionBuild, cinebar_identity::kVersionBugfix);
  if (fixed->dwFileVersionMS != want_ms || fixed->dwFileVersionLS != want_ls) {
    Fail("file version %u.%u.%u.%u, expected %s.%u", unsigned{HIWORD(fixed->dwFileVersionMS)},
         unsigned{LOWORD(fixed->dwFileVersionMS)}, unsigned{HIWORD(fixed->dwFileVersionLS)},
         unsigned{LOWORD(fixed->dwFileVersionLS)}, ExpectedVersionText().c_str(),
         cinebar_identity::kVersionBuild);
  }
  if (fixed->dwProductVersionMS != want_ms || fixed->dwProductVersionLS != want_ls) {
    Fail("product version differs from the file version");
  }

  char* text = nullptr;
  UINT text_size = 0;
  if (!VerQueryValueA(block.data(), "\\StringFileInfo\\040904B0\\ProductVersion",
                      reinterpret_cast<void**>(&text), &text_size) ||
      text == nullptr) {
    return Fail("the version resource has no ProductVersion text");
  }
  if (ExpectedVersionText() != text)
    Fail("ProductVersion \"%s\", expected \"%s\"", text, ExpectedVersionText().c_str());
}

void CheckGlobalSetup(PF_EntryPointFn entry) {
  PF_UtilCallbacks utils;
  std::memset(&utils, 0, sizeof utils);
  utils.host_new_handle = NewHandle;
  utils.host_lock_handle = LockHandle;
  utils.host_unlock_handle = UnlockHandle;
  utils.host_dispose_handle = DisposeHandle;
  utils.get_platform_data = GetPlatformData;
  utils.ansi.sprintf = HostSprintf;
  utils.ansi.strcpy = HostStrcpy;

  SPBasicSuite broker;
  std::memset(&broker, 0, sizeof broker);
  broker.AcquireSuite = AcquireSuite;
  broker.ReleaseSuite = ReleaseSuite;

  PF_InData in_data;
  std::memset(&in_data, 0, sizeof in_data);
  in_data.utils = &utils;
  in_data.appl_id = PF_APPL_ID_AFTER_EFFECTS;
  in_data.version.major = 13;
  in_data.version.minor = 28;
  in_data.pica_basicP = &broker;

  PF_OutData out_data;
  std::memset(&out_data, 0, sizeof out_data);
  const PF_Err setup = entry(PF_Cmd_GLOBAL_SETUP, &in_data, &out_data, nullptr, nullptr, nullptr);
  if (setup != PF_Err_NONE)
    Fail("global setup returned %ld (\"%s\")", static_cast<long>(setup), out_data.return_msg);

  const A_u_long want_version = PF_VERSION(cinebar_identity::kVersionMajor, cinebar_identity::kVersionMinor,
                                           cinebar_identity::kVersionBugfix, cinebar_identity::kVersionStage,
                                           cinebar_identity::kVersionBuild);
  if (out_data.my_version != want_version) {
    Fail("my_version 0x%08lX, expected 0x%08lX", static_cast<unsigned long>(out_data.my_version),
         static_cast<unsigned long>(want_version));
  }
  if (out_data.out_flags != cinebar_identity::kOutFlags) {
    Fail("out_flags 0x%08lX, expected 0x%08lX", static_cast<unsigned long>(out_data.out_flags),
         static_cast<unsigned long>(cinebar_identity::kOutFlags));
  }
  if (out_data.global_data == nullptr) Fail("global setup left no global data");
  if (g_suites_asked != 0) Fail("global setup asked for %d host suites", g_suites_asked);

  in_data.global_data = out_data.global_data;
  PF_OutData setdown_out;
  std::memset(&setdown_out, 0, sizeof setdown_out);
  setdown_out.global_data = out_data.global_data;
  const PF_Err setdown = entry(PF_Cmd_GLOBAL_SETDOWN, &in_data, &setdown_out, nullptr, nullptr, nullptr);
  if (setdown != PF_Err_NONE) Fail("global setdown returned %ld", static_cast<long>(setdown));
  DisposeHandle(out_data.global_data);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s <module path>\n", argv[0]);
    return 100;
  }
  const char* path = argv[1];
  g_module = LoadLibraryA(path);
  if (g_module == nullptr) {
    Fail("LoadLibraryA(%s) failed, error %lu", path, GetLastError());
    return g_failures;
  }
  const auto generic = reinterpret_cast<void (*)()>(GetProcAddress(g_module, kEntryPoint));
  CheckVersionResource(path);
  if (generic == nullptr) {
    Fail("%s does not export %s", path, kEntryPoint);
  } else {
    CheckGlobalSetup(reinterpret_cast<PF_EntryPointFn>(generic));
  }
  FreeLibrary(g_module);
  std::printf("%s: %d failed checks\n", path, g_failures);
  return g_failures;
}
