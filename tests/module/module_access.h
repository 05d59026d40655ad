// How each platform's test program reaches the built module's property list:
// the "PiPL" 16000 resource on Windows, the PiPL_16000 data export natively.
#pragma once

#include <cstdint>
#include <vector>

namespace module_test {

// The property list bytes of the module at CINEBAR_MODULE_PATH. Fails the
// current test (and returns an empty list) when the module or the list is
// missing.
std::vector<uint8_t> ReadModulePiPL();

}  // namespace module_test
