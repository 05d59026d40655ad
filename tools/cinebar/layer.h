// The effect applied to one layer: the user's edits and renders go through
// it, and it is removed (sequence setdown) at the end.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/sim_host.h"
#include "hostapi/ae_effect.h"
#include "tools/cinebar/frame.h"
#include "tools/cinebar/session.h"

namespace cinebar_tool {

// A user's edit of one control.
struct Edit {
  A_long index = 0;
  PF_ParamType type = PF_Param_POPUP;
  A_long popup = 0;        // 1-based item
  PF_FpLong number = 0.0;  // float slider value
  PF_Pixel color{};        // colour value
};

// Where the module leaves the picture in frames of one size: right and bottom
// exclusive; `image` when it copies the input there (else it clears it).
struct Picture {
  int left = 0, top = 0, right = 0, bottom = 0;
  bool image = true;
  bool empty() const { return right <= left || bottom <= top; }
};

struct Looked;  // what one flat probe shows (replay.h)

// A frame's two host worlds, fitted to each frame's size and depth in turn.
struct Worlds {
  std::unique_ptr<cinebar_simhost::World> input, output;
};

// One frame rendered: where the picture is, the output's form and chunks.
// Its rows (ComposeRow) are the input's picture and the output world's bars.
struct Rendered {
  Picture picture;
  bool opaque = false;        // bars of `bar` rather than the world's
  std::uint16_t bar[4] = {};  // RGBA in file units
  int channels = 3;           // of the output
  bool deep = false;
  std::vector<Chunk> chunks;  // true of the output
  std::vector<std::string> dropped;
};

// Row y of the output, `rendered.channels` samples a pixel, from the input
// and the output world of its render.
void ComposeRow(const Frame& in, const Worlds& worlds, const Rendered& rendered, int y, std::uint8_t* row);

// The effect applied to one layer, and the render stage of the tool: a frame
// goes into the host's input world, through the module's render, and its
// rows are composed from the output world. The host's 16-bit worlds hold
// 0..32768, fewer codes than a 16-bit file; so the picture is taken from the
// input frame itself, where the module shows it, and only the bars from the
// world. One render at a time.
class Layer {
 public:
  explicit Layer(Session& session);  // sequence setup
  ~Layer();                          // sequence setdown
  Layer(const Layer&) = delete;
  Layer& operator=(const Layer&) = delete;

  void Change(const Edit& edit);
  // The host's current value of a parameter.
  const PF_ParamDef& param(A_long index) const { return instance_->param(index); }
  // Found by rendering one or two flat frames of this size in `worlds`; kept per size.
  Picture Find(int width, int height, bool deep, Worlds& worlds);
  Picture Find(int width, int height, bool deep) { return Find(width, height, deep, worlds_); }
  // The same picture, learnt without frame-sized memory where it can be: one
  // render in worlds without pixels and the host's record of the module's
  // fills and copies replayed. When the module touched those worlds' pixels
  // itself or drew otherwise, it is found by Find in worlds of its own, freed
  // on return; `replayed` says which.
  Picture Measure(int width, int height, bool deep, bool* replayed = nullptr);
  // Renders `in` in `worlds`. With `opaque`, bars are that colour at full
  // scale (0x10 -> 0x1010) and opacity instead of what the module painted.
  Rendered Render(const Frame& in, Worlds& worlds, const PF_Pixel* opaque);
  // The same, composed into `out`.
  void Render(const Frame& in, Frame& out, const PF_Pixel* opaque);

 private:
  void RenderWorlds(Worlds& worlds);
  // Renders a flat input of `value` and looks at the output.
  Looked Probe(Worlds& worlds, std::uint8_t value);
  std::optional<Picture> Replayed(int width, int height, bool deep);
  Session& session_;
  cinebar_simhost::Instance* instance_ = nullptr;
  Worlds worlds_;  // the composing Render's
  std::vector<std::pair<std::uint64_t, Picture>> pictures_;
};

}  // namespace cinebar_tool
