// Every function the simulated host serves, in one table: its call-log name,
// how it answers when the fault plan fails it, the suite it belongs to and
// what it answers a call it refuses. The suites the broker serves, in one
// table of names, versions and function tables. Adding a host function is one
// row here and its body in callbacks.cpp; serving a suite is one row here.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <tuple>
#include <type_traits>

#include "host/checks.h"
#include "host/handles.h"
#include "hostapi/ae_constants.h"
#include "hostapi/ae_effect.h"

namespace cinebar_simhost {

// The broker's answer for a suite it does not serve ('S!Fd').
constexpr SPErr kSuiteNotFound = 0x53214664;

// A suite the broker serves: its name and version.
struct SuiteRow {
  const char* name;
  int version;
};
// A served suite's row, typed by its function table.
template <typename Table>
struct Served : SuiteRow {
  using FunctionTable = Table;
};
// The suites the broker serves, one row each. The host's functions in them are
// bound by table type in callbacks.cpp; a table without any is served empty.
inline constexpr std::tuple kServedSuites{
    Served<PF_FillMatteSuite2>{{"PF Fill Matte Suite", 2}},
    Served<PF_WorldTransformSuite1>{{"PF World Transform Suite", 1}},
    Served<PF_HandleSuite1>{{"PF Handle Suite", 2}},
    Served<PF_ParamUtilsSuite3>{{"PF Param Utils Suite", 3}},
};
// The row of the suite served with function table `Table`.
template <typename Table>
inline constexpr const SuiteRow& kSuite = std::get<Served<Table>>(kServedSuites);
// The rows alone, in the table's order.
inline constexpr auto kSuites = std::apply(
    [](const auto&... row) { return std::array<SuiteRow, sizeof...(row)>{row...}; }, kServedSuites);

template <typename Rows>
struct TablesOf;
template <typename... Table>
struct TablesOf<std::tuple<Served<Table>...>> {
  using type = std::tuple<Table...>;
};
// The function tables of the served suites, in the table's order.
using SuiteTables = TablesOf<std::remove_const_t<decltype(kServedSuites)>>::type;

// What a call the fault plan fails answers: a number, or a pointer for a function returning one.
struct FaultAnswer {
  long long number;
  void* pointer;
};
// How a call the fault plan fails answers, besides doing none of its work: from
// the fault's error, the row's refused answer and the handle the call is about.
struct FaultKind {
  bool fails;  // false only for what is not a host function
  FaultAnswer (*answer)(HandleStore& handles, HostChecks& checks, PF_Handle& handle, PF_Err error,
                        long long refused);
};
// Not a host function: never failed.
inline constexpr FaultKind kNeverFailed{
    .fails = false, .answer = [](HandleStore&, HostChecks&, PF_Handle&, PF_Err, long long refused) {
      return FaultAnswer{refused, nullptr};
    }};
// The fault's error; a suite asked for stays null (Fault::Null(): no error, no suite).
inline constexpr FaultKind kFailError{
    .fails = true, .answer = [](HandleStore&, HostChecks&, PF_Handle&, PF_Err error, long long) {
      return FaultAnswer{error, nullptr};
    }};
// The row's refused answer (-1, null, 0, or nothing).
inline constexpr FaultKind kFailRefused{
    .fails = true, .answer = [](HandleStore&, HostChecks&, PF_Handle&, PF_Err, long long refused) {
      return FaultAnswer{refused, nullptr};
    }};
// Null; Fault::Null() hands out a handle without a block.
inline constexpr FaultKind kFailNewHandle{
    .fails = true,
    .answer = [](HandleStore& handles, HostChecks&, PF_Handle& handle, PF_Err error, long long) {
      handle = error == 0 ? handles.NewWithoutBlock() : nullptr;
      return FaultAnswer{error, handle};
    }};
// Null; the host then accepts one unlock of the handle.
inline constexpr FaultKind kFailLock{
    .fails = true,
    .answer = [](HandleStore& handles, HostChecks&, PF_Handle& handle, PF_Err error, long long) {
      handles.RefusedLock(handle);
      return FaultAnswer{error, nullptr};
    }};
// The handle stays live and neither side can free it.
inline constexpr FaultKind kFailDispose{
    .fails = true,
    .answer = [](HandleStore& handles, HostChecks& checks, PF_Handle& handle, PF_Err error, long long) {
      if (handles.IsLive(handle)) checks.Abandon(handle);
      return FaultAnswer{error, nullptr};
    }};

enum class HostFn : std::uint8_t {
  kCommand,  // not a host function: the host's call of EntryPointFunc, as the call log records it
  kAddParam,
  kRegisterUi,
  kNewHandle,
  kLockHandle,
  kUnlockHandle,
  kDisposeHandle,
  kGetHandleSize,
  kResizeHandle,
  kGetPlatformData,
  kSprintf,
  kStrcpy,
  kAcquireSuite,
  kReleaseSuite,
  kSuiteNewHandle,
  kSuiteLockHandle,
  kSuiteUnlockHandle,
  kSuiteDisposeHandle,
  kSuiteGetHandleSize,
  kSuiteResizeHandle,
  kFill,
  kFill16,
  kCopy,
  kUpdateParamUi,
  kCount
};

struct HostFnRow {
  HostFn fn;
  const char* name;  // as the call log and failure messages spell it
  const FaultKind* fault;
  const SuiteRow* suite;  // the suite it belongs to; null for the callbacks and the broker
  long long refused;      // the answer to a call the host refuses: bad arguments, or outside any command
};

inline constexpr PF_Err kBadParam = PF_Err_BAD_CALLBACK_PARAM;
inline constexpr HostFnRow kHostFns[] = {
    {HostFn::kCommand, "EntryPointFunc", &kNeverFailed, nullptr, 0},
    {HostFn::kAddParam, "add_param", &kFailError, nullptr, kBadParam},
    {HostFn::kRegisterUi, "register_ui", &kFailError, nullptr, kBadParam},
    {HostFn::kNewHandle, "host_new_handle", &kFailNewHandle, nullptr, 0},
    {HostFn::kLockHandle, "host_lock_handle", &kFailLock, nullptr, 0},
    {HostFn::kUnlockHandle, "host_unlock_handle", &kFailRefused, nullptr, 0},
    {HostFn::kDisposeHandle, "host_dispose_handle", &kFailDispose, nullptr, 0},
    {HostFn::kGetHandleSize, "host_get_handle_size", &kFailRefused, nullptr, 0},
    {HostFn::kResizeHandle, "host_resize_handle", &kFailError, nullptr, kBadParam},
    {HostFn::kGetPlatformData, "get_platform_data", &kFailError, nullptr, kBadParam},
    {HostFn::kSprintf, "sprintf", &kFailRefused, nullptr, -1},
    {HostFn::kStrcpy, "strcpy", &kFailRefused, nullptr, 0},
    {HostFn::kAcquireSuite, "AcquireSuite", &kFailError, nullptr, kSuiteNotFound},
    {HostFn::kReleaseSuite, "ReleaseSuite", &kFailError, nullptr, kSuiteNotFound},
    {HostFn::kSuiteNewHandle, "HandleSuite.host_new_handle", &kFailNewHandle, &kSuite<PF_HandleSuite1>, 0},
    {HostFn::kSuiteLockHandle, "HandleSuite.host_lock_handle", &kFailLock, &kSuite<PF_HandleSuite1>, 0},
    {HostFn::kSuiteUnlockHandle, "HandleSuite.host_unlock_handle", &kFailRefused, &kSuite<PF_HandleSuite1>,
     0},
    {HostFn::kSuiteDisposeHandle, "HandleSuite.host_dispose_handle", &kFailDispose, &kSuite<PF_HandleSuite1>,
     0},
    {HostFn::kSuiteGetHandleSize, "HandleSuite.host_get_handle_size", &kFailRefused, &kSuite<PF_HandleSuite1>,
     0},
    {HostFn::kSuiteResizeHandle, "HandleSuite.host_resize_handle", &kFailError, &kSuite<PF_HandleSuite1>,
     kBadParam},
    {HostFn::kFill, "fill", &kFailError, &kSuite<PF_FillMatteSuite2>, kBadParam},
    {HostFn::kFill16, "fill16", &kFailError, &kSuite<PF_FillMatteSuite2>, kBadParam},
    {HostFn::kCopy, "copy", &kFailError, &kSuite<PF_WorldTransformSuite1>, kBadParam},
    {HostFn::kUpdateParamUi, "PF_UpdateParamUI", &kFailError, &kSuite<PF_ParamUtilsSuite3>, kBadParam},
};

constexpr bool HostFnsInOrder() {
  if (std::size(kHostFns) != static_cast<std::size_t>(HostFn::kCount)) return false;
  for (std::size_t i = 0; i < std::size(kHostFns); ++i) {
    if (static_cast<std::size_t>(kHostFns[i].fn) != i) return false;
    if (kHostFns[i].fault->fails == (i == 0)) return false;
  }
  return true;
}
static_assert(HostFnsInOrder(),
              "one row per host function, in the enum's order; only the command is never failed");

constexpr const HostFnRow& Row(HostFn fn) { return kHostFns[static_cast<std::size_t>(fn)]; }
constexpr const char* Name(HostFn fn) { return Row(fn).name; }

// The position in kSuites of the suite served under `name` at `version`; kSuites.size() when none is.
constexpr std::size_t ServedSuiteAt(std::string_view name, int version) {
  std::size_t at = 0;
  while (at < kSuites.size() && !(kSuites[at].name == name && kSuites[at].version == version)) ++at;
  return at;
}
constexpr bool EachSuiteServedOnce() {
  for (std::size_t at = 0; at < kSuites.size(); ++at) {
    if (ServedSuiteAt(kSuites[at].name, kSuites[at].version) != at) return false;
  }
  return true;
}
static_assert(EachSuiteServedOnce(), "each suite name and version served once");

}  // namespace cinebar_simhost
