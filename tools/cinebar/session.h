// The module as After Effects sees it, through the simulated host: the module
// file loaded, global setup and parameter setup done, and the controls the
// module declared.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/sim_host.h"
#include "hostapi/ae_effect.h"

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

// "WHAT failed with error N (the module's message)", for one line of stderr.
std::string Failure(cinebar_simhost::Host& host, const std::string& what, PF_Err err);
// Throws ToolError(kExitModule) with that text unless `err` is PF_Err_NONE.
void Require(cinebar_simhost::Host& host, const std::string& what, PF_Err err);

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
  // The layer's pixel aspect, known once a frame is read; set before the layer is made.
  void SetPixelAspect(PF_RationalScale pixel_aspect);

 private:
  std::unique_ptr<cinebar_simhost::Module> module_;
  std::unique_ptr<cinebar_simhost::Host> host_;
  std::vector<Control> controls_;
  PF_RationalScale pixel_aspect_;
};

}  // namespace cinebar_tool
