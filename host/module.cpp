#include "host/module.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

#include "platform/platform.h"

namespace cinebar_simhost {

namespace {

// Unloading belongs to the host: the module itself never frees a library,
// so the platform seam it links carries no such function.
void FreeModuleLibrary(void* library) {
#if defined(_WIN32)
  FreeLibrary(static_cast<HMODULE>(library));
#else
  dlclose(library);
#endif
}

}  // namespace

Module::Module(const std::string& path) : path_(path) {
  library_ = cinebar_platform::LoadLibraryFile(path.c_str());
  if (library_ == nullptr) throw ModuleError("cannot load the module \"" + path + "\"");
  const cinebar_platform::ExportAddress address = cinebar_platform::FindExport(library_, kEntryName);
  if (address == nullptr) {
    FreeModuleLibrary(library_);
    throw ModuleError("the module \"" + path + "\" does not export " + kEntryName);
  }
  entry_ = reinterpret_cast<PF_EntryPointFn>(address);
}

Module::~Module() { FreeModuleLibrary(library_); }

}  // namespace cinebar_simhost
