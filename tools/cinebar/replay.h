// What a render drew into an output world without pixels, rebuilt from the
// host's record of the module's fills and copies: the frame is cut into cells
// at every edge a call drew (coordinate compression), and each cell holds what
// the last call covering it left there. Asked what a flat input would show, it
// answers what the pixel probe finds in a real world.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "host/call_log.h"
#include "hostapi/ae_effect.h"
#include "tools/cinebar/layer.h"

namespace cinebar_tool {

// What a render of a flat input shows: the bounds of the output's pixels of
// the input's value and of transparent black, and the output's first and last
// pixels (their bytes, zero-extended).
struct Looked {
  Picture shown, cleared;
  std::uint64_t first = 0, last = 0;
};

// A pixel of `bytes` bytes, each `value`, as Looked holds pixels.
std::uint64_t FlatPixel(std::uint8_t value, int bytes);

class Drawing {
 public:
  // The calls from `first` on, replayed over `output`; none when a call the
  // replay cannot follow reached either world (a drawing into the input, a copy
  // from anything but the input, a record of another shape over their pixels)
  // or when there are too many to replay.
  static std::optional<Drawing> Replay(const std::vector<cinebar_simhost::CallRecord>& calls,
                                       std::size_t first, const PF_LayerDef& input,
                                       const PF_LayerDef& output);
  // What the output would show after a render of an input whose every byte is `value`.
  Looked Look(std::uint8_t value) const;

 private:
  struct Cell {
    bool input = false;       // the input's pixel, else `pixel`
    std::uint64_t pixel = 0;  // a world starts transparent black
  };
  struct Step {
    PF_Rect area;
    Cell cell;
  };
  Drawing(const PF_LayerDef& output, const std::vector<Step>& steps);
  std::size_t Index(std::size_t column, std::size_t row) const { return row * (xs_.size() - 1) + column; }

  int pixel_bytes_ = 4;
  std::vector<A_long> xs_, ys_;  // the cells' edges, from 0 to the width and the height
  std::vector<Cell> cells_;      // row by row
};

}  // namespace cinebar_tool
