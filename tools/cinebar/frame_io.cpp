// libpng reports errors by longjmp: the functions holding a setjmp point keep
// only plain pointers and call nothing that throws, so a jump back skips no
// destructor; every C++ object they fill lives in the caller.
#include <libdeflate.h>
#include <png.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "tools/cinebar/frame.h"
#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {
namespace {

// The most a deflate stream inflates to: 258 bytes from a little over two bits.
constexpr std::uint64_t kMaxInflation = 1032;

struct Reader {
  png_structp png = nullptr;
  png_infop info = nullptr;
  char message[200] = "";
  ~Reader() { png_destroy_read_struct(&png, info ? &info : nullptr, nullptr); }
};

void OnError(png_structp png, png_const_charp message) {
  auto* reader = static_cast<Reader*>(png_get_error_ptr(png));
  std::snprintf(reader->message, sizeof reader->message, "%s", message);
  png_longjmp(png, 1);
}

void OnWarning(png_structp, png_const_charp) {}

// Ancillary chunks libpng is to hand over as they stand (five bytes a name).
constexpr png_byte kKept[] =
    "gAMA\0cHRM\0sRGB\0iCCP\0sBIT\0bKGD\0pHYs\0tIME\0eXIf\0tEXt\0zTXt\0iTXt\0hIST\0sPLT\0oFFs\0pCAL\0sCAL";

bool Start(Reader* r, std::FILE* file) {
  if (setjmp(png_jmpbuf(r->png))) return false;
  png_init_io(r->png, file);
  png_set_sig_bytes(r->png, 8);
  png_set_user_limits(r->png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);  // the tool's own limits, its own words
  png_set_keep_unknown_chunks(r->png, PNG_HANDLE_CHUNK_ALWAYS, nullptr, 0);
  png_set_keep_unknown_chunks(r->png, PNG_HANDLE_CHUNK_ALWAYS, kKept, sizeof kKept / 5);
  png_read_info(r->png, r->info);
  png_set_expand(r->png);  // palette, low depths and tRNS to whole bytes and alpha
  png_set_interlace_handling(r->png);
  return true;
}

bool Rows(Reader* r, png_bytepp rows) {
  if (setjmp(png_jmpbuf(r->png))) return false;
  png_read_update_info(r->png, r->info);
  png_read_image(r->png, rows);
  png_read_end(r->png, r->info);
  return true;
}

struct Header {
  png_uint_32 width = 0, height = 0;
  int depth = 0, type = 0, interlace = 0;
  bool trns = false;
};

void Open(const std::string& path, Reader& r, std::unique_ptr<std::FILE, int (*)(std::FILE*)>& file,
          Header& h, Frame& frame) {
  file.reset(std::fopen(path.c_str(), "rb"));
  if (!file) throw ToolError(kExitInput, "cannot open " + path + ": " + std::strerror(errno));
  png_byte signature[8] = {};
  if (std::fread(signature, 1, sizeof signature, file.get()) != sizeof signature ||
      png_sig_cmp(signature, 0, sizeof signature) != 0)
    throw ToolError(kExitInput, path + " is not a PNG file");
  r.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &r, OnError, OnWarning);
  if (r.png != nullptr) r.info = png_create_info_struct(r.png);
  if (r.info == nullptr) throw std::bad_alloc();
  if (!Start(&r, file.get())) throw ToolError(kExitInput, "cannot read " + path + ": " + r.message);
  png_get_IHDR(r.png, r.info, &h.width, &h.height, &h.depth, &h.type, &h.interlace, nullptr, nullptr);
  h.trns = png_get_valid(r.png, r.info, PNG_INFO_tRNS) != 0;
  const int base = (h.type & PNG_COLOR_MASK_COLOR) ? 3 : 1;
  frame.width = static_cast<int>(std::min<png_uint_32>(h.width, PNG_UINT_31_MAX));
  frame.height = static_cast<int>(std::min<png_uint_32>(h.height, PNG_UINT_31_MAX));
  frame.channels = base + ((h.type & PNG_COLOR_MASK_ALPHA) || h.trns ? 1 : 0);
  frame.deep = h.depth == 16;
}

std::string Size(const Frame& f) {
  return std::to_string(f.width) + "x" + std::to_string(f.height) + (f.deep ? " at 16 bits" : " at 8 bits");
}

