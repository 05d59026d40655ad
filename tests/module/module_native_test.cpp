// The native module: loaded with dlopen, it exports EntryPointFunc and its
// property list as the data symbols PiPL_16000 and PiPL_16000_size.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "expected_pipl.h"
#include "module_access.h"

namespace module_test {
namespace {

void* Module() {
  static void* module = dlopen(CINEBAR_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
  return module;
}

const char* LoadError() {
  const char* e = dlerror();
  return e ? e : "unknown error";
}

TEST(NativeModule, ExportsEntryPointAndPropertyListSymbols) {
  ASSERT_NE(Module(), nullptr) << LoadError();
  for (const char* symbol : {"EntryPointFunc", "PiPL_16000", "PiPL_16000_size"}) {
    EXPECT_NE(dlsym(Module(), symbol), nullptr) << symbol;
  }
}

TEST(NativeModule, PropertyListSizeSymbolGivesTheTabledSize) {
  ASSERT_NE(Module(), nullptr) << LoadError();
  const auto* size = static_cast<const uint32_t*>(dlsym(Module(), "PiPL_16000_size"));
  ASSERT_NE(size, nullptr);
  EXPECT_EQ(*size, kExpectedPiPLSize);
}

}  // namespace

std::vector<uint8_t> ReadModulePiPL() {
  if (!Module()) {
    ADD_FAILURE() << "dlopen(" << CINEBAR_MODULE_PATH << "): " << LoadError();
    return {};
  }
  const auto* bytes = static_cast<const uint8_t*>(dlsym(Module(), "PiPL_16000"));
  const auto* size = static_cast<const uint32_t*>(dlsym(Module(), "PiPL_16000_size"));
  if (!bytes || !size) {
    ADD_FAILURE() << "PiPL_16000 or PiPL_16000_size is not exported";
    return {};
  }
  return std::vector<uint8_t>(bytes, bytes + *size);
}

}  // namespace module_test
