// The module's "PiPL" property list, as the host reads it before it calls the
// module: a 10-byte header (format version, reserved, property count), then
// properties of vendor code, key (four characters each, stored reversed), id,
// data length and data padded with zeros to a multiple of 4.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace cinebar_tool {

struct Property {
  std::string vendor;  // "8BIM"
  std::string key;     // "name", "catg", ...
  std::uint32_t id = 0;
  std::vector<std::uint8_t> data;  // as long as the length field says
};

// Throws ToolError(kExitModule) when the bytes end inside a header or a value.
std::vector<Property> WalkPropertyList(const std::vector<std::uint8_t>& bytes);

struct ModuleDescription {
  std::optional<std::string> name;         // 'name'
  std::optional<std::string> category;     // 'catg'
  std::optional<std::string> match_name;   // 'eMNA'
  std::optional<std::uint32_t> version;    // 'eVER', packed
  std::optional<std::uint32_t> out_flags;  // 'eGLO'
};

ModuleDescription Describe(const std::vector<Property>& properties);

// "1.1.12" with the stage and build when they are not a plain release:
// "1.1.12 (beta, build 3)".
std::string VersionText(std::uint32_t packed);
// "0x02008401 (KEEP_RESOURCE_OPEN | PIX_INDEPENDENT | ...)"; bits the tool
// has no name for are listed as hexadecimal.
std::string OutFlagsText(std::uint32_t flags);

}  // namespace cinebar_tool
