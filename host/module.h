// Loading an effect module the way the host does: open the file by path and
// resolve its exported EntryPointFunc.
#pragma once

#include <stdexcept>
#include <string>

#include "hostapi/ae_effect.h"

namespace cinebar_simhost {

class ModuleError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Module {
 public:
  static constexpr const char* kEntryName = "EntryPointFunc";

  // Throws ModuleError naming the path when the file cannot be loaded or
  // does not export kEntryName.
  explicit Module(const std::string& path);
  ~Module();
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  PF_EntryPointFn entry() const { return entry_; }
  void* library() const { return library_; }  // the module's instance handle
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  void* library_ = nullptr;
  PF_EntryPointFn entry_ = nullptr;
};

}  // namespace cinebar_simhost