// Sorts the chunks libpng kept: copied when they stay true of the output,
// named in `dropped` otherwise.
void Sort(Reader& r, const Header& h, Frame& frame) {
  frame.chunks.clear();
  frame.dropped.clear();
  frame.pixel_aspect.clear();
  frame.phys_x = frame.phys_y = 0;
  png_unknown_chunkp chunks = nullptr;
  const int count = png_get_unknown_chunks(r.png, r.info, &chunks);
  for (int i = 0; i < count; ++i) {
    const std::string type(reinterpret_cast<const char*>(chunks[i].name), 4);
    const std::string data(reinterpret_cast<const char*>(chunks[i].data), chunks[i].size);
    // tIME dates the file, which is new; sBIT and hIST describe samples and a
    // palette the bars change; a background index or low-depth grey no longer fits.
    const bool stale = type == "tIME" || type == "sBIT" || type == "hIST" ||
                       (type == "bKGD" && (h.type == PNG_COLOR_TYPE_PALETTE || h.depth < 8));
    const bool known =
        std::string(reinterpret_cast<const char*>(kKept), sizeof kKept).find(type) != std::string::npos;
    const bool safe = (type[3] & 0x20) != 0;  // a lower-case last letter: safe to copy
    if (stale || (!known && !safe)) {
      if (frame.dropped.find(type) == std::string::npos)
        frame.dropped += (frame.dropped.empty() ? "" : " ") + type;
      continue;
    }
    if (type == "pHYs" && data.size() == 9) {
      const auto* p = reinterpret_cast<const std::uint8_t*>(data.data());
      frame.phys_x = png_get_uint_32(p);
      frame.phys_y = png_get_uint_32(p + 4);
      frame.pixel_aspect = std::to_string(frame.phys_x) + ":" + std::to_string(frame.phys_y) +
                           " pixels per " + (p[8] == 1 ? "metre" : "unit");
    }
    frame.chunks.push_back(Chunk{type, data});
  }
}

// The frame's memory and its image data as the file would inflate it.
void Check(const std::string& path, const Header& h, const Frame& f, long file_size) {
  const std::uint64_t world = std::uint64_t{h.width} * h.height * (f.deep ? 8 : 4);
  const int bits = h.depth * (h.type == PNG_COLOR_TYPE_PALETTE ? 1 : f.channels - (h.trns ? 1 : 0));
  const std::uint64_t data = std::uint64_t{h.height} * (1 + (std::uint64_t{h.width} * bits + 7) / 8);
  if (h.width > kMaxSide || h.height > kMaxSide)
    throw ToolError(kExitInput, path + " is " + std::to_string(h.width) + "x" + std::to_string(h.height) +
                                    ": the effect takes at most " + std::to_string(kMaxSide) +
                                    " pixels a side");
  if (world > kMaxWorldBytes)
    throw ToolError(kExitInput, path + " is " + Size(f) + ", which needs " + std::to_string(world >> 20) +
                                    " MiB; the simulated host's worlds hold at most " +
                                    std::to_string(kMaxWorldBytes >> 20) + " MiB");
  if (data > static_cast<std::uint64_t>(file_size) * kMaxInflation)
    throw ToolError(kExitInput, "cannot read " + path + ": its " + std::to_string(file_size) +
                                    " bytes cannot hold the image data of a " + Size(f) + " picture");
}

}  // namespace

void Frame::Resize(int w, int h, int c, bool d) {
  width = w;
  height = h;
  channels = c;
  deep = d;
  samples.resize(stride() * static_cast<std::size_t>(h));
}

Frame ReadHeader(const std::string& path) {
  Reader r;
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(nullptr, &std::fclose);
  Header h;
  Frame frame;
  Open(path, r, file, h, frame);
  Sort(r, h, frame);  // the chunks before the image data
  return frame;
}

void ReadFrame(const std::string& path, Frame& frame) {
  Reader r;
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(nullptr, &std::fclose);
  Header h;
  Open(path, r, file, h, frame);
  struct stat st {};
  fstat(fileno(file.get()), &st);
  Check(path, h, frame, static_cast<long>(st.st_size));
  frame.Resize(frame.width, frame.height, frame.channels, frame.deep);
  std::vector<png_bytep> rows(static_cast<std::size_t>(frame.height));
  for (int y = 0; y < frame.height; ++y) rows[static_cast<std::size_t>(y)] = frame.row(y);
  if (!Rows(&r, rows.data())) throw ToolError(kExitInput, "cannot read " + path + ": " + r.message);
  Sort(r, h, frame);
}

namespace {

void Put32(std::string& out, std::uint32_t v) {
  for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>(v >> shift);
}

// A PNG chunk: length, type, data, CRC of type and data.
void Write(std::FILE* file, const char* type, const void* data, std::size_t size) {
  std::string head, tail;
  Put32(head, static_cast<std::uint32_t>(size));
  head.append(type, 4);
  Put32(tail, libdeflate_crc32(libdeflate_crc32(0, type, 4), data, size));
  std::fwrite(head.data(), 1, head.size(), file);
  std::fwrite(data, 1, size, file);
  std::fwrite(tail.data(), 1, tail.size(), file);
}

// One compressor per thread and level: they are not shared between threads.
libdeflate_compressor* Compressor(int level) {
  struct Owned {
    libdeflate_compressor* c = nullptr;
    int level = -1;
    ~Owned() { libdeflate_free_compressor(c); }
  };
  thread_local Owned owned;
  if (owned.level != level) {
    libdeflate_free_compressor(owned.c);
    owned.c = libdeflate_alloc_compressor(level);
    owned.level = owned.c ? level : -1;
  }
  if (owned.c == nullptr) throw std::bad_alloc();
  return owned.c;
}

// The Up filter (each byte less the one above it): one subtraction a byte,
// and on photographs within a few per cent of the best adaptive choice.
void Filter(const Frame& f, std::uint8_t* out, bool up) {
  const std::size_t stride = f.stride();
  for (int y = 0; y < f.height; ++y) {
    const std::uint8_t* row = f.row(y);
    std::uint8_t* o = out + (stride + 1) * static_cast<std::size_t>(y);
    o[0] = up && y > 0 ? 2 : 0;
    if (o[0] == 0) {
      std::memcpy(o + 1, row, stride);
      continue;
    }
    const std::uint8_t* above = row - stride;
    for (std::size_t i = 0; i < stride; ++i) o[1 + i] = static_cast<std::uint8_t>(row[i] - above[i]);
  }
}

}  // namespace

