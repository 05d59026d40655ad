#include <dlfcn.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/platform.h"

namespace cinebar_platform {

long GetCommonAppDataFolder(char* path) {
  const char* folder = std::getenv("CINEBAR_COMMON_APPDATA");
  if (folder == nullptr) folder = "/usr/local/share";
  std::snprintf(path, kMaxPath, "%s", folder);
  return 0;
}

LibraryHandle LoadLibraryFile(const char* path) {
  std::string posix_path(path);
  for (char& c : posix_path) {
    if (c == '\\') c = '/';
  }
  return dlopen(posix_path.c_str(), RTLD_NOW | RTLD_LOCAL);
}

ExportAddress FindExport(LibraryHandle library, const char* name) {
  void* symbol = dlsym(library, name);
  ExportAddress address;
  static_assert(sizeof(address) == sizeof(symbol), "function and data pointers differ in size");
  std::memcpy(&address, &symbol, sizeof(address));
  return address;
}

// Same contract as the Windows CRT's _snprintf: an exact fit or an overflow
// leaves no terminator, and an overflow answers -1.
int BoundedPrint(char* buffer, std::size_t size, const char* format, ...) {
  std::string text(size + 1, '\0');  // room for everything that may be copied, and a terminator
  va_list args;
  va_start(args, format);
  const int needed = std::vsnprintf(text.data(), text.size(), format, args);
  va_end(args);
  if (needed < 0) return needed;
  const std::size_t length = static_cast<std::size_t>(needed);
  std::memcpy(buffer, text.data(), std::min(length + 1, size));
  return length <= size ? needed : -1;
}

}  // namespace cinebar_platform
