// The native module: loaded with dlopen, it exports EntryPointFunc and its
// property list as the data symbols PiPL_16000 and PiPL_16000_size.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "expected_pipl.h"

namespace module_test {
namespace {

void* Module() {
  static void* module = dlopen(CINEBAR_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
  return module;
}

}  // namespace

std::vector<uint8_t> ReadModulePiPL() {
  const auto* bytes = static_cast<const uint8_t*>(Module() ? dlsym(Module(), "PiPL_16000") : nullptr);
  const auto* size = static_cast<const uint32_t*>(Module() ? dlsym(Module(), "PiPL_16000_size") : nullptr);
  if (!bytes || !size) {
    ADD_FAILURE() << CINEBAR_MODULE_PATH << " does not load or export PiPL_16000 and PiPL_16000_size";
    return {};
  }
  return std::vector<uint8_t>(bytes, bytes + *size);
}

}  // namespace module_test
