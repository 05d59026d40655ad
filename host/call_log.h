// The ordered record of every host function the module called (and, as
// HostFn::kCommand entries, of every command the host sent), with the
// arguments tests look at.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/host_functions.h"

namespace cinebar_simhost {

struct CallRecord {
  HostFn fn = HostFn::kCommand;
  PF_Cmd command = -1;   // the command in progress (-1 outside any)
  std::string args;      // the key arguments as text
  long long result = 0;  // the returned PF_Err / SPErr / count; 0 for functions returning nothing
  bool faulted = false;  // failed by the fault plan

  std::optional<PF_Rect> rect;      // fill's rectangle; copy's destination rectangle (absent when null)
  std::optional<PF_Rect> src_rect;  // copy's source rectangle
  std::optional<PF_Pixel> color;
  std::optional<PF_Pixel16> color16;
  std::optional<PF_LayerDef> world;      // fill's world; copy's destination (a copy of the record)
  std::optional<PF_LayerDef> src_world;  // copy's source
  A_long index = 0;                      // add_param / PF_UpdateParamUI index; get_platform_data selector
  std::optional<PF_ParamDef> def;        // add_param / PF_UpdateParamUI definition
  std::string suite;                     // AcquireSuite / ReleaseSuite
  int version = 0;
  A_HandleSize size = 0;  // handle size asked for
  PF_Handle handle = nullptr;
};

class CallLog {
 public:
  CallRecord& Add(CallRecord record);
  void Clear() { records_.clear(); }

  const std::vector<CallRecord>& records() const { return records_; }
  CallRecord& at(std::size_t i) { return records_.at(i); }
  int Count(HostFn fn) const;
  const CallRecord* Last(HostFn fn) const;  // null when never called
  std::vector<const CallRecord*> Named(HostFn fn) const;

 private:
  std::vector<CallRecord> records_;
};

std::string RectText(const PF_Rect* rect);

}  // namespace cinebar_simhost
