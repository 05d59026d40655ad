#include "tools/cinebar/png/png_stream.h"

#include <libdeflate.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tools/cinebar/png/png_form.h"
#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {
namespace {

constexpr std::uint32_t kMaxChunkLength = 0x7fffffff;
constexpr std::size_t kFirstPiece = 64 * 1024;

}  // namespace

void ChunkStream::Refuse(const std::string& why) const {
  throw ToolError(kExitInput, "cannot read " + name_ + ": " + why);
}

void ChunkStream::Read(void* into, std::size_t size) {
  if (std::fread(into, 1, size, in_) == size) return;
  if (std::ferror(in_)) Refuse(std::strerror(errno));
  Refuse(head_.type.empty() ? "it ends inside its signature"
                            : "it ends inside its " + head_.type + " chunk (no IEND)");
}

bool ChunkStream::Signature() {
  const int first = std::fgetc(in_);
  if (first == EOF) {
    if (std::ferror(in_)) Refuse(std::strerror(errno));
    return false;
  }
  std::uint8_t rest[7];
  if (std::fread(rest, 1, 7, in_) != 7 || first != 0x89 || std::memcmp(rest, kPngSignature + 1, 7) != 0)
    throw ToolError(kExitInput, name_ + " is not a PNG file");
  return true;
}

ChunkHead ChunkStream::Next() {
  std::uint8_t bytes[8];
  const bool first = head_.type.empty();
  Read(bytes, sizeof bytes);
  head_.length = Be32(bytes);
  head_.type.assign(reinterpret_cast<const char*>(bytes + 4), 4);
  if (first && head_.type != "IHDR") Refuse("it does not start with a header (IHDR)");
  if (!std::all_of(bytes + 4, bytes + 8,
                   [](std::uint8_t c) { return (c | 0x20) >= 'a' && (c | 0x20) <= 'z'; }))
    Refuse("a chunk type is not four letters");
  if (head_.length > kMaxChunkLength) Refuse("the " + head_.type + " chunk's length is out of range");
  crc_ = libdeflate_crc32(0, bytes + 4, 4);
  return head_;
}

void ChunkStream::Finish() {
  std::uint8_t stored[4];
  Read(stored, sizeof stored);
  if (Be32(stored) != crc_) Refuse("the " + head_.type + " chunk fails its CRC");
}

void ChunkStream::Append(std::string& into) {
  const std::size_t start = into.size();
  for (std::size_t left = head_.length; left > 0;) {
    const std::size_t piece = std::min(left, std::max(kFirstPiece, into.size() - start));
    const std::size_t at = into.size();
    into.resize(at + piece);
    Read(into.data() + at, piece);
    crc_ = libdeflate_crc32(crc_, into.data() + at, piece);
    left -= piece;
  }
  Finish();
}

void ChunkStream::Skip() {
  char buffer[kFirstPiece];
  for (std::size_t left = head_.length; left > 0;) {
    const std::size_t piece = std::min(left, sizeof buffer);
    Read(buffer, piece);
    crc_ = libdeflate_crc32(crc_, buffer, piece);
    left -= piece;
  }
  Finish();
}

}  // namespace cinebar_tool
