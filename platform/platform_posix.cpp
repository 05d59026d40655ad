#include <dlfcn.h>

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

// Same contract as the Windows CRT's _snprintf: no terminator on overflow.
int BoundedPrint(char* buffer, std::size_t size, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int needed = std::vsnprintf(nullptr, 0, format, args);
  va_end(args);
  if (needed < 0) return needed;
  std::string text(static_cast<std::size_t>(needed) + 1, '\0');
  va_start(args, format);
  std::vsnprintf(text.data(), text.size(), format, args);
  va_end(args);
  const std::size_t length = static_cast<std::size_t>(needed);
  if (length <= size) {
    std::memcpy(buffer, text.data(), length);
    if (length < size) buffer[length] = '\0';
    return needed;
  }
  std::memcpy(buffer, text.data(), size);
  return -1;
}

}  // namespace cinebar_platform
