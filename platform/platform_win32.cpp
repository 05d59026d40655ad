#include <shlobj.h>
#include <windows.h>

#include <cstdarg>
#include <cstdio>

#include "platform/platform.h"

namespace cinebar_platform {

long GetCommonAppDataFolder(char* path) {
  return static_cast<long>(SHGetFolderPathA(nullptr, CSIDL_COMMON_APPDATA, nullptr, 0, path));
}

LibraryHandle LoadLibraryFile(const char* path) {
  return reinterpret_cast<LibraryHandle>(LoadLibraryA(path));
}

ExportAddress FindExport(LibraryHandle library, const char* name) {
  return reinterpret_cast<ExportAddress>(GetProcAddress(static_cast<HMODULE>(library), name));
}

int BoundedPrint(char* buffer, std::size_t size, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int written = _vsnprintf(buffer, size, format, args);
  va_end(args);
  return written;
}

}  // namespace cinebar_platform
