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
#include "tools/cinebar/image.h"

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

class Layer {
 public:
  // Applies the effect to a layer showing `first_frame` (sequence setup).
  Layer(Session& session, const Image& first_frame);
  Layer(Session& session, cinebar_simhost::World first_frame);
  ~Layer();  // removes the effect (sequence setdown)
  Layer(const Layer&) = delete;
  Layer& operator=(const Layer&) = delete;

  void Change(const Edit& edit);
  // Renders one frame of the layer into an output of the same size and depth.
  Image Render(const Image& frame);
  // Renders `input` into `output` (of the same size and depth); the worlds are lent, not copied.
  void Render(cinebar_simhost::World& input, cinebar_simhost::World& output);
  // The host's current value of a parameter.
  const PF_ParamDef& param(A_long index) const { return instance_->param(index); }

 private:
  Session& session_;
  cinebar_simhost::Instance* instance_ = nullptr;
};

// Conversions between PNG samples and the host's worlds: 8-bit samples stay
// as they are; 16-bit samples map 0..65535 to the host's 0..32768 and back,
// rounded to the nearest value.
cinebar_simhost::World ToWorld(const Image& image, PF_RationalScale pixel_aspect);
Image FromWorld(cinebar_simhost::World& world);
std::uint16_t PngToHost16(std::uint16_t sample);
std::uint16_t HostToPng16(std::uint16_t sample);

}  // namespace cinebar_tool
