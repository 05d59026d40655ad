// Where the host keeps each of the effect's parameters: the input layer, the
// branding header row, then the four controls. Projects and the host address
// parameters by these numbers, so they are declared once, here, for the
// module, the simulated host's fixtures, the benchmarks and the fuzzers.
#pragma once

#include <cstdint>

constexpr int32_t PARAM_INPUT = 0;
constexpr int32_t PARAM_HEADER = 1;
constexpr int32_t PARAM_RENDER = 2;
constexpr int32_t PARAM_PRESET = 3;
constexpr int32_t PARAM_ASPECT_RATIO = 4;
constexpr int32_t PARAM_COLOR = 5;
constexpr int32_t PARAM_NUM_PARAMS = 6;  // the input layer included

// The disk ID projects store the header row under. The controls' own IDs are
// in the control table, which the build checks keep apart from this one.
constexpr int32_t HEADER_DISK_ID = 5;
