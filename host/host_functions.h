// Every function the simulated host serves, in one table: its call-log name,
// how it answers when the fault plan fails it, the suite it belongs to and
// what it answers a call it refuses. The suites the broker serves, in one
// table of names and versions. Adding a host function is one row here and
// its body in callbacks.cpp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <tuple>

#include "hostapi/ae_constants.h"
#include "hostapi/ae_effect.h"

namespace cinebar_simhost {

// The broker's answer for a suite it does not serve ('S!Fd').
constexpr SPErr kSuiteNotFound = 0x53214664;

// The suites the broker hands out.
enum class Suite : std::uint8_t { kNone, kFillMatte, kWorldTransform, kHandle, kParamUtils, kCount };

struct SuiteRow {
  Suite suite;
  const char* name;
  int version;
};
inline constexpr SuiteRow kSuites[] = {
    {Suite::kNone, "", 0},  // the utility callbacks and the broker: no suite
    {Suite::kFillMatte, "PF Fill Matte Suite", 2},
    {Suite::kWorldTransform, "PF World Transform Suite", 1},
    {Suite::kHandle, "PF Handle Suite", 2},
    {Suite::kParamUtils, "PF Param Utils Suite", 3},
};
// The function table of each suite, in the order of Suite after kNone.
using SuiteTables =
    std::tuple<PF_FillMatteSuite2, PF_WorldTransformSuite1, PF_HandleSuite1, PF_ParamUtilsSuite3>;
template <Suite S>
using SuiteTable = std::tuple_element_t<static_cast<std::size_t>(S) - 1, SuiteTables>;
static_assert(std::tuple_size_v<SuiteTables> + 1 == static_cast<std::size_t>(Suite::kCount),
              "one function table per suite");

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
  Suite suite;
  long long refused;  // the answer to a call the host refuses: bad arguments, or outside any command
};

inline constexpr PF_Err kBadParam = PF_Err_BAD_CALLBACK_PARAM;
inline constexpr HostFnRow kHostFns[] = {
    {HostFn::kCommand, "EntryPointFunc", FaultKind::kNever, Suite::kNone, 0},
    {HostFn::kAddParam, "add_param", FaultKind::kError, Suite::kNone, kBadParam},
    {HostFn::kRegisterUi, "register_ui", FaultKind::kError, Suite::kNone, kBadParam},
    {HostFn::kNewHandle, "host_new_handle", FaultKind::kNewHandle, Suite::kNone, 0},
    {HostFn::kLockHandle, "host_lock_handle", FaultKind::kLock, Suite::kNone, 0},
    {HostFn::kUnlockHandle, "host_unlock_handle", FaultKind::kRefused, Suite::kNone, 0},
    {HostFn::kDisposeHandle, "host_dispose_handle", FaultKind::kDispose, Suite::kNone, 0},
    {HostFn::kGetHandleSize, "host_get_handle_size", FaultKind::kRefused, Suite::kNone, 0},
    {HostFn::kResizeHandle, "host_resize_handle", FaultKind::kError, Suite::kNone, kBadParam},
    {HostFn::kGetPlatformData, "get_platform_data", FaultKind::kError, Suite::kNone, kBadParam},
    {HostFn::kSprintf, "sprintf", FaultKind::kRefused, Suite::kNone, -1},
    {HostFn::kStrcpy, "strcpy", FaultKind::kRefused, Suite::kNone, 0},
    {HostFn::kAcquireSuite, "AcquireSuite", FaultKind::kError, Suite::kNone, kSuiteNotFound},
    {HostFn::kReleaseSuite, "ReleaseSuite", FaultKind::kError, Suite::kNone, kSuiteNotFound},
    {HostFn::kSuiteNewHandle, "HandleSuite.host_new_handle", FaultKind::kNewHandle, Suite::kHandle, 0},
    {HostFn::kSuiteLockHandle, "HandleSuite.host_lock_handle", FaultKind::kLock, Suite::kHandle, 0},
    {HostFn::kSuiteUnlockHandle, "HandleSuite.host_unlock_handle", FaultKind::kRefused, Suite::kHandle, 0},
    {HostFn::kSuiteDisposeHandle, "HandleSuite.host_dispose_handle", FaultKind::kDispose, Suite::kHandle, 0},
    {HostFn::kSuiteGetHandleSize, "HandleSuite.host_get_handle_size", FaultKind::kRefused, Suite::kHandle, 0},
    {HostFn::kSuiteResizeHandle, "HandleSuite.host_resize_handle", FaultKind::kError, Suite::kHandle,
     kBadParam},
    {HostFn::kFill, "fill", FaultKind::kError, Suite::kFillMatte, kBadParam},
    {HostFn::kFill16, "fill16", FaultKind::kError, Suite::kFillMatte, kBadParam},
    {HostFn::kCopy, "copy", FaultKind::kError, Suite::kWorldTransform, kBadParam},
    {HostFn::kUpdateParamUi, "PF_UpdateParamUI", FaultKind::kError, Suite::kParamUtils, kBadParam},
};

constexpr bool HostFnsInOrder() {
  if (std::size(kHostFns) != static_cast<std::size_t>(HostFn::kCount)) return false;
  for (std::size_t i = 0; i < std::size(kHostFns); ++i) {
    if (static_cast<std::size_t>(kHostFns[i].fn) != i) return false;
    if (kHostFns[i].fault == FaultKind::kNever && i != 0) return false;
  }
  return true;
}
constexpr bool SuitesInOrder() {
  if (std::size(kSuites) != static_cast<std::size_t>(Suite::kCount)) return false;
  for (std::size_t i = 0; i < std::size(kSuites); ++i) {
    if (static_cast<std::size_t>(kSuites[i].suite) != i) return false;
  }
  return true;
}
static_assert(HostFnsInOrder(),
              "one row per host function, in the enum's order; only the command is never failed");
static_assert(SuitesInOrder(), "one row per suite, in the enum's order");

constexpr const HostFnRow& Row(HostFn fn) { return kHostFns[static_cast<std::size_t>(fn)]; }
constexpr const SuiteRow& Row(Suite suite) { return kSuites[static_cast<std::size_t>(suite)]; }
constexpr const char* Name(HostFn fn) { return Row(fn).name; }

// The suite served under `name` at `version`; Suite::kNone when the broker serves none.
constexpr Suite SuiteNamed(std::string_view name, int version) {
  for (const SuiteRow& row : kSuites) {
    if (row.suite != Suite::kNone && row.name == name && row.version == version) return row.suite;
  }
  return Suite::kNone;
}

}  // namespace cinebar_simhost
