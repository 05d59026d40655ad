// A PNG's chunks read one after another from a stream that need not seek
// (a file, or frames concatenated on a pipe). Memory grows only as bytes
// arrive, never on a length's word; every CRC is checked.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace cinebar_tool {

struct ChunkHead {
  std::uint32_t length = 0;
  std::string type;
  bool critical() const { return (type[0] & 0x20) == 0; }
};

class ChunkStream {
 public:
  ChunkStream(std::FILE* in, std::string name) : in_(in), name_(std::move(name)) {}

  // False at a clean end of the stream before a first byte; otherwise the
  // signature must follow.
  bool Signature();
  // The next chunk's length (at most 2^31-1) and type (four letters).
  ChunkHead Next();
  // Appends the chunk's data to `into`, then checks its CRC.
  void Append(std::string& into);
  // Reads past the chunk's data, checking its CRC: no memory the size of it.
  void Skip();

  [[noreturn]] void Refuse(const std::string& why) const;
  const std::string& name() const { return name_; }

 private:
  void Read(void* into, std::size_t size);
  void Finish();

  std::FILE* in_;
  std::string name_;
  ChunkHead head_;
  std::uint32_t crc_ = 0;
};

}  // namespace cinebar_tool
