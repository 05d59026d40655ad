#include "host/call_scope.h"

#include <cstdio>
#include <iterator>

namespace cinebar_simhost {
namespace {

Host* g_current = nullptr;

std::string PtrText(const void* p) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%p", p);
  return buffer;
}

}  // namespace

CurrentHostScope::CurrentHostScope(Host* host) : previous_(g_current) { g_current = host; }
CurrentHostScope::~CurrentHostScope() { g_current = previous_; }

Call::Call(HostFn fn, std::string args)
    : row_(Row(fn)), host_(g_current), inside_(g_current), number_(row_.refused) {
  if (host_ == nullptr) {
    std::fprintf(stderr, "simulated host: %s called outside any command\n", row_.name);
    return;
  }
  // A popup's items must outlive add_param: read them again at every later host call of the command.
  inside_.checks().RecheckTexts(inside_.current().cmd, row_.name);
  CallRecord record;
  record.fn = fn;
  record.command = inside_.current().cmd;
  record.args = std::move(args);
  record_ = &inside_.log().Add(std::move(record));
}

Call::Call(HostFn fn, PF_Handle handle) : Call(fn, PtrText(handle)) { record_->handle = handle; }

bool Call::Admit(std::initializer_list<const void*> needed, const char* missing) {
  return Checked(nullptr, needed, missing);
}

bool Call::AdmitFrom(PF_ProgPtr effect_ref, std::initializer_list<const void*> needed, const char* missing) {
  return Checked(&effect_ref, needed, missing);
}

bool Call::Checked(const PF_ProgPtr* effect_ref, std::initializer_list<const void*> needed,
                   const char* missing) {
  if (host_ == nullptr) return false;
  Fault fault;
  faulted_ = inside_.faults().Check(row_.fn, &fault);
  Fault for_target;
  if (also_ && inside_.faults().Check(*also_, &for_target)) {
    fault = for_target;
    faulted_ = true;
  }
  if (faulted_) {
    const FaultAnswer answer =
        row_.fault->answer(inside_.handles(), inside_.checks(), record_->handle, fault.error, row_.refused);
    number_ = answer.number;
    pointer_ = answer.pointer;
    record_->faulted = true;
    record_->result = number_;
    return false;
  }
  if (effect_ref != nullptr && *effect_ref != inside_.in_data().effect_ref) {
    inside_.Error(std::string(row_.name) + ": effect_ref " + PtrText(*effect_ref) + " is not this host's");
    record_->result = number_;
    return false;
  }
  for (const void* pointer : needed) {
    if (pointer == nullptr) return Refuse(number_, missing), false;
  }
  return true;
}

}  // namespace cinebar_simhost
