#include "tools/cinebar/layer.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "tools/cinebar/replay.h"
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

[[noreturn]] void TooLarge(int width, int height, const std::invalid_argument& e) {
  throw ToolError(kExitInput, std::to_string(width) + "x" + std::to_string(height) +
                                  " is too large for the simulated host: " + e.what());
}

// A world of this size and depth in `world`, kept when it has one.
void Fit(std::unique_ptr<World>& world, int width, int height, bool deep, PF_RationalScale aspect) {
  if (world && world->width() == width && world->height() == height && world->deep() == deep) return;
  world.reset();
  try {
    world = std::make_unique<World>(width, height, deep);
  } catch (const std::invalid_argument& e) {
    TooLarge(width, height, e);
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

void Layer::RenderWorlds(Worlds& worlds) {
  std::swap(instance_->input(), *worlds.input);
  const PF_Err err = session_.host().Render(*instance_, *worlds.output);
  std::swap(instance_->input(), *worlds.input);
  Require(session_.host(), "render", err);
}

namespace {

template <typename Pixel>
Pixel At(const std::uint8_t* row, int x) {
  Pixel p;
  std::memcpy(&p, row + static_cast<std::size_t>(x) * sizeof p, sizeof p);
  return p;
}

// The smallest rectangles of the world's pixels equal to `value` and to
// transparent black (0), one pass over it: each row is scanned from the
// left and from the right only as far as the first pixel of each kind.
template <typename Pixel>
void Bounds(World& world, Pixel value, Picture& shown, Picture& cleared) {
  const int width = world.width();
  shown = cleared = Picture{width, world.height(), 0, 0, true};
  for (int y = 0; y < world.height(); ++y) {
    const std::uint8_t* row = Row(world, y);
    for (const auto& [box, wanted] : {std::pair<Picture*, Pixel>{&shown, value}, {&cleared, Pixel{0}}}) {
      int left = 0;
      while (left < width && At<Pixel>(row, left) != wanted) ++left;
      if (left == width) continue;
      int right = width;
      while (At<Pixel>(row, right - 1) != wanted) --right;
      box->left = std::min(box->left, left), box->right = std::max(box->right, right);
      box->top = std::min(box->top, y), box->bottom = std::max(box->bottom, y + 1);
    }
  }
}

// A pixel's bytes, zero-extended, as Looked holds them.
std::uint64_t PixelAt(World& world, int x, int y) {
  std::uint64_t pixel = 0;
  std::memcpy(&pixel, Row(world, y) + static_cast<std::size_t>(x) * world.bytes_per_pixel(),
              static_cast<std::size_t>(world.bytes_per_pixel()));
  return pixel;
}

Picture Intersection(const Picture& a, const Picture& b, bool image) {
  return Picture{std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right),
                 std::min(a.bottom, b.bottom), image};
}

// After one probe of `value`: the picture, when a pixel outside what the
// probe found is neither `value` nor transparent black. Then the bars are of
// a third colour, so the probe's bounds are exactly the picture (a second
// probe would find the same). Otherwise the bars may have taken a value.
std::optional<Picture> Settled(int width, int height, std::uint64_t flat, const Looked& seen) {
  const Picture found = seen.shown.empty() ? seen.cleared : seen.shown;
  if (found.empty() || (found.left == 0 && found.top == 0 && found.right == width && found.bottom == height))
    return std::nullopt;
  const bool first = found.left > 0 || found.top > 0;  // (0,0) lies outside, else the last pixel does
  const std::uint64_t pixel = first ? seen.first : seen.last;
  if (pixel == flat || pixel == 0) return std::nullopt;
  return Picture{found.left, found.top, found.right, found.bottom, !seen.shown.empty()};
}

// The picture from flat inputs: the module shows the input where the output
// is each input's value, and clears the picture where the outputs are
// transparent black. A bar (one colour) takes at most one of two values, so
// the intersection of two probes' bounds is the picture; one probe suffices
// when the bars are of neither value. `look` renders one flat input.
template <typename Look>
Picture Decide(int width, int height, int pixel_bytes, const Look& look) {
  const Looked one = look(std::uint8_t{0x11});
  if (std::optional<Picture> settled = Settled(width, height, FlatPixel(0x11, pixel_bytes), one))
    return *settled;
  const Looked two = look(std::uint8_t{0x22});
  Picture picture = Intersection(one.shown, two.shown, true);
  if (picture.empty()) picture = Intersection(one.cleared, two.cleared, false);
  if (picture.empty()) picture = Picture{width / 2, 0, width / 2, height, false};
  return picture;
}

}  // namespace

Looked Layer::Probe(Worlds& worlds, std::uint8_t value) {
  World& input = *worlds.input;
  World& output = *worlds.output;
  const std::size_t bytes =
      static_cast<std::size_t>(input.width()) * static_cast<std::size_t>(input.bytes_per_pixel());
  for (int y = 0; y < input.height(); ++y) std::memset(Row(input, y), value, bytes);
  RenderWorlds(worlds);
  Looked seen;
  if (input.deep()) {
    Bounds<std::uint64_t>(output, 0x0101010101010101u * value, seen.shown, seen.cleared);
  } else {
    Bounds<std::uint32_t>(output, 0x01010101u * value, seen.shown, seen.cleared);
  }
  if (output.width() > 0 && output.height() > 0) {
    seen.first = PixelAt(output, 0, 0);
    seen.last = PixelAt(output, output.width() - 1, output.height() - 1);
  }
  return seen;
}

Picture Layer::Find(int width, int height, bool deep, Worlds& worlds) {
  // The worlds follow every frame's size and depth, whether its picture is known or not.
  Fit(worlds.input, width, height, deep, session_.pixel_aspect());
  Fit(worlds.output, width, height, deep, session_.pixel_aspect());
  const std::uint64_t key = std::uint64_t(width) << 32 | std::uint64_t(height) << 1 | (deep ? 1 : 0);
  for (const auto& [size, picture] : pictures_)
    if (size == key) return picture;
  const Picture picture = Decide(width, height, World::BytesPerPixel(deep),
                                 [&](std::uint8_t value) { return Probe(worlds, value); });
  pictures_.emplace_back(key, picture);
  return picture;
}

std::optional<Picture> Layer::Replayed(int width, int height, bool deep) {
  Worlds worlds;
  try {
    worlds.input = std::make_unique<World>(World::WithoutPixels(width, height, deep));
    worlds.output = std::make_unique<World>(World::WithoutPixels(width, height, deep));
  } catch (const std::invalid_argument& e) {
    TooLarge(width, height, e);
  } catch (const std::runtime_error&) {
    return std::nullopt;  // no such worlds on this system
  }
  for (World* world : {worlds.input.get(), worlds.output.get()})
    world->set_pixel_aspect(session_.pixel_aspect());
  const std::vector<cinebar_simhost::CallRecord>& calls = session_.host().log().records();
  const std::size_t first = calls.size();
  RenderWorlds(worlds);
  if (worlds.input->PixelsTouched() || worlds.output->PixelsTouched()) return std::nullopt;
  const std::optional<Drawing> drawing =
      Drawing::Replay(calls, first, *worlds.input->layer(), *worlds.output->layer());
  if (!drawing) return std::nullopt;
  return Decide(width, height, World::BytesPerPixel(deep),
                [&](std::uint8_t value) { return drawing->Look(value); });
}

Picture Layer::Measure(int width, int height, bool deep, bool* replayed) {
  std::optional<Picture> picture = Replayed(width, height, deep);
  if (replayed != nullptr) *replayed = picture.has_value();
  if (picture) return *picture;
  Worlds worlds;  // the module touched pixels itself, or drew what no replay follows
  return Find(width, height, deep, worlds);
}

Rendered Layer::Render(const Frame& in, Worlds& worlds, const PF_Pixel* opaque) {
  Rendered r;
  r.picture = Find(in.width, in.height, in.deep, worlds);
  const Picture& pic = r.picture;
  if (in.deep) {
    ToWorld<true>(in, *worlds.input);
  } else {
    ToWorld<false>(in, *worlds.input);
  }
  RenderWorlds(worlds);
  r.deep = in.deep;
  const std::uint16_t full = in.deep ? 65535 : 255;
  const bool whole = pic.left == 0 && pic.top == 0 && pic.right == in.width && pic.bottom == in.height;
  r.bar[3] = full;
  r.opaque = opaque != nullptr;
  if (opaque != nullptr) {
    const int scale = in.deep ? 257 : 1;
    for (const auto& [c, v] : {std::pair{0, opaque->red}, {1, opaque->green}, {2, opaque->blue}})
      r.bar[c] = static_cast<std::uint16_t>(v * scale);
  } else if (!whole) {  // a corner in a bar
    const bool first = pic.empty() || pic.left > 0 || pic.top > 0;
    Take(Row(*worlds.output, first ? 0 : in.height - 1), first ? 0 : in.width - 1, in.deep, r.bar);
  }
  const bool color = in.color() || (!whole && (r.bar[0] != r.bar[1] || r.bar[1] != r.bar[2]));
  const bool alpha = in.alpha() || (!whole && r.bar[3] != full) || (!pic.image && !pic.empty());
  r.channels = (color ? 3 : 1) + (alpha ? 1 : 0);
  r.dropped = in.dropped;
  r.chunks = CarryChunks(in.chunks, in.form(), "", FrameForm(r.channels, in.deep), r.dropped);
  return r;
}

namespace {

// Picture pixels x in [left, right) of an input without alpha, each followed
// by a full alpha (RGB to RGBA, grey to grey and alpha), right to left.
template <std::size_t kBytes, std::size_t kAlphaBytes>
void WithFullAlpha(const std::uint8_t* source, std::uint8_t* row, int left, int right) {
  for (int x = right - 1; x >= left; --x) {
    std::uint8_t pixel[kBytes + kAlphaBytes];
    std::memcpy(pixel, source + static_cast<std::size_t>(x) * kBytes, kBytes);
    std::memset(pixel + kBytes, 0xFF, kAlphaBytes);
    std::memcpy(row + static_cast<std::size_t>(x) * sizeof pixel, pixel, sizeof pixel);
  }
}

// The same, chosen by the input's channels (1 or 3) and depth.
void WithFullAlpha(const Frame& in, const std::uint8_t* source, std::uint8_t* row, int left, int right) {
  using Fn = void (*)(const std::uint8_t*, std::uint8_t*, int, int);
  static constexpr Fn kCopies[2][2] = {{WithFullAlpha<1, 1>, WithFullAlpha<3, 1>},
                                       {WithFullAlpha<2, 2>, WithFullAlpha<6, 2>}};
  kCopies[in.deep ? 1 : 0][in.color() ? 1 : 0](source, row, left, right);
}

}  // namespace

// Right to left: `row` may lie over the input's own row at the same or a
// later address (the writer's buffer), so each pixel is read before any
// write reaches it.
void ComposeRow(const Frame& in, const Worlds& worlds, const Rendered& r, int y, std::uint8_t* row) {
  const Picture& pic = r.picture;
  const bool deep = in.deep;
  const std::size_t ob = static_cast<std::size_t>(r.channels) * (deep ? 2 : 1), ib = in.pixel_bytes();
  const std::uint8_t* world = Row(*worlds.output, y);
  const std::uint8_t* source = in.row(y);
  const bool rows = y >= pic.top && y < pic.bottom;
  const int left = rows ? pic.left : in.width, right = rows ? pic.right : in.width;
  std::uint16_t rgba[4];
  const auto bars = [&](int from, int to) {
    for (int x = to - 1; x >= from; --x) {
      if (!r.opaque) Take(world, x, deep, rgba);
      Put(row + static_cast<std::size_t>(x) * ob, r.opaque ? r.bar : rgba, r.channels, deep);
    }
  };
  bars(right, in.width);
  if (pic.image && r.channels == in.channels) {
    std::memmove(row + static_cast<std::size_t>(left) * ob, source + static_cast<std::size_t>(left) * ib,
                 static_cast<std::size_t>(right - left) * ob);
  } else if (pic.image && r.channels == in.channels + 1 && !in.alpha()) {
    WithFullAlpha(in, source, row, left, right);
  } else {
    for (int x = right - 1; x >= left; --x) {
      if (pic.image) {
        Source(in, source + static_cast<std::size_t>(x) * ib, rgba);
      } else {
        Take(world, x, deep, rgba);
      }
      Put(row + static_cast<std::size_t>(x) * ob, rgba, r.channels, deep);
    }
  }
  bars(0, left);
}

void Layer::Render(const Frame& in, Frame& out, const PF_Pixel* opaque) {
  Rendered r = Render(in, worlds_, opaque);
  out.Resize(in.width, in.height, r.channels, in.deep);
  out.chunks = std::move(r.chunks);
  out.dropped = std::move(r.dropped);
  for (int y = 0; y < in.height; ++y) ComposeRow(in, worlds_, r, y, out.row(y));
}

}  // namespace cinebar_tool
