#include "tools/cinebar/layer.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {

using cinebar_simhost::Host;
using cinebar_simhost::World;

Layer::Layer(Session& session) : session_(session) {
  World blank(1, 1);
  blank.set_pixel_aspect(session.pixel_aspect());
  cinebar_simhost::NewInstance applied = session.host().Apply(std::move(blank));
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
  pictures_.clear();
}

namespace {

// A world of this size and depth in `world`, kept when it has one.
void Fit(std::unique_ptr<World>& world, int width, int height, bool deep, PF_RationalScale aspect) {
  if (world && world->width() == width && world->height() == height && world->deep() == deep) return;
  world.reset();
  try {
    world = std::make_unique<World>(width, height, deep);
  } catch (const std::invalid_argument& e) {
    throw ToolError(kExitInput, std::to_string(width) + "x" + std::to_string(height) +
                                    " is too large for the simulated host: " + e.what());
  }
  world->set_pixel_aspect(aspect);
}

std::uint8_t* Row(World& world, int y) {
  PF_LayerDef* layer = world.layer();
  return reinterpret_cast<std::uint8_t*>(layer->data) + static_cast<std::size_t>(y) * layer->rowbytes;
}

// 16-bit file samples (0..65535) and the host's (0..32768), to the nearest;
// the way in by table, a division a sample being the slowest step of a 16-bit frame.
std::uint16_t ToHost16(std::uint16_t v) {
  static const std::vector<std::uint16_t> table = [] {
    std::vector<std::uint16_t> t(65536);
    for (std::uint32_t i = 0; i < t.size(); ++i)
      t[i] = static_cast<std::uint16_t>((i * 65536u + 65535u) / 131070u);
    return t;
  }();
  return table[v];
}
std::uint16_t FromHost16(std::uint16_t v) {
  return v >= 32768 ? 65535 : static_cast<std::uint16_t>((std::uint32_t{v} * 131070u + 32768u) >> 16);
}

// One file pixel (grey or colour, alpha or not) as the host's ARGB.
template <int kChannels, bool kDeep>
void ToWorldRow(const std::uint8_t* in, int width, std::uint8_t* out) {
  using Sample = std::conditional_t<kDeep, std::uint16_t, std::uint8_t>;
  auto* o = reinterpret_cast<Sample*>(out);
  for (int x = 0; x < width; ++x, in += kChannels * sizeof(Sample), o += 4) {
    Sample s[4] = {0, 0, 0, 0};
    for (int c = 0; c < kChannels; ++c) {
      if constexpr (kDeep) {
        s[c] = ToHost16(static_cast<std::uint16_t>(in[2 * c] << 8 | in[2 * c + 1]));
      } else {
        s[c] = in[c];
      }
    }
    const Sample full = kDeep ? 32768 : 255;
    o[0] = kChannels % 2 == 0 ? s[kChannels - 1] : full;
    o[1] = s[0];
    o[2] = kChannels >= 3 ? s[1] : s[0];
    o[3] = kChannels >= 3 ? s[2] : s[0];
  }
}

template <bool kDeep>
void ToWorld(const Frame& in, World& world) {
  using Fn = void (*)(const std::uint8_t*, int, std::uint8_t*);
  static constexpr Fn kRows[] = {nullptr, ToWorldRow<1, kDeep>, ToWorldRow<2, kDeep>, ToWorldRow<3, kDeep>,
                                 ToWorldRow<4, kDeep>};
  for (int y = 0; y < in.height; ++y) kRows[in.channels](in.row(y), in.width, Row(world, y));
}

// A pixel as the file holds it, RGBA in file units, into `channels` samples.
void Put(std::uint8_t* out, const std::uint16_t* rgba, int channels, bool deep) {
  const std::uint16_t s[4] = {rgba[0], channels >= 3 ? rgba[1] : rgba[3], rgba[2], rgba[3]};
  for (int c = 0; c < channels; ++c) {
    if (deep) {
      out[2 * c] = static_cast<std::uint8_t>(s[c] >> 8);
      out[2 * c + 1] = static_cast<std::uint8_t>(s[c]);
    } else {
      out[c] = static_cast<std::uint8_t>(s[c]);
    }
  }
}

// The world's pixel at x of a row in file units, RGBA.
void Take(const std::uint8_t* row, int x, bool deep, std::uint16_t* rgba) {
  if (deep) {
    PF_Pixel16 p;
    std::memcpy(&p, row + static_cast<std::size_t>(x) * sizeof p, sizeof p);
    const std::uint16_t v[4] = {p.red, p.green, p.blue, p.alpha};
    for (int c = 0; c < 4; ++c) rgba[c] = FromHost16(v[c]);
  } else {
    PF_Pixel p;
    std::memcpy(&p, row + static_cast<std::size_t>(x) * sizeof p, sizeof p);
    rgba[0] = p.red, rgba[1] = p.green, rgba[2] = p.blue, rgba[3] = p.alpha;
  }
}

// An input pixel in file units, RGBA (grey spread, alpha full when it has none).
void Source(const Frame& in, const std::uint8_t* p, std::uint16_t* rgba) {
  std::uint16_t s[4] = {0, 0, 0, 0};
  for (int c = 0; c < in.channels; ++c)
    s[c] = in.deep ? static_cast<std::uint16_t>(p[2 * c] << 8 | p[2 * c + 1]) : p[c];
  const bool color = in.color();
  rgba[0] = s[0];
  rgba[1] = color ? s[1] : s[0];
  rgba[2] = color ? s[2] : s[0];
  rgba[3] = in.alpha() ? s[in.channels - 1] : (in.deep ? 65535 : 255);
}

}  // namespace

