#include "host/faults.h"

#include <stdexcept>
#include <utility>

namespace cinebar_simhost {

FaultTarget FaultTarget::ForSuite(std::string name, int version) {
  FaultTarget target(HostFn::kAcquireSuite);
  target.suite = std::move(name);
  target.version = version;
  return target;
}

std::string FaultTarget::Text() const {
  if (suite.empty() && version == 0) return Name(fn);
  return std::string(Name(fn)) + "(" + suite + "," + std::to_string(version) + ")";
}

void FaultPlan::Fail(const FaultTarget& target, Fault fault) {
  if (!Row(target.fn).fault->fails)
    throw std::invalid_argument("FaultPlan: \"" + target.Text() + "\" is not a host function");
  if (fault.on_call < 1) throw std::invalid_argument("FaultPlan: call numbers start at 1");
  faults_[target].push_back(fault);
}

void FaultPlan::Clear() {
  faults_.clear();
  calls_.clear();
}

bool FaultPlan::Check(const FaultTarget& target, Fault* fault) {
  const int n = ++calls_[target];
  const auto it = faults_.find(target);
  if (it == faults_.end()) return false;
  for (const Fault& f : it->second) {
    if (n == f.on_call || (f.and_later && n > f.on_call)) {
      *fault = f;
      return true;
    }
  }
  return false;
}

int FaultPlan::Calls(const FaultTarget& target) const {
  const auto it = calls_.find(target);
  return it == calls_.end() ? 0 : it->second;
}

}  // namespace cinebar_simhost
