// The module as After Effects sees it, through the simulated host: the module
// file loaded, global setup and parameter setup done, and the controls the
// module declared. Layer is the effect applied to one layer: the user's edits
// and renders go through it, and it is removed (sequence setdown) at the end.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/sim_host.h"
#include "hostapi/ae_effect.h"
#include "tools/cinebar/frame.h"

namespace cinebar_tool {

// One control as the module declared it in parameter setup.
struct Control {
  A_long index = 0;                // the host's parameter index (0 is the layer itself)
  PF_ParamDef def{};               // the definition the module added
  std::vector<std::string> items;  // a popup's items, separators included
  std::string name() const;
  bool is_separator(std::size_t item) const;  // "(-" draws a line in a popup
};

// The module file to load: the explicit path if given, else $CINEBAR_MODULE,
// else the module next to the tool's own executable (when it exists), else
// the module of the build tree the tool was built in.
std::string ChooseModulePath(const std::string& explicit_path, const char* env_value,
                             const std::string& executable_dir);

// The bytes of the module's "PiPL" 16000 property list (the exported data
// PiPL_16000 and PiPL_16000_size of the native module).
std::vector<std::uint8_t> ReadPropertyList(const cinebar_simhost::Module& module);

class Session {
 public:
  // Loads the module and runs global setup and parameter setup; the host's
  // downsampling and pixel aspect are set before any command.
  // Throws ToolError(kExitModule) when any of it fails.
  Session(const std::string& module_path, PF_RationalScale pixel_aspect = {1, 1},
          PF_RationalScale downsample_x = {1, 1}, PF_RationalScale downsample_y = {1, 1});
  ~Session();  // global setdown
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  const std::vector<Control>& controls() const { return controls_; }
  // The control with this name and kind; ToolError(kExitModule) when the module has none.
  const Control& control(const std::string& name, PF_ParamType type) const;
  const cinebar_simhost::Module& module() const { return *module_; }
  cinebar_simhost::Host& host() { return *host_; }
  PF_RationalScale pixel_aspect() const { return pixel_aspect_; }

 private:
  std::unique_ptr<cinebar_simhost::Module> module_;
  std::unique_ptr<cinebar_simhost::Host> host_;
  std::vector<Control> controls_;
  PF_RationalScale pixel_aspect_;
};

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

// The effect applied to one layer, and the render stage of the tool: a frame
// goes into the host's world, through the module's render and back into a
// frame. The host's 16-bit worlds hold 0..32768, fewer codes than a 16-bit
// file; so the picture is taken from the input frame itself, where the module
// shows it, and only the bars from the world. One render at a time.
class Layer {
 public:
  explicit Layer(Session& session);  // sequence setup
  ~Layer();                          // sequence setdown
  Layer(const Layer&) = delete;
  Layer& operator=(const Layer&) = delete;

  void Change(const Edit& edit);
  // The host's current value of a parameter.
  const PF_ParamDef& param(A_long index) const { return instance_->param(index); }
  // Found by rendering two flat frames of this size; kept per size.
  Picture Find(int width, int height, bool deep);
  // Renders `in` into `out`. With `opaque`, bars are that colour at full
  // scale (0x10 -> 0x1010) and opacity instead of what the module painted.
  void Render(const Frame& in, Frame& out, const PF_Pixel* opaque);

 private:
  void RenderWorlds();
  Session& session_;
  cinebar_simhost::Instance* instance_ = nullptr;
  std::unique_ptr<cinebar_simhost::World> input_, output_;
  std::vector<std::pair<std::uint64_t, Picture>> pictures_;
};

}  // namespace cinebar_tool
