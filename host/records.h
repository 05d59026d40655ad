// What the simulated host hands the module: PF_InData and PF_OutData, the
// callback tables, the function tables of the suites its broker serves, and
// the memory handles.
#pragma once

#include <cstdint>
#include <string_view>

#include "host/handles.h"
#include "host/host_functions.h"
#include "hostapi/ae_constants.h"

namespace cinebar_simhost {

// What get_platform_data answers for PF_PlatData_MAIN_WND: a window value
// that is not null and not a real window.
constexpr std::uintptr_t kFakeMainWindow = 0x4D41494E;  // 'MAIN'

class HostRecords {
 public:
  explicit HostRecords(void* module_handle);
  HostRecords(const HostRecords&) = delete;
  HostRecords& operator=(const HostRecords&) = delete;

  // The base record (appl_id 'FXTC', downsample 1/1, pixel aspect 1/1, ...); the
  // per-call fields are set by each command.
  PF_InData& in_data() { return in_; }
  PF_OutData& out_data() { return out_; }  // as the last command left it (zeroed before every command)
  HandleStore& handles() { return handles_; }
  const HandleStore& handles() const { return handles_; }

  void SetDownsample(PF_RationalScale x, PF_RationalScale y);
  void SetModuleHandle(void* handle) { module_handle_ = handle; }
  void* module_handle() const { return module_handle_; }

  // The function table of the suite served under `name` at `version`; null when none is.
  const void* ServedTable(std::string_view name, int version) const;

 private:
  PF_InData in_{};
  PF_OutData out_{};
  PF_UtilCallbacks utils_{};
  SPBasicSuite basic_{};
  SuiteTables suites_{};
  char effect_tag_ = 0;  // its address is the effect_ref
  void* module_handle_;
  HandleStore handles_;
};

// Fills the interaction and utility callbacks, the broker and the suite tables (callbacks.cpp).
void InstallCallbacks(PF_InData& in, PF_UtilCallbacks& utils, SPBasicSuite& basic, SuiteTables& suites);

}  // namespace cinebar_simhost
