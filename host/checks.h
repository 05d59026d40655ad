// The strict host's checks: every misuse it notices becomes one host error,
// never a crash. What the module hands over is looked at again later than the
// call that handed it (popup item texts at every later host call of the
// command), suites must come back within the command, and every live handle
// must be held by the host.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/handles.h"
#include "hostapi/ae_constants.h"

namespace cinebar_simhost {

class CallLog;

class HostChecks {
 public:
  const std::vector<std::string>& errors() const { return errors_; }
  void Error(PF_Cmd cmd, const std::string& text);

  // A popup's item text handed to add_param: it must read the same at every
  // later host call of the command (`function` names the call checking it).
  void KeepText(A_long param, const A_char* items, std::string copy);
  void RecheckTexts(PF_Cmd cmd, const char* function);

  void Acquired(const std::string& suite, int version) { ++outstanding_[{suite, version}]; }
  bool Released(const std::string& suite, int version);  // false when it was not held

  // A live handle neither side can free any more: not a leak.
  void Abandon(PF_Handle handle) { abandoned_.push_back(handle); }
  // A handle the module returned in a record: null (after an error) when it is not live.
  PF_Handle Returned(PF_Cmd cmd, const HandleStore& handles, PF_Handle handle, const char* what);
  // Every live handle must be held (`held`) or abandoned; one the host held before a
  // failed command (`held_before`) is the host's to keep; any other is a leak.
  void Ownership(PF_Cmd cmd, PF_Err err, const HandleStore& handles, const std::vector<PF_Handle>& held,
                 const std::vector<PF_Handle>& held_before);
  // A failed command must not leave a parameter half-written: one neither
  // flagged changed nor pushed through PF_UpdateParamUI (in `log` from `first`).
  void FailedWrites(PF_Cmd cmd, PF_Err err, const std::vector<PF_ParamDef>& given,
                    const std::vector<PF_ParamDef>& passed, const CallLog& log, std::size_t first);
  // The end of every command: every suite given back, the popup texts' contract
  // over, nothing written into a disposed block.
  void EndCommand(PF_Cmd cmd, HandleStore& handles);

 private:
  struct KeptText {
    A_long param;
    const A_char* items;
    std::string copy;
  };
  std::vector<std::string> errors_;
  std::map<std::pair<std::string, int>, int> outstanding_;
  std::vector<KeptText> kept_texts_;  // popup items of the command in progress
  std::vector<PF_Handle> abandoned_;
};

}  // namespace cinebar_simhost
