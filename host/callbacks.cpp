// The host functions the module calls: interaction and utility callbacks, the
// suite broker and the suites' functions. Each opens a Call (call_scope.h):
// logged, counted by the fault plan, its arguments checked (misuse becomes a
// host error, never a crash); then it does its work.
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <tuple>

#include "host/call_scope.h"
#include "host/pixel_ops.h"

namespace cinebar_simhost {
namespace {

std::string Str(const char* text) { return text ? "\"" + std::string(text) + "\"" : "null"; }
template <typename Pixel>
std::string ColorText(const Pixel* c) {
  if (c == nullptr) return "null";
  return "{" + std::to_string(c->alpha) + "," + std::to_string(c->red) + "," + std::to_string(c->green) +
         "," + std::to_string(c->blue) + "}";
}
std::string WorldText(const PF_LayerDef* w) {
  if (w == nullptr) return "null";
  return std::to_string(w->width) + "x" + std::to_string(w->height) +
         ((w->world_flags & PF_WorldFlag_DEEP) ? " deep" : "");
}
std::string NameText(const PF_ParamDef* def) {
  if (def == nullptr) return "null";
  return "\"" + std::string(def->name, std::find(def->name, def->name + sizeof def->name, '\0')) + "\"";
}

// ---- interaction callbacks ---------------------------------------------------

PF_Err AddParam(PF_ProgPtr effect_ref, A_long index, PF_ParamDef* def) {
  Call c(HostFn::kAddParam, "index=" + std::to_string(index) + " name=" + NameText(def));
  if (def) c.record().def = *def;
  c.record().index = index;
  if (!c.AdmitFrom(effect_ref, {def}, "null definition")) return c.Answer<PF_Err>();
  HostInside& h = c.host();
  if (h.current().cmd != PF_Cmd_PARAMS_SETUP)
    return c.Refuse(PF_Err_INVALID_CALLBACK, "outside parameter setup");
  // A project keeps values by disk ID: two parameters under one ID would read each other's.
  for (const AddedParam& earlier : h.project().added_params()) {
    if (earlier.def.uu.id == def->uu.id)
      return c.Refuse(PF_Err_BAD_CALLBACK_PARAM, "disk ID " + std::to_string(def->uu.id) + " added twice");
  }
  const AddedParam& kept = h.project().Added(index, *def);
  if (def->param_type == PF_Param_POPUP && def->u.pd.u.namesptr != nullptr) {
    const auto param = static_cast<A_long>(h.project().added_params().size());
    h.checks().KeepText(param, def->u.pd.u.namesptr, kept.popup_items);
  }
  c.record().def = kept.def;
  return PF_Err_NONE;
}

PF_Err RegisterUI(PF_ProgPtr effect_ref, PF_CustomUIInfo* info) {
  Call c(HostFn::kRegisterUi, info ? "events=" + std::to_string(info->events) : "null");
  if (!c.AdmitFrom(effect_ref, {info}, "null info")) return c.Answer<PF_Err>();
  if (c.host().current().cmd != PF_Cmd_PARAMS_SETUP)
    return c.Refuse(PF_Err_INVALID_CALLBACK, "outside parameter setup");
  c.host().project().Registered(*info);
  return PF_Err_NONE;
}

// ---- handles (utility callbacks and Handle Suite share these bodies) -----------

// The handle store's answer: a problem text is a misuse the host notes.
void Noted(Call& c, const std::string& problem) {
  if (!problem.empty()) c.Refuse(0, problem);
}

template <HostFn Fn>
PF_Handle NewHandle(A_HandleSize size) {
  Call c(Fn, "size=" + std::to_string(size));
  c.record().size = size;
  if (!c.Admit()) return c.Answer<PF_Handle>();
  return c.record().handle = c.host().handles().New(size);
}

template <HostFn Fn>
void* LockHandle(PF_Handle handle) {
  Call c(Fn, handle);
  if (!c.Admit()) return c.Answer<void*>();
  void* block = nullptr;
  Noted(c, c.host().handles().Lock(handle, &block));
  return block;
}

template <HostFn Fn>
void UnlockHandle(PF_Handle handle) {
  Call c(Fn, handle);
  if (c.Admit()) Noted(c, c.host().handles().Unlock(handle));
}

template <HostFn Fn>
void DisposeHandle(PF_Handle handle) {
  Call c(Fn, handle);
  if (c.Admit()) Noted(c, c.host().handles().Dispose(handle));
}

template <HostFn Fn>
A_HandleSize HandleSize(PF_Handle handle) {
  Call c(Fn, handle);
  if (!c.Admit()) return c.Answer<A_HandleSize>();
  A_HandleSize size = 0;
  Noted(c, c.host().handles().Size(handle, &size));
  c.record().result = static_cast<long long>(size);
  c.record().size = size;
  return size;
}

template <HostFn Fn>
PF_Err ResizeHandle(A_HandleSize size, PF_Handle* handle) {
  Call c(Fn, "size=" + std::to_string(size));
  c.record().size = size;
  if (handle) c.record().handle = *handle;
  if (!c.Admit({handle}, "null handle address")) return c.Answer<PF_Err>();
  if (size > kMaxHandleSize) return static_cast<PF_Err>(c.record().result = PF_Err_OUT_OF_MEMORY);
  const std::string problem = c.host().handles().Resize(*handle, size);
  if (!problem.empty()) return c.Refuse(PF_Err_BAD_CALLBACK_PARAM, problem);
  return PF_Err_NONE;
}

// ---- platform data and ANSI callbacks -------------------------------------------

PF_Err GetPlatformData(PF_ProgPtr effect_ref, A_long which, void* data) {
  Call c(HostFn::kGetPlatformData, "which=" + std::to_string(which));
  c.record().index = which;
  if (!c.AdmitFrom(effect_ref, {data}, "null destination")) return c.Answer<PF_Err>();
  void* value = nullptr;
  if (which == PF_PlatData_MAIN_WND) {
    value = reinterpret_cast<void*>(kFakeMainWindow);
  } else if (which == PF_PlatData_RES_DLLINSTANCE) {
    value = c.host().module_handle();
  } else {
    return c.Refuse(PF_Err_BAD_CALLBACK_PARAM, "selector " + std::to_string(which) + " is not served");
  }
  std::memcpy(data, &value, sizeof value);
  return PF_Err_NONE;
}

int Sprintf(A_char* buffer, const A_char* format, ...) {
  Call c(HostFn::kSprintf, "format=" + Str(format));
  if (!c.Admit({buffer, format}, "null buffer or format")) return c.Answer<int>();
  va_list args;
  va_start(args, format);
  const int written = std::vsprintf(buffer, format, args);
  va_end(args);
  c.record().args += " -> " + Str(buffer);
  c.record().result = written;
  return written;
}

A_char* Strcpy(A_char* dest, const A_char* src) {
  Call c(HostFn::kStrcpy, Str(src));
  if (!c.Admit({dest, src}, "null destination or source")) return c.Answer<A_char*>();
  return std::strcpy(dest, src);
}

// ---- suite broker -----------------------------------------------------------------

SPErr AcquireSuite(const char* name, int32_t version, const void** suite) {
  Call c(HostFn::kAcquireSuite, Str(name) + " " + std::to_string(version));
  const std::string suite_name = name ? name : "";
  if (suite) *suite = nullptr;
  c.record().suite = suite_name;
  c.record().version = version;
  c.AlsoCount(FaultTarget::ForSuite(suite_name, version));
  if (!c.Admit({name, suite}, "null name or suite address")) return c.Answer<SPErr>();
  const void* served = c.host().ServedTable(suite_name, version);
  if (served == nullptr) return static_cast<SPErr>(c.record().result = kSuiteNotFound);
  *suite = served;
  c.host().checks().Acquired(suite_name, version);
  return 0;
}

SPErr ReleaseSuite(const char* name, int32_t version) {
  Call c(HostFn::kReleaseSuite, Str(name) + " " + std::to_string(version));
  const std::string suite_name = name ? name : "";
  c.record().suite = suite_name;
  c.record().version = version;
  // A refused release is the host's own trouble: the module gave the suite
  // back all the same, so it is no longer counted against the module.
  const bool admitted = c.Admit();
  if (!admitted && !c.faulted()) return c.Answer<SPErr>();
  if (!c.host().checks().Released(suite_name, version))
    return c.Refuse(kSuiteNotFound, Str(name) + " " + std::to_string(version) + " is not held");
  return admitted ? 0 : c.Answer<SPErr>();
}

// ---- drawing suites -----------------------------------------------------------------

void Keep(CallRecord& r, const PF_Pixel& c) { r.color = c; }
void Keep(CallRecord& r, const PF_Pixel16& c) { r.color16 = c; }
PixelProblem Draw(const PF_Pixel& c, const PF_Rect* rect, PF_LayerDef& w, bool draw) {
  return FillRect8(c, rect, w, draw);
}
PixelProblem Draw(const PF_Pixel16& c, const PF_Rect* rect, PF_LayerDef& w, bool draw) {
  return FillRect16(c, rect, w, draw);
}

template <HostFn Fn, typename Pixel>
PF_Err Fill(PF_ProgPtr effect_ref, const Pixel* color, const PF_Rect* rect, PF_LayerDef* world) {
  Call c(Fn, "color=" + ColorText(color) + " rect=" + RectText(rect) + " world=" + WorldText(world));
  if (color) Keep(c.record(), *color);
  if (rect) c.record().rect = *rect;
  if (world) c.record().world = *world;
  if (!c.AdmitFrom(effect_ref, {color, world}, "null colour or world")) return c.Answer<PF_Err>();
  const PixelProblem problem = Draw(*color, rect, *world, !c.host().current().WithoutPixels(world->data));
  if (!problem.empty()) return c.Refuse(PF_Err_BAD_CALLBACK_PARAM, problem);
  return PF_Err_NONE;
}

PF_Err Copy(PF_ProgPtr effect_ref, PF_LayerDef* src, PF_LayerDef* dst, PF_Rect* src_rect, PF_Rect* dst_rect) {
  Call c(HostFn::kCopy, "src=" + WorldText(src) + " dst=" + WorldText(dst) +
                            " src_rect=" + RectText(src_rect) + " dst_rect=" + RectText(dst_rect));
  if (src) c.record().src_world = *src;
  if (dst) c.record().world = *dst;
  if (src_rect) c.record().src_rect = *src_rect;
  if (dst_rect) c.record().rect = *dst_rect;
  if (!c.AdmitFrom(effect_ref, {src, dst}, "null world")) return c.Answer<PF_Err>();
  const PixelProblem problem =
      CopyRect(*src, *dst, src_rect, dst_rect, !c.host().current().WithoutPixels(dst->data));
  if (!problem.empty()) return c.Refuse(PF_Err_BAD_CALLBACK_PARAM, problem);
  return PF_Err_NONE;
}

PF_Err UpdateParamUI(PF_ProgPtr effect_ref, A_long index, const PF_ParamDef* def) {
  Call c(HostFn::kUpdateParamUi, "index=" + std::to_string(index));
  c.record().index = index;
  if (def) c.record().def = *def;
  if (!c.AdmitFrom(effect_ref, {def}, "null definition")) return c.Answer<PF_Err>();
  CommandInProgress& now = c.host().current();
  if (now.instance == nullptr) return c.Refuse(PF_Err_INVALID_CALLBACK, "outside an instance's command");
  if (index < 1 || index >= now.instance->param_count())
    return c.Refuse(PF_Err_INVALID_INDEX, "index " + std::to_string(index) + " out of range");
  if (def->param_type != now.instance->param(index).param_type)
    return c.Refuse(PF_Err_BAD_CALLBACK_PARAM, "definition of another parameter type");
  now.ui_updates.emplace_back(index, *def);
  return PF_Err_NONE;
}

// The host's functions in each served suite, bound by its function table.
void Bind(PF_FillMatteSuite2& fill) {
  fill.fill = Fill<HostFn::kFill, PF_Pixel>;
  fill.fill16 = Fill<HostFn::kFill16, PF_Pixel16>;
}
void Bind(PF_WorldTransformSuite1& transform) { transform.copy = Copy; }
// The six handle functions, which the callbacks and the Handle Suite each carry
// under the same names, logged under their own host functions.
template <HostFn kNew, HostFn kLock, HostFn kUnlock, HostFn kDispose, HostFn kSize, HostFn kResize>
void BindHandles(auto& table) {
  table.host_new_handle = NewHandle<kNew>;
  table.host_lock_handle = LockHandle<kLock>;
  table.host_unlock_handle = UnlockHandle<kUnlock>;
  table.host_dispose_handle = DisposeHandle<kDispose>;
  table.host_get_handle_size = reinterpret_cast<PF_UnusedFn>(HandleSize<kSize>);
  table.host_resize_handle = reinterpret_cast<PF_UnusedFn>(ResizeHandle<kResize>);
}
void Bind(PF_HandleSuite1& handle) {
  BindHandles<HostFn::kSuiteNewHandle, HostFn::kSuiteLockHandle, HostFn::kSuiteUnlockHandle,
              HostFn::kSuiteDisposeHandle, HostFn::kSuiteGetHandleSize, HostFn::kSuiteResizeHandle>(handle);
}
void Bind(PF_ParamUtilsSuite3& param_utils) { param_utils.PF_UpdateParamUI = UpdateParamUI; }
void Bind(auto&) {}  // a suite served without functions of the host's own

}  // namespace

void InstallCallbacks(PF_InData& in, PF_UtilCallbacks& u, SPBasicSuite& basic, SuiteTables& suites) {
  in.inter.add_param = AddParam;
  in.inter.register_ui = RegisterUI;
  BindHandles<HostFn::kNewHandle, HostFn::kLockHandle, HostFn::kUnlockHandle, HostFn::kDisposeHandle,
              HostFn::kGetHandleSize, HostFn::kResizeHandle>(u);
  u.get_platform_data = GetPlatformData;
  u.ansi.sprintf = Sprintf;
  u.ansi.strcpy = Strcpy;
  basic.AcquireSuite = AcquireSuite;
  basic.ReleaseSuite = ReleaseSuite;
  std::apply([](auto&... table) { (Bind(table), ...); }, suites);
}

}  // namespace cinebar_simhost
