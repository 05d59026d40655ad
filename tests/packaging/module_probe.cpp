// Checks an installed module file the way After Effects first meets it: reads
// its version resource, then loads it through the simulated host and runs
// global setup and global setdown.
//
//   packaging_module_probe <module path>
//
// Prints one line per failed check; the exit code is the number of failures.
#include <windows.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "cinebar_identity.h"
#include "host/sim_host.h"

namespace {

int g_failures = 0;

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

void CheckGlobalSetup(const char* path) {
  cinebar_simhost::Module module(path);
  cinebar_simhost::Host host(module);
  const PF_Err setup = host.GlobalSetup();
  const PF_OutData& out = host.out_data();
  if (setup != PF_Err_NONE)
    Fail("global setup returned %ld (\"%s\")", static_cast<long>(setup), out.return_msg);
  const A_u_long want_version = PF_VERSION(cinebar_identity::kVersionMajor, cinebar_identity::kVersionMinor,
                                           cinebar_identity::kVersionBugfix, cinebar_identity::kVersionStage,
                                           cinebar_identity::kVersionBuild);
  if (out.my_version != want_version)
    Fail("my_version 0x%08lX, expected 0x%08lX", static_cast<unsigned long>(out.my_version),
         static_cast<unsigned long>(want_version));
  if (out.out_flags != cinebar_identity::kOutFlags)
    Fail("out_flags 0x%08lX, expected 0x%08lX", static_cast<unsigned long>(out.out_flags),
         static_cast<unsigned long>(cinebar_identity::kOutFlags));
  if (out.global_data == nullptr) Fail("global setup left no global data");
  const int suites = host.log().Count("AcquireSuite");
  if (suites != 0) Fail("global setup asked for %d host suites", suites);

  const PF_Err setdown = host.GlobalSetdown();
  if (setdown != PF_Err_NONE) Fail("global setdown returned %ld", static_cast<long>(setdown));
  for (const std::string& error : host.host_errors()) Fail("host error: %s", error.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s <module path>\n", argv[0]);
    return 100;
  }
  CheckVersionResource(argv[1]);
  try {
    CheckGlobalSetup(argv[1]);
  } catch (const cinebar_simhost::ModuleError& e) {
    Fail("%s", e.what());
  }
  std::printf("%s: %d failed checks\n", argv[1], g_failures);
  return g_failures;
}
