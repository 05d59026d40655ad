#include "host/records.h"

#include <array>
#include <utility>

namespace cinebar_simhost {

HostRecords::HostRecords(void* module_handle) : module_handle_(module_handle) {
  in_.effect_ref = reinterpret_cast<PF_ProgPtr>(&effect_tag_);
  in_.version = PF_SpecVersion{13, 0};
  in_.appl_id = PF_APPL_ID_AFTER_EFFECTS;
  in_.quality = 1;
  in_.time_step = 1;
  in_.local_time_step = 1;
  in_.total_time = 300;
  in_.time_scale = 30;
  in_.downsample_x = in_.downsample_y = PF_RationalScale{1, 1};
  in_.pixel_aspect_ratio = PF_RationalScale{1, 1};
  in_.utils = &utils_;
  in_.pica_basicP = &basic_;
  InstallCallbacks(in_, utils_, basic_, suites_);
}

void HostRecords::SetDownsample(PF_RationalScale x, PF_RationalScale y) {
  in_.downsample_x = x;
  in_.downsample_y = y;
}

const void* HostRecords::ServedTable(std::string_view name, int version) const {
  const auto tables = std::apply(
      [](const auto&... table) { return std::array<const void*, sizeof...(table)>{&table...}; }, suites_);
  const std::size_t at = ServedSuiteAt(name, version);
  return at < tables.size() ? tables[at] : nullptr;
}

}  // namespace cinebar_simhost
