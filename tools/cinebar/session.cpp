#include "tools/cinebar/session.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <cstring>
#include <stdexcept>
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

World NewWorld(int width, int height, bool deep) {
  try {
    return World(width, height, deep);
  } catch (const std::invalid_argument& e) {
    throw ToolError(kExitInput, std::to_string(width) + "x" + std::to_string(height) +
                                    " is too large for the simulated host: " + e.what());
  }
}

}  // namespace

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

const Control& Session::control(const std::string& name, PF_ParamType type) const {
  for (const Control& control : controls_) {
    if (control.name() == name && control.def.param_type == type) return control;
  }
  throw ToolError(kExitModule, "the module has no control \"" + name + "\" of the expected kind");
}

Layer::Layer(Session& session, const Image& first_frame)
    : Layer(session, ToWorld(first_frame, session.pixel_aspect())) {}

Layer::Layer(Session& session, World first_frame) : session_(session) {
  first_frame.set_pixel_aspect(session.pixel_aspect());
  cinebar_simhost::NewInstance applied = session.host().Apply(std::move(first_frame));
  instance_ = &applied.instance;
  if (applied.err != PF_Err_NONE) {
    const std::string text = Failure(session.host(), "sequence setup", applied.err);
    session.host().Remove(*instance_);
    throw ToolError(kExitModule, text);
  }
}

Layer::~Layer() { session_.host().Remove(*instance_); }

void Layer::Change(const Edit& edit) {
  Host& host = session_.host();
  PF_Err err = PF_Err_NONE;
  const PF_ParamDef& def = instance_->param(edit.index);
  const std::string what =
      "the change of \"" + std::string(def.name, strnlen(def.name, sizeof def.name)) + "\"";
  switch (edit.type) {
    case PF_Param_POPUP:
      err = host.ChangePopup(*instance_, edit.index, edit.popup);
      break;
    case PF_Param_FLOAT_SLIDER:
      err = host.ChangeFloat(*instance_, edit.index, edit.number);
      break;
    case PF_Param_COLOR:
      err = host.ChangeColor(*instance_, edit.index, edit.color);
      break;
    default:
      throw ToolError(kExitModule, what + ": the tool cannot edit this kind of control");
  }
  Require(host, what, err);
}

Image Layer::Render(const Image& frame) {
  World input = ToWorld(frame, session_.pixel_aspect());
  World output = NewWorld(frame.width, frame.height, frame.deep);
  output.set_pixel_aspect(session_.pixel_aspect());
  Render(input, output);
  return FromWorld(output);
}

void Layer::Render(World& input, World& output) {
  std::swap(instance_->input(), input);
  const PF_Err err = session_.host().Render(*instance_, output);
  std::swap(instance_->input(), input);
  Require(session_.host(), "render", err);
}

std::uint16_t PngToHost16(std::uint16_t sample) {
  return static_cast<std::uint16_t>((std::uint32_t{sample} * 32768u * 2u + 65535u) / (65535u * 2u));
}

std::uint16_t HostToPng16(std::uint16_t sample) {
  if (sample >= 32768) return 65535;
  return static_cast<std::uint16_t>((std::uint32_t{sample} * 65535u * 2u + 32768u) / (32768u * 2u));
}

World ToWorld(const Image& image, PF_RationalScale pixel_aspect) {
  World world = NewWorld(image.width, image.height, image.deep);
  world.set_pixel_aspect(pixel_aspect);
  PF_LayerDef* layer = world.layer();
  auto* base = reinterpret_cast<std::uint8_t*>(layer->data);
  for (int y = 0; y < image.height; ++y) {
    std::uint8_t* row = base + static_cast<std::size_t>(y) * static_cast<std::size_t>(layer->rowbytes);
    const std::uint16_t* s = image.at(0, y);
    for (int x = 0; x < image.width; ++x, s += 4) {
      if (image.deep) {
        const PF_Pixel16 p{PngToHost16(s[3]), PngToHost16(s[0]), PngToHost16(s[1]), PngToHost16(s[2])};
        std::memcpy(row + static_cast<std::size_t>(x) * sizeof p, &p, sizeof p);
      } else {
        const PF_Pixel p{static_cast<A_u_char>(s[3]), static_cast<A_u_char>(s[0]),
                         static_cast<A_u_char>(s[1]), static_cast<A_u_char>(s[2])};
        std::memcpy(row + static_cast<std::size_t>(x) * sizeof p, &p, sizeof p);
      }
    }
  }
  return world;
}

Image FromWorld(World& world) {
  Image image(world.width(), world.height(), world.deep());
  PF_LayerDef* layer = world.layer();
  const auto* base = reinterpret_cast<const std::uint8_t*>(layer->data);
  for (int y = 0; y < image.height; ++y) {
    const std::uint8_t* row = base + static_cast<std::size_t>(y) * static_cast<std::size_t>(layer->rowbytes);
    std::uint16_t* d = image.at(0, y);
    for (int x = 0; x < image.width; ++x, d += 4) {
      if (image.deep) {
        PF_Pixel16 p;
        std::memcpy(&p, row + static_cast<std::size_t>(x) * sizeof p, sizeof p);
        d[0] = HostToPng16(p.red);
        d[1] = HostToPng16(p.green);
        d[2] = HostToPng16(p.blue);
        d[3] = HostToPng16(p.alpha);
      } else {
        PF_Pixel p;
        std::memcpy(&p, row + static_cast<std::size_t>(x) * sizeof p, sizeof p);
        d[0] = p.red;
        d[1] = p.green;
        d[2] = p.blue;
        d[3] = p.alpha;
      }
    }
  }
  return image;
}

}  // namespace cinebar_tool
