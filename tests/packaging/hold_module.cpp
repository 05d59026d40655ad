// Plays a running After Effects: loads the module named first, says "loaded"
// and keeps it loaded until the file named second exists.
#include <windows.h>

#include <cstdio>

int wmain(int argc, wchar_t** argv) {
  if (argc != 3) {
    std::fputs("usage: hold_module.exe <module> <release file>\n", stderr);
    return 2;
  }
  HMODULE module = LoadLibraryW(argv[1]);
  if (module == nullptr) {
    std::fprintf(stderr, "hold_module: cannot load the module (error %lu)\n", GetLastError());
    return 1;
  }
  std::puts("loaded");
  std::fflush(stdout);
  while (GetFileAttributesW(argv[2]) == INVALID_FILE_ATTRIBUTES) Sleep(100);
  FreeLibrary(module);
  return 0;
}
