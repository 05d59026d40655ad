// Every picture exact, judged by libpng and the independent picture model:
// the rectangle the tool finds by rendering flat frames through the module;
// seeded random sequences (sizes that come back to earlier ones, every colour
// type and depth, tRNS, interlacing, text chunks) from a folder and through
// pipes at one and two jobs, and a stream cut anywhere; README's folder of
// photographs. CINEBAR_RANDOM_SEQUENCES=N runs N seeds instead of a few.
#include <cmath>
#include <cstdlib>

#include "tests/effect/picture_model.h"
#include "tool_fixture.h"
#include "tools/cinebar/controls.h"
#include "tools/cinebar/layer.h"
#include "tools/cinebar/replay.h"

namespace cinebar_tool_test {
namespace {

std::string Text(const cinebar_tool::Picture& p) {  // its rectangle as the model writes one
  return picture_model::Text(PF_Rect{p.left, p.top, p.right, p.bottom});
}

// With bars of a third colour (one probe), of the first probe's value or
// transparent black (a second probe decides), in both render modes, at both depths.
// The dry run's picture, replayed from the host's record of one render in
// worlds without pixels, is the same.
TEST(ToolProbe, FindsThePictureWhateverColourTheBarsAre) {
  for (const PF_RationalScale par : {PF_RationalScale{1, 1}, {10, 11}}) {
    cinebar_tool::Session session(CINEBAR_MODULE_PATH, par);
    cinebar_tool::Layer layer(session);
    const auto& color = session.control(cinebar_tool::kColorControl, PF_Param_COLOR);
    const auto& ratio = session.control(cinebar_tool::kRatioControl, PF_Param_FLOAT_SLIDER);
    const auto& mode = session.control(cinebar_tool::kRenderControl, PF_Param_POPUP);
    const A_long on_image = cinebar_tool::FindItem(mode, "on-image").at(0);
    // alpha, red, green, blue: a third colour, the first probe's bytes, transparent black
    const PF_Pixel bars[] = {{255, 0, 0, 0}, {255, 32, 160, 64}, {0x11, 0x11, 0x11, 0x11}, {0, 0, 0, 0}};
    // Both bars, one row at the bottom, one column at the right, pillarbox, and random sizes.
    std::vector<std::array<double, 3>> sizes = {{1920, 1080, 2.35}, {1920, 1080, 1.778}, {1920, 1080, 1.777},
                                                {720, 480, 1.2},    {1, 240, 2.35},      {320, 1, 0.5}};
    std::mt19937 rng(24);
    const double low = ratio.def.u.fs_d.valid_min, high = ratio.def.u.fs_d.valid_max;
    for (int i = 0; i < 6; ++i)
      sizes.push_back({1.0 + rng() % 300, 1.0 + rng() % 300, low + (high - low) * (rng() % 1000) / 999});
    for (const auto& [width, height, aspect] : sizes) {
      layer.Change({ratio.index, PF_Param_FLOAT_SLIDER, 0, aspect, {}});
      const PF_Rect model = picture_model::Model(int(width), int(height), float(aspect), {1, 1}, {1, 1}, par);
      for (const PF_Pixel& bar : bars) {
        layer.Change({color.index, PF_Param_COLOR, 0, 0.0, bar});
        for (const A_long item : {on_image, cinebar_tool::FindItem(mode, "on-transparent").at(0)}) {
          layer.Change({mode.index, PF_Param_POPUP, item, 0.0, {}});
          for (const bool deep : {false, true}) {
            const cinebar_tool::Picture p = layer.Find(int(width), int(height), deep);
            bool replayed = false;
            const cinebar_tool::Picture m = layer.Measure(int(width), int(height), deep, &replayed);
            EXPECT_TRUE(replayed && Text(m) == Text(p) && m.image == p.image) << "the dry run's replay";
            // All of it transparent black: no image (bars and a vanished picture look alike);
            // an empty picture; or the model's, shown on image.
            const bool vanished = model.right <= model.left || model.bottom <= model.top;
            const bool clear_bars = bar.alpha == 0 && bar.red == 0;
            EXPECT_TRUE(clear_bars && item != on_image ? !p.image
                        : vanished                     ? p.empty() || (clear_bars && !p.image)
                                   : Text(p) == picture_model::Text(model) && p.image == (item == on_image))
                << width << "x" << height << " at " << aspect << (deep ? " 16-bit" : " 8-bit") << ", bars "
                << int(bar.alpha) << "/" << int(bar.red) << ", mode " << item << ": " << Text(p) << p.image;
          }
        }
      }
    }
  }
}

// The replay over hand-made records: later calls over earlier ones in two
// dimensions, refused calls passed over, no answer for what it cannot follow.
TEST(ToolProbe, ReplayFollowsTheCallsOrGivesUp) {
  using cinebar_simhost::CallRecord, cinebar_simhost::HostFn;
  std::uint8_t bytes[3];
  const auto world = [&](int at, A_long rowbytes = 40) {
    PF_LayerDef w{};
    w.data = reinterpret_cast<PF_PixelPtr>(&bytes[at]), w.rowbytes = rowbytes, w.width = 10, w.height = 8;
    return w;
  };
  const auto fill = [](const PF_LayerDef& w, PF_Rect r, A_u_char v, long long result = PF_Err_NONE) {
    CallRecord c;
    c.fn = HostFn::kFill, c.result = result, c.rect = r, c.color = PF_Pixel{v, v, v, v}, c.world = w;
    return c;
  };
  const auto copy = [](const PF_LayerDef& src, const PF_LayerDef& dst, PF_Rect r) {
    CallRecord c;
    c.fn = HostFn::kCopy, c.rect = c.src_rect = r, c.world = dst, c.src_world = src;
    return c;
  };
  const PF_LayerDef in = world(0), out = world(1);
  const PF_Rect all{0, 0, 10, 8}, mid{2, 1, 7, 5}, none{10, 8, 0, 0};
  const struct {
    std::vector<CallRecord> calls;
    std::optional<std::pair<PF_Rect, PF_Rect>> want;  // shown and cleared after a flat input of 0x11
  } kCases[] = {
      {{}, {{none, all}}},
      {{fill(out, all, 9), copy(in, out, mid)}, {{mid, none}}},
      {{fill(out, all, 9), fill(out, mid, 0), fill(out, {0, 0, 1, 1}, 0, PF_Err_BAD_CALLBACK_PARAM)},
       {{none, mid}}},
      {{fill(out, all, 0x11)}, {{all, none}}},
      {{fill(in, all, 9)}, {}},
      {{copy(out, out, mid)}, {}},
      {{copy(world(2), out, mid)}, {}},
      {{fill(world(1, 44), all, 9)}, {}},
  };
  for (const auto& c : kCases) {
    const std::optional<cinebar_tool::Drawing> drawing = cinebar_tool::Drawing::Replay(c.calls, 0, in, out);
    ASSERT_EQ(drawing.has_value(), c.want.has_value()) << c.calls.size() << " calls";
    if (!drawing) continue;
    const cinebar_tool::Looked seen = drawing->Look(0x11);
    EXPECT_EQ(Text(seen.shown) + " / " + Text(seen.cleared),
              picture_model::Text(c.want->first) + " / " + picture_model::Text(c.want->second));
  }
}

struct Look {  // the options of one sequence's render
  float ratio;
  PF_RationalScale aspect;
  std::array<int, 4> color;  // RGBA
  bool opaque, cleared;
};

// Counts the pixels of `out` that are neither the input inside the model's
// rectangle nor the bar outside it; reports the first few. The output's form
// must be the smallest that holds the input's and the bars'.
int WrongPixels(const std::string& in, const std::string& out, const Look& look) {
  const Reading want = Decode(in), got = Decode(out);
  if (got.depth != want.depth || got.width != want.width || got.height != want.height)
    return ADD_FAILURE() << out << ": another size or depth " << got.error, -1;
  const PF_Rect r = picture_model::Model(got.width, got.height, look.ratio, {1, 1}, {1, 1}, look.aspect);
  const int full = (1 << want.depth) - 1;
  std::array<int, 4> bar = look.color;
  // The host's 16-bit scale (x128 of 32768) at file scale; opaque bars at full.
  for (int c = 0; c < 4 && full > 255; ++c)
    bar[c] = look.opaque ? bar[c] * 257 : static_cast<int>(std::lround(bar[c] * 128 * 65535.0 / 32768));
  if (look.opaque) bar[3] = full;
  bool color = want.channels >= 3, alpha = want.channels % 2 == 0;
  int wrong = 0;
  for (int y = 0; y < got.height; ++y)
    for (int x = 0; x < got.width; ++x) {
      const bool inside = x >= r.left && x < r.right && y >= r.top && y < r.bottom;
      std::array<int, 4> expected = inside ? want.Rgba(x, y) : bar;
      if (inside && look.cleared) expected = {};
      color = color || expected[0] != expected[1] || expected[1] != expected[2];
      alpha = alpha || expected[3] != full;
      const std::array<int, 4> pixel = got.Rgba(x, y);
      if (pixel != expected && ++wrong <= 3)
        ADD_FAILURE() << out << " pixel " << x << "," << y << (inside ? " (picture)" : " (bar)") << " is "
                      << pixel[0] << " " << pixel[1] << " " << pixel[2] << " " << pixel[3];
    }
  EXPECT_EQ(got.channels, (color ? 3 : 1) + (alpha ? 1 : 0)) << out << ": not the smallest form";
  return wrong;
}

TEST_F(ToolTest, RandomSequencesEveryFrameExactFromAFolderAndThroughPipes) {
  constexpr float kRatios[] = {1.0f, 1.333f, 1.85f, 2.35f, 0.5f, 4.0f};
  constexpr PF_RationalScale kAspects[] = {{1, 1}, {10, 11}, {40, 33}, {2, 1}};
  const char* seeds = std::getenv("CINEBAR_RANDOM_SEQUENCES");
  for (int seed = 1; seed <= (seeds != nullptr ? std::max(1, std::atoi(seeds)) : 4); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(static_cast<std::mt19937::result_type>(seed));
    const auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    // Frames of three random sizes in random forms, some with text, in in/ and one after another on "all".
    std::pair<int, int> sizes[3];
    for (auto& [w, h] : sizes) w = 1 + pick(300), h = 1 + pick(200);
    fs::remove_all("in"), fs::create_directory("in");
    // Each frame's text, and where it ends on "all".
    std::vector<std::pair<bool, std::size_t>> frames(std::size_t(4 + pick(4)));
    std::string all;
    for (std::size_t i = 0; i < frames.size(); ++i) {
      std::string file = WriteWithLibpng(RandomPicture(random, sizes[pick(3)]));
      if ((frames[i].first = pick(2) == 1))
        file = Insert(file, ChunkBytes("tEXt", std::string("Comment\0hi", 10)), "IEND");
      std::ofstream("in/" + std::to_string(i + 1) + ".png", std::ios::binary) << file;
      frames[i].second = (all += file).size();
    }
    std::ofstream("all", std::ios::binary) << all;
    // Grey bars, so that grey inputs stay grey; bars of any colour and opacity; or of the values that
    // flat frames probing for the picture hold, or transparent black.
    const int grey = pick(256), r = pick(256), g = pick(256), b = pick(256), a = pick(256);
    const int flat = std::array{0x11, 0x22, 0}[pick(3)];
    const std::array<int, 4> kColors[] = {
        {grey, grey, grey, 255}, {r, g, b, 255}, {r, g, b, a}, {flat, flat, flat, flat}};
    const Look look{kRatios[pick(6)], kAspects[pick(4)], kColors[pick(4)], pick(3) == 0, pick(3) == 0};
    char options[160];
    std::snprintf(options, sizeof options, "--ratio %g --pixel-aspect %d/%u --color #%02X%02X%02X%02X%s%s",
                  look.ratio, look.aspect.num, look.aspect.den, look.color[0], look.color[1], look.color[2],
                  look.color[3], look.opaque ? " --opaque-bars" : "",
                  look.cleared ? " --render on-transparent" : "");
    // At deflate levels 0 (stored) to 12; the last run's stream cut anywhere fails after the whole frames.
    const std::size_t cut = random() % all.size();
    for (const std::string from : {"in out --jobs 2", "- out/%d.png --jobs 1", "- out/%d.png --jobs 2"}) {
      const std::string run = "render " + from + " --compression " + std::to_string(pick(13)) + " " + options;
      const bool cuts = from.ends_with("2") && from[0] == '-';
      SCOPED_TRACE(run + (cuts ? ", cut at " + std::to_string(cut) : ""));
      fs::remove_all("out");
      const std::size_t end = cuts ? cut : all.size();  // a cut between two frames is a clean end
      const File pipe(popen(("head -c " + std::to_string(end) + " all").c_str(), "r"), &pclose);
      const Outcome outcome = Run(Words(run), pipe.get());
      std::size_t whole = 0;
      while (whole < frames.size() && frames[whole].second <= end) ++whole;
      ASSERT_EQ(outcome.code, whole > 0 && frames[whole - 1].second == end ? 0 : 3) << outcome.err;
      ASSERT_EQ(Files("out").size(), whole);
      for (std::size_t i = 0; i < whole; ++i) {
        const std::string name = std::to_string(i + 1) + ".png";
        EXPECT_EQ(WrongPixels("in/" + name, "out/" + name, look), 0);
        EXPECT_EQ(Contents("out/" + name).find("tEXtComment") != std::string::npos, frames[i].first) << name;
      }
    }
  }
}

// README's folder of photographs: sizes and depths that come back.
TEST_F(ToolTest, FolderOfPhotographsEveryFrameExact) {
  const std::string photos = "/usr/share/backgrounds/mate/nature/";
  if (std::system("command -v ffmpeg > /dev/null 2>&1") != 0 || !fs::exists(photos))
    GTEST_SKIP() << "needs ffmpeg and mate-backgrounds (" << photos << ")";
  fs::create_directory("shots");
  for (const char* shot : {"Aqua 321:181 rgb24", "Dune 720:480 rgb48be", "Garden 321:181 rgb24",
                           "Storm 1280:720 rgba", "Wood 720:480 gray16be"}) {  // name, size, pixel format
    const std::vector<std::string> w = Words(shot);
    const std::string convert = "ffmpeg -loglevel error -i " + photos + w[0] + ".jpg -vf scale=" + w[1] +
                                " -pix_fmt " + w[2] + " shots/" + w[0] + ".png";
    ASSERT_EQ(std::system(convert.c_str()), 0) << convert;
  }
  const Outcome outcome = Run(Words("render shots out --preset 2.35 --pixel-aspect 1/1 --jobs 2"));
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  for (const std::string& name : Files("shots"))
    EXPECT_EQ(WrongPixels("shots/" + name, "out/" + name, {2.35f, {1, 1}, {0, 0, 0, 255}, false, false}), 0);
}

}  // namespace
}  // namespace cinebar_tool_test
