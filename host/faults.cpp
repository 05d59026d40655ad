#include "host/faults.h"

#include <algorithm>
#include <stdexcept>

namespace cinebar_simhost {

const std::vector<std::string> kHostFunctions = {
    "add_param",
    "register_ui",
    "host_new_handle",
    "host_lock_handle",
    "host_unlock_handle",
    "host_dispose_handle",
    "host_get_handle_size",
    "host_resize_handle",
    "get_platform_data",
    "sprintf",
    "strcpy",
    "AcquireSuite",
    "ReleaseSuite",
    "HandleSuite.host_new_handle",
    "HandleSuite.host_lock_handle",
    "HandleSuite.host_unlock_handle",
    "HandleSuite.host_dispose_handle",
    "HandleSuite.host_get_handle_size",
    "HandleSuite.host_resize_handle",
    "fill",
    "fill16",
    "copy",
    "PF_UpdateParamUI",
};

std::string AcquireKey(const std::string& suite, int version) {
  return "AcquireSuite(" + suite + "," + std::to_string(version) + ")";
}

void FaultPlan::Fail(const std::string& function, Fault fault) {
  const bool known =
      std::find(kHostFunctions.begin(), kHostFunctions.end(), function) != kHostFunctions.end() ||
      function.rfind("AcquireSuite(", 0) == 0;
  if (!known) throw std::invalid_argument("FaultPlan: \"" + function + "\" is not a host function");
  if (fault.on_call < 1) throw std::invalid_argument("FaultPlan: call numbers start at 1");
  faults_[function].push_back(fault);
}

void FaultPlan::Clear() {
  faults_.clear();
  calls_.clear();
}

bool FaultPlan::Check(const std::string& function, Fault* fault) {
  const int n = ++calls_[function];
  const auto it = faults_.find(function);
  if (it == faults_.end()) return false;
  for (const Fault& f : it->second) {
    if (n == f.on_call || (f.and_later && n > f.on_call)) {
      *fault = f;
      return true;
    }
  }
  return false;
}

int FaultPlan::Calls(const std::string& function) const {
  const auto it = calls_.find(function);
  return it == calls_.end() ? 0 : it->second;
}

}  // namespace cinebar_simhost