void Layer::RenderWorlds() {
  std::swap(instance_->input(), *input_);
  const PF_Err err = session_.host().Render(*instance_, *output_);
  std::swap(instance_->input(), *input_);
  Require(session_.host(), "render", err);
}

Picture Layer::Find(int width, int height, bool deep) {
  // The worlds follow every frame's size and depth, whether its picture is known or not.
  Fit(input_, width, height, deep, session_.pixel_aspect());
  Fit(output_, width, height, deep, session_.pixel_aspect());
  const std::uint64_t key = std::uint64_t(width) << 32 | std::uint64_t(height) << 1 | (deep ? 1 : 0);
  for (const auto& [size, picture] : pictures_)
    if (size == key) return picture;
  // Two flat inputs: where the outputs differ, the module shows the input;
  // where both are transparent black, it clears the picture.
  std::vector<std::uint8_t> first;
  const std::size_t pixel = deep ? 8 : 4, bytes = static_cast<std::size_t>(width) * pixel;
  for (const std::uint8_t value : {0x11, 0x22}) {
    for (int y = 0; y < height; ++y) std::memset(Row(*input_, y), value, bytes);
    RenderWorlds();
    if (!first.empty()) break;
    for (int y = 0; y < height; ++y) first.insert(first.end(), Row(*output_, y), Row(*output_, y) + bytes);
  }
  Picture picture{width, height, 0, 0, false};
  const std::vector<std::uint8_t> clear(pixel, 0);
  for (int pass = 0; pass < 2 && picture.empty(); ++pass) {
    picture.image = pass == 0;
    for (int y = 0; y < height; ++y) {
      const std::uint8_t* a = first.data() + bytes * static_cast<std::size_t>(y);
      const std::uint8_t* b = Row(*output_, y);
      for (int x = 0; x < width; ++x, a += pixel, b += pixel) {
        const bool inside =
            pass == 0 ? std::memcmp(a, b, pixel) != 0
                      : std::memcmp(a, clear.data(), pixel) == 0 && std::memcmp(b, clear.data(), pixel) == 0;
        if (!inside) continue;
        picture.left = std::min(picture.left, x);
        picture.top = std::min(picture.top, y);
        picture.right = std::max(picture.right, x + 1);
        picture.bottom = std::max(picture.bottom, y + 1);
      }
    }
  }
  if (picture.empty()) picture = Picture{width / 2, 0, width / 2, height, false};
  pictures_.emplace_back(key, picture);
  return picture;
}

void Layer::Render(const Frame& in, Frame& out, const PF_Pixel* opaque) {
  const Picture pic = Find(in.width, in.height, in.deep);
  if (in.deep) {
    ToWorld<true>(in, *input_);
  } else {
    ToWorld<false>(in, *input_);
  }
  RenderWorlds();
  const bool deep = in.deep;
  const std::uint16_t full = deep ? 65535 : 255;
  const bool whole = pic.left == 0 && pic.top == 0 && pic.right == in.width && pic.bottom == in.height;
  std::uint16_t bar[4] = {0, 0, 0, full};
  if (opaque != nullptr) {
    const int scale = deep ? 257 : 1;
    for (const auto& [c, v] : {std::pair{0, opaque->red}, {1, opaque->green}, {2, opaque->blue}})
      bar[c] = static_cast<std::uint16_t>(v * scale);
  } else if (!whole) {  // a corner in a bar
    const bool first = pic.empty() || pic.left > 0 || pic.top > 0;
    Take(Row(*output_, first ? 0 : in.height - 1), first ? 0 : in.width - 1, deep, bar);
  }
  const bool color = in.color() || (!whole && (bar[0] != bar[1] || bar[1] != bar[2]));
  const bool alpha = in.alpha() || (!whole && bar[3] != full) || (!pic.image && !pic.empty());
  out.Resize(in.width, in.height, (color ? 3 : 1) + (alpha ? 1 : 0), deep);
  CarryChunks(in, out);
  const std::size_t ob = out.pixel_bytes(), ib = in.pixel_bytes();
  std::uint16_t rgba[4];
  for (int y = 0; y < in.height; ++y) {
    std::uint8_t* o = out.row(y);
    const std::uint8_t* world = Row(*output_, y);
    const std::uint8_t* source = in.row(y);
    const bool rows = y >= pic.top && y < pic.bottom;
    const int left = rows ? pic.left : in.width, right = rows ? pic.right : in.width;
    for (const auto& [from, to] : {std::pair{0, left}, {right, in.width}}) {
      for (int x = from; x < to; ++x) {
        if (opaque == nullptr) Take(world, x, deep, rgba);
        Put(o + static_cast<std::size_t>(x) * ob, opaque != nullptr ? bar : rgba, out.channels, deep);
      }
    }
    if (pic.image && out.channels == in.channels) {
      std::memcpy(o + static_cast<std::size_t>(left) * ob, source + static_cast<std::size_t>(left) * ib,
                  static_cast<std::size_t>(right - left) * ob);
      continue;
    }
    for (int x = left; x < right; ++x) {
      if (pic.image) {
        Source(in, source + static_cast<std::size_t>(x) * ib, rgba);
      } else {
        Take(world, x, deep, rgba);
      }
      Put(o + static_cast<std::size_t>(x) * ob, rgba, out.channels, deep);
    }
  }
}

}  // namespace cinebar_tool
