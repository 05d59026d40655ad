#include "host/module.h"

#include "platform/platform.h"

namespace cinebar_simhost {

Module::Module(const std::string& path) : path_(path) {
  library_ = cinebar_platform::LoadLibraryFile(path.c_str());
  if (library_ == nullptr) throw ModuleError("cannot load the module \"" + path + "\"");
  const cinebar_platform::ExportAddress address = cinebar_platform::FindExport(library_, kEntryName);
  if (address == nullptr) {
    cinebar_platform::FreeLibraryFile(library_);
    throw ModuleError("the module \"" + path + "\" does not export " + kEntryName);
  }
  entry_ = reinterpret_cast<PF_EntryPointFn>(address);
}

Module::~Module() { cinebar_platform::FreeLibraryFile(library_); }

}  // namespace cinebar_simhost
