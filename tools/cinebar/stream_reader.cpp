#include "tools/cinebar/stream_reader.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {
namespace {

constexpr char kSignature[] = "\x89PNG\r\n\x1a\n";
constexpr std::size_t kPiece = std::size_t{1} << 16;

// Appends `count` bytes of the stream to `bytes`, a piece at a time.
void Append(std::FILE* in, const std::string& name, std::uint64_t count, std::string& bytes) {
  while (count > 0) {
    const std::size_t piece = static_cast<std::size_t>(std::min<std::uint64_t>(count, kPiece));
    const std::size_t at = bytes.size();
    bytes.resize(at + piece);
    const std::size_t got = std::fread(bytes.data() + at, 1, piece, in);
    if (got != piece) {
      throw ToolError(kExitInput, name + (std::ferror(in) ? ": " + std::string(std::strerror(errno))
                                                          : " ends inside a PNG (no IEND)"));
    }
    count -= piece;
  }
}

// The frame's bytes as a file without a name, for the file reader.
void ReadBytes(const std::string& name, const std::string& bytes, Frame& frame) {
  const int fd = memfd_create("cinebar-frame", MFD_CLOEXEC);
  if (fd < 0) throw ToolError(kExitInput, name + ": " + std::strerror(errno));
  const std::string path = "/proc/self/fd/" + std::to_string(fd);
  try {
    if (write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
      throw ToolError(kExitInput, name + ": " + std::strerror(errno));
    ReadFrame(path, frame);
  } catch (const ToolError& e) {
    close(fd);
    std::string message = e.what();
    for (std::size_t at; (at = message.find(path)) != std::string::npos;)
      message.replace(at, path.size(), name);
    throw ToolError(e.code(), message);
  }
  close(fd);
}

}  // namespace

bool ReadStreamFrame(std::FILE* in, const std::string& name, Frame& frame) {
  thread_local std::string bytes;
  bytes.clear();
  const int first = std::fgetc(in);
  if (first == EOF) {
    if (std::ferror(in)) throw ToolError(kExitInput, name + ": " + std::strerror(errno));
    return false;
  }
  bytes.push_back(static_cast<char>(first));
  Append(in, name, 7, bytes);
  if (bytes.compare(0, 8, kSignature, 8) != 0) throw ToolError(kExitInput, name + " is not a PNG file");
  for (;;) {
    const std::size_t at = bytes.size();
    Append(in, name, 8, bytes);
    const auto* head = reinterpret_cast<const unsigned char*>(bytes.data() + at);
    const std::uint32_t length = std::uint32_t{head[0]} << 24 | head[1] << 16 | head[2] << 8 | head[3];
    if (length > 0x7FFFFFFFu) throw ToolError(kExitInput, name + " holds a chunk longer than PNG allows");
    Append(in, name, std::uint64_t{length} + 4, bytes);
    if (bytes.compare(at + 4, 4, "IEND") == 0) break;
  }
  ReadBytes(name, bytes, frame);
  return true;
}

}  // namespace cinebar_tool
