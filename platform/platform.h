// The few operating-system services the module (and the simulated host) need:
// the common application-data folder, loading a library by path, finding an
// export, and a bounded formatted print. Win32 on Windows, POSIX elsewhere.
#pragma once

#include <cstddef>

namespace cinebar_platform {

constexpr std::size_t kMaxPath = 260;  // MAX_PATH

using LibraryHandle = void*;
using ExportAddress = void (*)();

// Writes the machine-wide application-data folder (CSIDL_COMMON_APPDATA) into
// a buffer of kMaxPath characters and returns the system's result code.
// The POSIX side answers $CINEBAR_COMMON_APPDATA, so tests choose the folder.
long GetCommonAppDataFolder(char* path);

// Loads a library by path; null when it cannot be loaded. The POSIX side reads
// backslashes as folder separators so the same path text works on both sides.
LibraryHandle LoadLibraryFile(const char* path);

// The address of a named export, or null.
ExportAddress FindExport(LibraryHandle library, const char* name);

// Legacy bounded print: writes at most `size` characters; on overflow the text
// is cut and not guaranteed to be terminated. Returns the characters written,
// or a negative number when the text did not fit.
int BoundedPrint(char* buffer, std::size_t size, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;

}  // namespace cinebar_platform
