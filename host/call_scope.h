// Inside the simulated host: the scope every host function opens with, and the
// "current host" through which callbacks without an effect_ref find it.
#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <type_traits>

#include "host/host_inside.h"
#include "host/sim_host.h"

namespace cinebar_simhost {

// Makes `host` the current host for the life of the scope (nesting restores).
class CurrentHostScope {
 public:
  explicit CurrentHostScope(Host* host);
  ~CurrentHostScope();
  CurrentHostScope(const CurrentHostScope&) = delete;
  CurrentHostScope& operator=(const CurrentHostScope&) = delete;

 private:
  Host* previous_;
};

// One call of a host function. Opening it finds the current host, reads the
// popup texts of the command again and logs the call; Admit() counts it in the
// fault plan and checks its effect_ref and the pointers it needs. A call not
// admitted (no current host, failed by the plan, misused) does none of its
// work and returns Answer().
class Call {
 public:
  Call(HostFn fn, std::string args);
  Call(HostFn fn, PF_Handle handle);  // a call on an existing handle
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  HostInside& host() { return inside_; }
  CallRecord& record() { return *record_; }  // a spare one outside any command
  // AcquireSuite for one suite is counted and failed as a target of its own too.
  void AlsoCount(FaultTarget target) { also_ = std::move(target); }

  bool Admit(std::initializer_list<const void*> needed = {}, const char* missing = "");
  bool AdmitFrom(PF_ProgPtr effect_ref, std::initializer_list<const void*> needed = {},
                 const char* missing = "");
  bool faulted() const { return faulted_; }

  // A misuse: one host error; the call answers `answer`.
  template <typename T>
  T Refuse(T answer, const std::string& why) {
    inside_.Error(std::string(row_.name) + ": " + why);
    record_->result = answer;
    return answer;
  }
  // The answer of a call not admitted: its fault kind's, or the row's refused answer.
  template <typename T>
  T Answer() const {
    if constexpr (std::is_pointer_v<T>)
      return static_cast<T>(pointer_);
    else if constexpr (!std::is_void_v<T>)
      return static_cast<T>(number_);
  }

 private:
  bool Checked(const PF_ProgPtr* effect_ref, std::initializer_list<const void*> needed, const char* missing);

  const HostFnRow& row_;
  Host* host_;
  HostInside inside_;
  CallRecord spare_;
  CallRecord* record_ = &spare_;
  std::optional<FaultTarget> also_;
  long long number_;
  void* pointer_ = nullptr;
  bool faulted_ = false;
};

}  // namespace cinebar_simhost
