#include "tools/cinebar/property_list.h"

#include <cstdio>

#include "hostapi/ae_constants.h"
#include "tools/cinebar/tool_error.h"

namespace cinebar_tool {
namespace {

constexpr std::size_t kHeaderSize = 10;
constexpr std::size_t kPropertyHeaderSize = 16;

std::uint32_t Le32(const std::uint8_t* p) {
  return std::uint32_t{p[0]} | std::uint32_t{p[1]} << 8 | std::uint32_t{p[2]} << 16 |
         std::uint32_t{p[3]} << 24;
}

std::string Code(const std::uint8_t* p) {
  return std::string{char(p[3]), char(p[2]), char(p[1]), char(p[0])};
}

[[noreturn]] void Broken(const std::string& why) {
  throw ToolError(kExitModule, "the module's property list is damaged: " + why);
}

std::optional<std::string> PascalString(const Property& p) {
  if (p.data.empty() || p.data[0] + std::size_t{1} > p.data.size()) return std::nullopt;
  return std::string(p.data.begin() + 1, p.data.begin() + 1 + p.data[0]);
}

std::optional<std::uint32_t> Word(const Property& p) {
  if (p.data.size() < 4) return std::nullopt;
  return Le32(p.data.data());
}

// The out-flag bits the host's records declare, by name.
struct FlagName {
  std::uint32_t bit;
  const char* name;
};
constexpr FlagName kOutFlagNames[] = {
    {PF_OutFlag_KEEP_RESOURCE_OPEN, "KEEP_RESOURCE_OPEN"},
    {PF_OutFlag_SEQUENCE_DATA_NEEDS_FLATTENING, "SEQUENCE_DATA_NEEDS_FLATTENING"},
    {PF_OutFlag_DISPLAY_ERROR_MESSAGE, "DISPLAY_ERROR_MESSAGE"},
    {PF_OutFlag_PIX_INDEPENDENT, "PIX_INDEPENDENT"},
    {PF_OutFlag_CUSTOM_UI, "CUSTOM_UI"},
    {PF_OutFlag_REFRESH_UI, "REFRESH_UI"},
    {PF_OutFlag_DEEP_COLOR_AWARE, "DEEP_COLOR_AWARE"},
    {PF_OutFlag_SEND_UPDATE_PARAMS_UI, "SEND_UPDATE_PARAMS_UI"},
};

}  // namespace

std::vector<Property> WalkPropertyList(const std::vector<std::uint8_t>& bytes) {
  if (bytes.size() < kHeaderSize) Broken("shorter than its header");
  const std::uint32_t count = Le32(&bytes[6]);
  std::vector<Property> properties;
  std::size_t at = kHeaderSize;
  for (std::uint32_t i = 0; i < count; ++i) {
    if (bytes.size() - at < kPropertyHeaderSize)
      Broken("property " + std::to_string(i + 1) + " is cut short");
    Property p;
    p.vendor = Code(&bytes[at]);
    p.key = Code(&bytes[at + 4]);
    p.id = Le32(&bytes[at + 8]);
    const std::uint64_t length = Le32(&bytes[at + 12]);
    at += kPropertyHeaderSize;
    const std::uint64_t padded = (length + 3) / 4 * 4;
    if (padded > bytes.size() - at) Broken("the value of '" + p.key + "' runs past the end");
    p.data.assign(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                  bytes.begin() + static_cast<std::ptrdiff_t>(at + length));
    at += static_cast<std::size_t>(padded);
    properties.push_back(std::move(p));
  }
  return properties;
}

ModuleDescription Describe(const std::vector<Property>& properties) {
  ModuleDescription d;
  for (const Property& p : properties) {
    if (p.key == "name") d.name = PascalString(p);
    if (p.key == "catg") d.category = PascalString(p);
    if (p.key == "eMNA") d.match_name = PascalString(p);
    if (p.key == "eVER") d.version = Word(p);
    if (p.key == "eGLO") d.out_flags = Word(p);
  }
  return d;
}

std::string VersionText(std::uint32_t packed) {
  static const char* const kStages[] = {"develop", "alpha", "beta", "release"};
  const unsigned major = (packed >> 19) & 0x7, minor = (packed >> 15) & 0xF, bugfix = (packed >> 11) & 0xF;
  const unsigned stage = (packed >> 9) & 0x3, build = packed & 0x1FF;
  std::string text = std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(bugfix);
  if (stage != 3 || build != 0)
    text += std::string(" (") + kStages[stage] + ", build " + std::to_string(build) + ")";
  return text;
}

std::string OutFlagsText(std::uint32_t flags) {
  char hex[16];
  std::snprintf(hex, sizeof hex, "0x%08X", flags);
  std::string names;
  std::uint32_t rest = flags;
  for (const FlagName& f : kOutFlagNames) {
    if ((flags & f.bit) == 0) continue;
    names += (names.empty() ? "" : " | ") + std::string(f.name);
    rest &= ~f.bit;
  }
  if (rest != 0) {
    char extra[16];
    std::snprintf(extra, sizeof extra, "0x%X", rest);
    names += (names.empty() ? "" : " | ") + std::string(extra);
  }
  return names.empty() ? hex : std::string(hex) + " (" + names + ")";
}

}  // namespace cinebar_tool