std::string WriteFrame(std::FILE* file, const Frame& frame, const WriteSettings& settings) {
  thread_local std::vector<std::uint8_t> rows, packed;
  const std::size_t size = (frame.stride() + 1) * static_cast<std::size_t>(frame.height);
  rows.resize(size);
  Filter(frame, rows.data(), settings.level > 0);
  libdeflate_compressor* c = Compressor(settings.level);
  packed.resize(libdeflate_zlib_compress_bound(c, size));
  const std::size_t n = libdeflate_zlib_compress(c, rows.data(), size, packed.data(), packed.size());
  std::string header;
  Put32(header, static_cast<std::uint32_t>(frame.width));
  Put32(header, static_cast<std::uint32_t>(frame.height));
  static const char kType[] = {0, PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_GA, PNG_COLOR_TYPE_RGB,
                               PNG_COLOR_TYPE_RGBA};
  header += static_cast<char>(frame.deep ? 16 : 8);
  header += kType[frame.channels];
  header += std::string(3, '\0');  // deflate, adaptive filtering, no interlace
  static const png_byte kSignature[8] = {137, 80, 78, 71, 13, 10, 26, 10};
  std::fwrite(kSignature, 1, sizeof kSignature, file);
  Write(file, "IHDR", header.data(), header.size());
  for (const Chunk& chunk : frame.chunks)
    Write(file, chunk.type.c_str(), chunk.data.data(), chunk.data.size());
  Write(file, "IDAT", packed.data(), n);
  Write(file, "IEND", "", 0);
  return "";
}

Temporaries::Temporaries() {
  sigemptyset(&signals_);
  for (int sig : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals_, sig);
  pthread_sigmask(SIG_BLOCK, &signals_, &old_mask_);
  watcher_ = std::thread(&Temporaries::Watch, this);
}

Temporaries::~Temporaries() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const std::string& name : live_) unlink(name.c_str());
    live_.clear();
    live_.insert("");  // the watcher's cue to end quietly
  }
  pthread_kill(watcher_.native_handle(), SIGTERM);
  watcher_.join();
  pthread_sigmask(SIG_SETMASK, &old_mask_, nullptr);
}

void Temporaries::Watch() {
  int sig = 0;
  sigwait(&signals_, &sig);
  std::lock_guard<std::mutex> lock(mutex_);
  if (live_.count("") != 0) return;
  for (const std::string& name : live_) unlink(name.c_str());
  // The lock stays held: no new temporary appears while the process ends.
  signal(sig, SIG_DFL);
  pthread_sigmask(SIG_UNBLOCK, &signals_, nullptr);
  raise(sig);
}

std::string Temporaries::Write(const std::string& path, const Frame& frame, const WriteSettings& settings) {
  const std::size_t slash = path.find_last_of('/');
  std::string name = path.substr(0, slash + 1) + "." + path.substr(slash + 1) + ".XXXXXX";
  int fd = -1;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    fd = mkstemp(name.data());
    if (fd >= 0) live_.insert(name);
  }
  if (fd < 0) throw ToolError(kExitOutput, "cannot write " + path + ": " + std::strerror(errno));
  std::FILE* file = fdopen(fd, "wb");
  std::string why = file == nullptr ? std::strerror(errno) : "";
  if (file != nullptr) {
    why = WriteFrame(file, frame, settings);
    if ((std::fflush(file) != 0 || std::ferror(file)) && why.empty()) why = std::strerror(errno);
    if (std::fclose(file) != 0 && why.empty()) why = std::strerror(errno);
  } else {
    close(fd);
  }
  if (!why.empty()) {
    Remove(name);
    throw ToolError(kExitOutput, "cannot write " + path + ": " + why);
  }
  return name;
}

void Temporaries::Commit(const std::string& name, const std::string& path) {
  // mkstemp makes the file for its owner only; the result gets the usual mode.
  const mode_t mask = umask(0);
  umask(mask);
  std::lock_guard<std::mutex> lock(mutex_);
  std::string why;
  if (chmod(name.c_str(), 0666 & ~mask) != 0 || std::rename(name.c_str(), path.c_str()) != 0) {
    why = std::strerror(errno);
    unlink(name.c_str());
  }
  live_.erase(name);
  if (!why.empty()) throw ToolError(kExitOutput, "cannot write " + path + ": " + why);
}

void Temporaries::Remove(const std::string& name) {
  std::lock_guard<std::mutex> lock(mutex_);
  unlink(name.c_str());
  live_.erase(name);
}

}  // namespace cinebar_tool
