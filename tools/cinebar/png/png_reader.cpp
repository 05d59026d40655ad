#include "tools/cinebar/png/png_reader.h"

#include <algorithm>
#include <cstring>

#include "tools/cinebar/png/png_chunks.h"
#include "tools/cinebar/png/png_decode.h"
#include "tools/cinebar/png/png_stream.h"
#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {
namespace {

// libpng's limits: an ancillary chunk's size, how many it keeps, and the most
// a deflate stream inflates to (258 bytes from a little over two bits).
constexpr std::uint32_t kMaxAncillaryBytes = 8000000;
constexpr std::size_t kMaxAncillaryChunks = 1000;
constexpr std::uint64_t kMaxInflation = 1032;

std::string SizeText(std::uint32_t width, std::uint32_t height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

// The walk over one PNG's chunks: where each may stand, what it says.
class Walk {
 public:
  Walk(ChunkStream& stream, Frame& frame, ReadPart part) : s_(stream), frame_(frame), part_(part) {}
  void Run();
  const PngLayout& layout() const { return png_; }
  const std::string& compressed() const { return idat_; }

 private:
  void Header(const ChunkHead& head);
  void Palette(const ChunkHead& head);
  void ImageData(const ChunkHead& head);
  void Ancillary(const ChunkHead& head);
  void Keep(const std::string& type, std::string data);
  void Finish();

  ChunkStream& s_;
  Frame& frame_;
  ReadPart part_;
  PngLayout png_;
  std::string& idat_ = Compressed();
  std::uint64_t idat_bytes_ = 0;
  bool data_seen_ = false, data_ended_ = false;
  std::vector<std::string> seen_;
  std::vector<Chunk> chunks_;

  static std::string& Compressed() {  // kept by the thread for the next frame
    thread_local std::string bytes;
    bytes.clear();
    return bytes;
  }
};

void Walk::Run() {
  for (;;) {
    const ChunkHead head = s_.Next();
    if (data_seen_ && head.type != "IDAT") data_ended_ = true;
    if (head.type == "IHDR") {
      Header(head);
    } else if (head.type == "PLTE") {
      Palette(head);
    } else if (head.type == "IDAT") {
      ImageData(head);
    } else if (head.type == "IEND") {
      if (head.length != 0) s_.Refuse("its IEND chunk is not empty");
      s_.Skip();
      break;
    } else if (head.critical()) {
      s_.Refuse("it holds the unknown critical chunk " + head.type);
    } else {
      Ancillary(head);
    }
  }
  Finish();
}

void Walk::Header(const ChunkHead& head) {
  if (png_.width != 0) s_.Refuse("it has a second header (IHDR)");
  if (head.length != 13) s_.Refuse("its header (IHDR) is not 13 bytes long");
  std::string data;
  s_.Append(data);
  const auto* h = reinterpret_cast<const std::uint8_t*>(data.data());
  png_.width = Be32(h), png_.height = Be32(h + 4);
  png_.form.depth = h[8], png_.form.color_type = h[9], png_.interlaced = h[12] == 1;
  static const char* const kDepths[] = {"\1\2\4\10\20", "", "\10\20", "\1\2\4\10", "\10\20", "", "\10\20"};
  if (png_.width == 0 || png_.height == 0 || png_.width > 0x7fffffff || png_.height > 0x7fffffff ||
      png_.form.color_type > 6 || png_.form.depth == 0 ||
      !std::strchr(kDepths[png_.form.color_type], png_.form.depth) || h[10] != 0 || h[11] != 0 || h[12] > 1)
    s_.Refuse("its header is not a valid PNG header");
  if (png_.width > kMaxSide || png_.height > kMaxSide)
    throw ToolError(kExitInput, s_.name() + " is " + SizeText(png_.width, png_.height) +
                                    ": the effect takes at most " + std::to_string(kMaxSide) +
                                    " pixels a side");
  const std::uint64_t world = std::uint64_t{png_.width} * png_.height * (png_.form.depth == 16 ? 8 : 4);
  if (world > kMaxWorldBytes)
    throw ToolError(kExitInput, s_.name() + " is " + SizeText(png_.width, png_.height) + " at " +
                                    (png_.form.depth == 16 ? "16" : "8") + " bits, which needs " +
                                    std::to_string(world >> 20) +
                                    " MiB; the simulated host's worlds hold at most " +
                                    std::to_string(kMaxWorldBytes >> 20) + " MiB");
}

void Walk::Palette(const ChunkHead& head) {
  const char* why = !png_.palette.empty() ? "it has a second palette (PLTE)"
                    : data_seen_          ? "its palette (PLTE) follows its image data"
                    : !png_.form.color()  ? "a grey image has a palette (PLTE)"
                    : head.length % 3 != 0 || head.length == 0 || head.length > 768
                        ? "its palette (PLTE) is malformed"
                    : !png_.trns.empty() || std::find(seen_.begin(), seen_.end(), "bKGD") != seen_.end()
                        ? "its palette (PLTE) follows its tRNS or bKGD chunk"
                        : nullptr;
  if (why != nullptr) s_.Refuse(why);
  s_.Append(png_.palette);
  // Entries beyond what the depth can index are never used.
  if (png_.form.color_type == kPalette)
    png_.palette.resize(std::min<std::size_t>(png_.palette.size(), 3u << png_.form.depth));
  png_.form.palette_entries = static_cast<int>(png_.palette.size() / 3);
}

void Walk::ImageData(const ChunkHead& head) {
  if (data_ended_) s_.Refuse("its image data (IDAT) is split by another chunk");
  if (png_.form.color_type == kPalette && png_.palette.empty())
    s_.Refuse("it has no palette before its image data");
  // libpng's bound on one IDAT chunk: the rows inflated, with deflate's overhead.
  std::uint64_t row = std::uint64_t{png_.width} * png_.form.samples() * (png_.form.depth > 8 ? 2 : 1) + 1 +
                      (png_.interlaced ? 6 : 0);
  std::uint64_t limit = std::min<std::uint64_t>(png_.height * row, 0x7fffffff);
  row = std::min<std::uint64_t>(row, 32566);
  limit = std::max<std::uint64_t>(std::min<std::uint64_t>(limit + 6 + 5 * (limit / row + 1), 0x7fffffff),
                                  kMaxAncillaryBytes);
  if (head.length > limit) s_.Refuse("an IDAT chunk is larger than its picture could need");
  data_seen_ = true;
  idat_bytes_ += head.length;
  if (part_ == ReadPart::kWhole) {
    s_.Append(idat_);
  } else {
    s_.Skip();
  }
}

void Walk::Ancillary(const ChunkHead& head) {
  if (head.length > kMaxAncillaryBytes)
    s_.Refuse("its " + head.type + " chunk is larger than libpng takes (" +
              std::to_string(kMaxAncillaryBytes) + " bytes)");
  const ChunkRule rule = RuleOf(head.type);
  const bool seen = std::find(seen_.begin(), seen_.end(), head.type) != seen_.end();
  if (rule.place == Place::kBeforePalette && (!png_.palette.empty() || data_seen_))
    s_.Refuse("its " + head.type + " chunk follows its palette or image data");
  if (rule.place == Place::kBeforeData && data_seen_)
    s_.Refuse("its " + head.type + " chunk follows its image data");
  if (rule.once && seen) s_.Refuse("it has a second " + head.type + " chunk");
  if (!seen) seen_.push_back(head.type);
  if (head.type == "tRNS" && png_.form.color_type == kPalette && png_.palette.empty())
    s_.Refuse("its tRNS chunk comes before its palette");
  std::string data;
  s_.Append(data);
  if (rule.fits != nullptr && !rule.fits(data, png_.form))
    s_.Refuse("its " + head.type + " chunk does not fit its " +
              (png_.form.color_type == kPalette ? "palette" : "form") + " (" + std::to_string(head.length) +
              " bytes)");
  if (head.type == "tRNS") {
    png_.trns = std::move(data);
  } else {
    Keep(head.type, std::move(data));
  }
}

void Walk::Keep(const std::string& type, std::string data) {
  if (type == "pHYs") {
    const auto* p = reinterpret_cast<const std::uint8_t*>(data.data());
    frame_.phys_x = Be32(p);
    frame_.phys_y = Be32(p + 4);
    frame_.pixel_aspect = std::to_string(frame_.phys_x) + ":" + std::to_string(frame_.phys_y) +
                          " pixels per " + (p[8] == 1 ? "metre" : "unit");
  }
  if (chunks_.size() < kMaxAncillaryChunks) {
    chunks_.push_back(Chunk{type, std::move(data)});
  } else if (std::find(frame_.dropped.begin(), frame_.dropped.end(), type) == frame_.dropped.end()) {
    frame_.dropped.push_back(type);
  }
}

void Walk::Finish() {
  if (!data_seen_) s_.Refuse("it has no image data (IDAT)");
  frame_.width = static_cast<int>(png_.width);
  frame_.height = static_cast<int>(png_.height);
  frame_.channels = (png_.form.color() ? 3 : 1) + (png_.form.alpha() || !png_.trns.empty() ? 1 : 0);
  frame_.deep = png_.form.depth == 16;
  if (png_.DataBytes() > idat_bytes_ * kMaxInflation)
    s_.Refuse("its " + std::to_string(idat_bytes_) + " bytes of image data cannot hold a " +
              SizeText(png_.width, png_.height) + " picture");
  frame_.chunks = CarryChunks(chunks_, png_.form, png_.palette, frame_.form(), frame_.dropped);
}

}  // namespace

bool ReadPng(std::FILE* in, const std::string& name, Frame& frame, ReadPart part) {
  ChunkStream stream(in, name);
  if (!stream.Signature()) return false;
  frame.chunks.clear();
  frame.dropped.clear();
  frame.pixel_aspect.clear();
  frame.phys_x = frame.phys_y = 0;
  Walk walk(stream, frame, part);
  walk.Run();
  if (part == ReadPart::kWhole) DecodeImage(walk.layout(), walk.compressed(), frame, stream);
  return true;
}

}  // namespace cinebar_tool
