#include "host/call_scope.h"

#include <cstdio>
#include <iterator>

namespace cinebar_simhost {
namespace {

Host* g_current = nullptr;

using FaultAnswer = Call::Answered (*)(HostInside& host, CallRecord& record, const Fault& fault,
                                       long long refused);
struct FaultAnswerRow {
  FaultKind kind;
  FaultAnswer answer;
};
// How a failed call answers, one row per FaultKind.
constexpr FaultAnswerRow kFaultAnswers[] = {
    {FaultKind::kNever,
     [](HostInside&, CallRecord&, const Fault&, long long refused) {
       return Call::Answered{refused, nullptr};
     }},
    {FaultKind::kError,
     [](HostInside&, CallRecord&, const Fault& fault, long long) {
       return Call::Answered{fault.error, nullptr};
     }},
    {FaultKind::kRefused,
     [](HostInside&, CallRecord&, const Fault&, long long refused) {
       return Call::Answered{refused, nullptr};
     }},
    {FaultKind::kNewHandle,
     [](HostInside& host, CallRecord& record, const Fault& fault, long long) {
       record.handle = fault.error == 0 ? host.handles().NewWithoutBlock() : nullptr;
       return Call::Answered{fault.error, record.handle};
     }},
    {FaultKind::kLock,  // a refused lock may still be unlocked
     [](HostInside& host, CallRecord& record, const Fault& fault, long long) {
       host.handles().RefusedLock(record.handle);
       return Call::Answered{fault.error, nullptr};
     }},
    {FaultKind::kDispose,  // a refused disposal leaves a handle neither side can free
     [](HostInside& host, CallRecord& record, const Fault& fault, long long) {
       if (host.handles().IsLive(record.handle)) host.checks().Abandon(record.handle);
       return Call::Answered{fault.error, nullptr};
     }},
};
constexpr bool OneAnswerPerKind() {
  if (std::size(kFaultAnswers) != static_cast<std::size_t>(FaultKind::kCount)) return false;
  for (std::size_t i = 0; i < std::size(kFaultAnswers); ++i) {
    if (static_cast<std::size_t>(kFaultAnswers[i].kind) != i || kFaultAnswers[i].answer == nullptr)
      return false;
  }
  return true;
}
static_assert(OneAnswerPerKind(), "one answer per fault kind, in the enum's order");

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
    const Answered answer =
        kFaultAnswers[static_cast<std::size_t>(row_.fault)].answer(inside_, *record_, fault, row_.refused);
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
