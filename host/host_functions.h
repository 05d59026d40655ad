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

// How a call the fault plan fails answers (besides doing none of its work).
enum class FaultKind : std::uint8_t {
  kNever,      // not a host function: never failed
  kError,      // the fault's error; a suite asked for stays null (Fault::Null(): no error, no suite)
  kRefused,    // the row's refused answer (-1, null, 0, or nothing)
  kNewHandle,  // null; Fault::Null() hands out a handle without a block
  kLock,       // null; the host then accepts one unlock of the handle
  kDispose,    // the handle stays live and neither side can free it
  kCount
};

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
  FaultKind fault;
  const SuiteRow* suite;  // the suite it belongs to; null for the callbacks and the broker
  long long refused;      // the answer to a call the host refuses: bad arguments, or outside any command
};

inline constexpr PF_Err kBadParam = PF_Err_BAD_CALLBACK_PARAM;
inline constexpr HostFnRow kHostFns[] = {
    {HostFn::kCommand, "EntryPointFunc", FaultKind::kNever, nullptr, 0},
    {HostFn::kAddParam, "add_param", FaultKind::kError, nullptr, kBadParam},
    {HostFn::kRegisterUi, "register_ui", FaultKind::kError, nullptr, kBadParam},
    {HostFn::kNewHandle, "host_new_handle", FaultKind::kNewHandle, nullptr, 0},
    {HostFn::kLockHandle, "host_lock_handle", FaultKind::kLock, nullptr, 0},
    {HostFn::kUnlockHandle, "host_unlock_handle", FaultKind::kRefused, nullptr, 0},
    {HostFn::kDisposeHandle, "host_dispose_handle", FaultKind::kDispose, nullptr, 0},
    {HostFn::kGetHandleSize, "host_get_handle_size", FaultKind::kRefused, nullptr, 0},
    {HostFn::kResizeHandle, "host_resize_handle", FaultKind::kError, nullptr, kBadParam},
    {HostFn::kGetPlatformData, "get_platform_data", FaultKind::kError, nullptr, kBadParam},
    {HostFn::kSprintf, "sprintf", FaultKind::kRefused, nullptr, -1},
    {HostFn::kStrcpy, "strcpy", FaultKind::kRefused, nullptr, 0},
    {HostFn::kAcquireSuite, "AcquireSuite", FaultKind::kError, nullptr, kSuiteNotFound},
    {HostFn::kReleaseSuite, "ReleaseSuite", FaultKind::kError, nullptr, kSuiteNotFound},
    {HostFn::kSuiteNewHandle, "HandleSuite.host_new_handle", FaultKind::kNewHandle, &kSuite<PF_HandleSuite1>,
     0},
    {HostFn::kSuiteLockHandle, "HandleSuite.host_lock_handle", FaultKind::kLock, &kSuite<PF_HandleSuite1>, 0},
    {HostFn::kSuiteUnlockHandle, "HandleSuite.host_unlock_handle", FaultKind::kRefused,
     &kSuite<PF_HandleSuite1>, 0},
    {HostFn::kSuiteDisposeHandle, "HandleSuite.host_dispose_handle", FaultKind::kDispose,
     &kSuite<PF_HandleSuite1>, 0},
    {HostFn::kSuiteGetHandleSize, "HandleSuite.host_get_handle_size", FaultKind::kRefused,
     &kSuite<PF_HandleSuite1>, 0},
    {HostFn::kSuiteResizeHandle, "HandleSuite.host_resize_handle", FaultKind::kError,
     &kSuite<PF_HandleSuite1>, kBadParam},
    {HostFn::kFill, "fill", FaultKind::kError, &kSuite<PF_FillMatteSuite2>, kBadParam},
    {HostFn::kFill16, "fill16", FaultKind::kError, &kSuite<PF_FillMatteSuite2>, kBadParam},
    {HostFn::kCopy, "copy", FaultKind::kError, &kSuite<PF_WorldTransformSuite1>, kBadParam},
    {HostFn::kUpdateParamUi, "PF_UpdateParamUI", FaultKind::kError, &kSuite<PF_ParamUtilsSuite3>, kBadParam},
};

constexpr bool HostFnsInOrder() {
  if (std::size(kHostFns) != static_cast<std::size_t>(HostFn::kCount)) return false;
  for (std::size_t i = 0; i < std::size(kHostFns); ++i) {
    if (static_cast<std::size_t>(kHostFns[i].fn) != i) return false;
    if (kHostFns[i].fault == FaultKind::kNever && i != 0) return false;
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
