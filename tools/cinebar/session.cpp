#include "tools/cinebar/session.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <cstring>
#include <utility>

#include "hostapi/ae_constants.h"
#include "platform/platform.h"
#include "tools/cinebar/tool_error.h"

#ifndef CINEBAR_DEFAULT_MODULE
#error "CINEBAR_DEFAULT_MODULE must name the module file of the build tree"
#endif

namespace cinebar_tool {
namespace {

using cinebar_simhost::Host;
using cinebar_simhost::Module;
using cinebar_simhost::World;

bool IsFile(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::vector<std::string> SplitItems(const char* text) {
  std::vector<std::string> items;
  if (text == nullptr) return items;
  std::string item;
  for (const char* p = text;; ++p) {
    if (*p == '|' || *p == '\0') {
      items.push_back(item);
      item.clear();
      if (*p == '\0') break;
    } else {
      item += *p;
    }
  }
  return items;
}

}  // namespace

// What the module said about a failed command, for one line of stderr.
std::string Failure(Host& host, const std::string& what, PF_Err err) {
  std::string text = what + " failed with error " + std::to_string(err);
  const PF_OutData& out = host.out_data();
  const std::size_t n = strnlen(out.return_msg, sizeof out.return_msg);
  if (n > 0) text += " (" + std::string(out.return_msg, n) + ")";
  return text;
}

void Require(Host& host, const std::string& what, PF_Err err) {
  if (err != PF_Err_NONE) throw ToolError(kExitModule, Failure(host, what, err));
}

std::string Control::name() const { return std::string(def.name, strnlen(def.name, sizeof def.name)); }

bool Control::is_separator(std::size_t item) const {
  return item < items.size() && items[item].rfind("(-", 0) == 0;
}

std::string ChooseModulePath(const std::string& explicit_path, const char* env_value,
                             const std::string& executable_dir) {
  if (!explicit_path.empty()) return explicit_path;
  if (env_value != nullptr && *env_value != '\0') return env_value;
  if (!executable_dir.empty()) {
    const std::string beside =
        executable_dir + "/" + std::string(std::strrchr("/" CINEBAR_DEFAULT_MODULE, '/') + 1);
    if (IsFile(beside)) return beside;
  }
  return CINEBAR_DEFAULT_MODULE;
}

std::vector<std::uint8_t> ReadPropertyList(const Module& module) {
  const auto bytes_at = cinebar_platform::FindExport(module.library(), "PiPL_16000");
  const auto size_at = cinebar_platform::FindExport(module.library(), "PiPL_16000_size");
  if (bytes_at == nullptr || size_at == nullptr)
    throw ToolError(kExitModule, "the module " + module.path() + " has no property list (PiPL_16000)");
  // The exports are data; the platform seam hands every export over as a function address.
  const std::uint8_t* bytes = nullptr;
  const std::uint32_t* size = nullptr;
  std::memcpy(&bytes, &bytes_at, sizeof bytes);
  std::memcpy(&size, &size_at, sizeof size);
  return std::vector<std::uint8_t>(bytes, bytes + *size);
}

Session::Session(const std::string& module_path, PF_RationalScale pixel_aspect, PF_RationalScale downsample_x,
                 PF_RationalScale downsample_y)
    : pixel_aspect_(pixel_aspect) {
  try {
    module_ = std::make_unique<Module>(module_path);
  } catch (const cinebar_simhost::ModuleError& e) {
    const char* why = dlerror();  // the loader's own reason, still pending after the failed load
    throw ToolError(kExitModule, std::string(e.what()) + (why ? std::string(": ") + why : ""));
  }
  host_ = std::make_unique<Host>(*module_);
  host_->SetPixelAspect(pixel_aspect);
  host_->SetDownsample(downsample_x, downsample_y);
  Require(*host_, "global setup", host_->GlobalSetup());
  const PF_Err err = host_->ParamsSetup();
  if (err != PF_Err_NONE) {
    const std::string text = Failure(*host_, "parameter setup", err);
    host_->GlobalSetdown();
    throw ToolError(kExitModule, text);
  }
  A_long index = 0;
  for (const cinebar_simhost::AddedParam& added : host_->added_params()) {
    Control control;
    control.index = ++index;
    control.def = added.def;
    if (added.def.param_type == PF_Param_POPUP) control.items = SplitItems(added.popup_items.c_str());
    controls_.push_back(control);
  }
}

Session::~Session() { host_->GlobalSetdown(); }

void Session::SetPixelAspect(PF_RationalScale pixel_aspect) {
  pixel_aspect_ = pixel_aspect;
  host_->SetPixelAspect(pixel_aspect);
}

const Control& Session::control(const std::string& name, PF_ParamType type) const {
  for (const Control& control : controls_) {
    if (control.name() == name && control.def.param_type == type) return control;
  }
  throw ToolError(kExitModule, "the module has no control \"" + name + "\" of the expected kind");
}

}  // namespace cinebar_tool
