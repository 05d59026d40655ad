#include "host/checks.h"

#include <algorithm>
#include <cstring>

#include "host/call_log.h"

namespace cinebar_simhost {

void HostChecks::Error(PF_Cmd cmd, const std::string& text) {
  errors_.push_back("[cmd " + std::to_string(cmd) + "] " + text);
}

void HostChecks::KeepText(A_long param, const A_char* items, std::string copy) {
  kept_texts_.push_back({param, items, std::move(copy)});
}

void HostChecks::RecheckTexts(PF_Cmd cmd, const char* function) {
  for (auto it = kept_texts_.begin(); it != kept_texts_.end();) {
    if (std::strncmp(it->items, it->copy.c_str(), it->copy.size() + 1) == 0) {
      ++it;
      continue;
    }
    Error(cmd, "parameter " + std::to_string(it->param) + "'s popup items changed after add_param (at " +
                   function + "): the module let them go");
    it = kept_texts_.erase(it);
  }
}

bool HostChecks::Released(const std::string& suite, int version) {
  const auto it = outstanding_.find({suite, version});
  if (it == outstanding_.end() || it->second == 0) return false;
  --it->second;
  return true;
}

PF_Handle HostChecks::Returned(PF_Cmd cmd, const HandleStore& handles, PF_Handle handle, const char* what) {
  if (handle == nullptr || handles.IsLive(handle)) return handle;
  Error(cmd, std::string("the module returned ") + what + " it does not own (" +
                 (handles.IsDisposed(handle) ? "disposed of" : "not a handle") + ")");
  return nullptr;
}

void HostChecks::Ownership(PF_Cmd cmd, PF_Err err, const HandleStore& handles,
                           const std::vector<PF_Handle>& held, const std::vector<PF_Handle>& held_before) {
  const auto in = [](const std::vector<PF_Handle>& list, PF_Handle h) {
    return std::find(list.begin(), list.end(), h) != list.end();
  };
  for (const PF_Handle handle : handles.Live()) {
    if (in(held, handle) || in(abandoned_, handle)) continue;
    if (err == PF_Err_NONE || !in(held_before, handle))
      Error(cmd, "a handle leaked: the module let go of it without disposing of it");
    abandoned_.push_back(handle);
  }
}

void HostChecks::FailedWrites(PF_Cmd cmd, PF_Err err, const std::vector<PF_ParamDef>& given,
                              const std::vector<PF_ParamDef>& passed, const CallLog& log, std::size_t first) {
  for (std::size_t i = 1; err != PF_Err_NONE && i < passed.size(); ++i) {
    bool pushed = (passed[i].uu.change_flags & PF_ChangeFlag_CHANGED_VALUE) != 0;
    for (std::size_t r = first; r < log.records().size(); ++r)
      pushed |= log.records()[r].fn == HostFn::kUpdateParamUi && log.records()[r].index == A_long(i);
    if (!pushed && std::memcmp(&passed[i], &given[i], sizeof passed[i]) != 0)
      Error(cmd,
            "parameter " + std::to_string(i) + " written by a failed command, neither flagged nor pushed");
  }
}

void HostChecks::EndCommand(PF_Cmd cmd, HandleStore& handles) {
  kept_texts_.clear();  // the contract for them ends with the command
  for (auto& [suite, count] : outstanding_) {
    if (count != 0) Error(cmd, suite.first + " " + std::to_string(suite.second) + " held past the command");
    count = 0;
  }
  if (!handles.TakeQuarantineBreaches().empty())
    Error(cmd, "the module wrote into a disposed handle's block");
}

}  // namespace cinebar_simhost
