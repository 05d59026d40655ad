// The host functions the module calls: interaction and utility callbacks, the
// suite broker and the four suites. Each one logs itself, consults the fault
// plan, checks its arguments (misuse becomes a host error, never a crash) and
// then does its work.
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "host/callbacks_internal.h"
#include "host/pixel_ops.h"
#include "host/sim_host.h"

namespace cinebar_simhost {
namespace {
Host* g_current = nullptr;

std::string Str(const char* text) { return text ? "\"" + std::string(text) + "\"" : "null"; }
std::string PtrText(const void* p) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%p", p);
  return buffer;
}
std::string ColorText(const PF_Pixel* c) {
  if (c == nullptr) return "null";
  return "{" + std::to_string(c->alpha) + "," + std::to_string(c->red) + "," + std::to_string(c->green) +
         "," + std::to_string(c->blue) + "}";
}
std::string ColorText(const PF_Pixel16* c) {
  if (c == nullptr) return "null";
  return "{" + std::to_string(c->alpha) + "," + std::to_string(c->red) + "," + std::to_string(c->green) +
         "," + std::to_string(c->blue) + "}";
}
std::string WorldText(const PF_LayerDef* w) {
  if (w == nullptr) return "null";
  return std::to_string(w->width) + "x" + std::to_string(w->height) +
         ((w->world_flags & PF_WorldFlag_DEEP) ? " deep" : "");
}
}  // namespace

CurrentHostScope::CurrentHostScope(Host* host) : previous_(g_current) { g_current = host; }
CurrentHostScope::~CurrentHostScope() { g_current = previous_; }

struct HostCallbacks {
  static Host* Get(const char* function) {
    if (g_current == nullptr)
      std::fprintf(stderr, "simulated host: %s called outside any command\n", function);
    return g_current;
  }

  // True (after noting a host error) when effect_ref is not this host's.
  static bool ForeignRef(Host& h, PF_ProgPtr ref, const char* function) {
    if (ref == h.in_.effect_ref) return false;
    h.HostError(std::string(function) + ": effect_ref " + PtrText(ref) + " is not this host's");
    return true;
  }

  static PF_Err Refuse(Host& h, CallRecord& r, PF_Err err, const std::string& why) {
    h.HostError(r.function + ": " + why);
    r.result = err;
    return err;
  }

  // ---- interaction callbacks ---------------------------------------------------

  static PF_Err AddParam(PF_ProgPtr effect_ref, A_long index, PF_ParamDef* def) {
    Host* h = Get("add_param");
    if (h == nullptr) return PF_Err_INVALID_CALLBACK;
    CallRecord& r = h->Begin(
        "add_param",
        "index=" + std::to_string(index) + " name=" +
            (def ? "\"" + std::string(def->name, std::find(def->name, def->name + sizeof def->name, '\0')) +
                       "\""
                 : std::string("null")));
    r.index = index;
    if (def) r.def = *def;
    Fault f;
    if (h->Faulted("add_param", r, &f)) return f.error;
    if (ForeignRef(*h, effect_ref, "add_param")) return r.result = PF_Err_BAD_CALLBACK_PARAM;
    if (def == nullptr) return Refuse(*h, r, PF_Err_BAD_CALLBACK_PARAM, "null definition");
    if (h->current_cmd_ != PF_Cmd_PARAMS_SETUP)
      return Refuse(*h, r, PF_Err_INVALID_CALLBACK, "outside parameter setup");
    AddedParam added;
    added.index = index;
    added.def = *def;
    const bool has_items = def->param_type == PF_Param_POPUP && def->u.pd.u.namesptr != nullptr;
    if (has_items) {
      added.popup_items = def->u.pd.u.namesptr;
      h->kept_texts_.push_back(
          {static_cast<A_long>(h->added_.size()) + 1, def->u.pd.u.namesptr, added.popup_items});
    }
    h->added_.push_back(std::move(added));
    AddedParam& kept = h->added_.back();  // deque: earlier entries and their strings never move
    if (has_items) kept.def.u.pd.u.namesptr = kept.popup_items.c_str();
    r.def = kept.def;
    return PF_Err_NONE;
  }

  static PF_Err RegisterUI(PF_ProgPtr effect_ref, PF_CustomUIInfo* info) {
    Host* h = Get("register_ui");
    if (h == nullptr) return PF_Err_INVALID_CALLBACK;
    CallRecord& r = h->Begin("register_ui", info ? "events=" + std::to_string(info->events) : "null");
    Fault f;
    if (h->Faulted("register_ui", r, &f)) return f.error;
    if (ForeignRef(*h, effect_ref, "register_ui")) return r.result = PF_Err_BAD_CALLBACK_PARAM;
    if (info == nullptr) return Refuse(*h, r, PF_Err_BAD_CALLBACK_PARAM, "null info");
    if (h->current_cmd_ != PF_Cmd_PARAMS_SETUP)
      return Refuse(*h, r, PF_Err_INVALID_CALLBACK, "outside parameter setup");
    h->registered_ui_.push_back(*info);
    return PF_Err_NONE;
  }

  // ---- handles (utility callbacks and Handle Suite share these bodies) -----------

  static PF_Handle NewHandle(const char* fn, A_HandleSize size) {
    Host* h = Get(fn);
    if (h == nullptr) return nullptr;
    CallRecord& r = h->Begin(fn, "size=" + std::to_string(size));
    r.size = size;
    Fault f;
    if (h->Faulted(fn, r, &f)) return r.handle = f.error == 0 ? h->handles_.NewWithoutBlock() : nullptr;
    r.handle = h->handles_.New(size);
    return r.handle;
  }

  // Opens the log record of a call on an existing handle. Null when there is
  // no current host or the fault plan fails the call (the caller then answers
  // as a failing host would).
  static CallRecord* BeginOnHandle(const char* fn, PF_Handle handle, Host** host) {
    Host* h = Get(fn);
    if (h == nullptr) return nullptr;
    CallRecord& r = h->Begin(fn, PtrText(handle));
    r.handle = handle;
    Fault f;
    if (h->Faulted(fn, r, &f)) {
      // A refused lock may still be unlocked; a refused disposal leaves a handle neither side can free.
      if (std::strstr(fn, "lock_handle") != nullptr && std::strstr(fn, "unlock") == nullptr)
        h->handles_.RefusedLock(handle);
      if (std::strstr(fn, "dispose") != nullptr && h->handles_.IsLive(handle))
        h->abandoned_.push_back(handle);
      return nullptr;
    }
    *host = h;
    return &r;
  }

  // The handle store's answer: a problem text is a misuse the host notes.
  static bool Noted(Host& h, const char* fn, const std::string& problem) {
    if (!problem.empty()) h.HostError(std::string(fn) + ": " + problem);
    return !problem.empty();
  }

  static void* LockHandle(const char* fn, PF_Handle handle) {
    Host* h = nullptr;
    if (BeginOnHandle(fn, handle, &h) == nullptr) return nullptr;
    void* block = nullptr;
    Noted(*h, fn, h->handles_.Lock(handle, &block));
    return block;
  }

  static void UnlockHandle(const char* fn, PF_Handle handle) {
    Host* h = nullptr;
    if (BeginOnHandle(fn, handle, &h) == nullptr) return;
    Noted(*h, fn, h->handles_.Unlock(handle));
  }

  static void DisposeHandle(const char* fn, PF_Handle handle) {
    Host* h = nullptr;
    if (BeginOnHandle(fn, handle, &h) == nullptr) return;
    Noted(*h, fn, h->handles_.Dispose(handle));
  }

  static A_HandleSize HandleSize(const char* fn, PF_Handle handle) {
    Host* h = nullptr;
    CallRecord* r = BeginOnHandle(fn, handle, &h);
    if (r == nullptr) return 0;
    A_HandleSize size = 0;
    Noted(*h, fn, h->handles_.Size(handle, &size));
    r->result = static_cast<long long>(size);
    r->size = size;
    return size;
  }

  static PF_Err ResizeHandle(const char* fn, A_HandleSize size, PF_Handle* handle) {
    Host* h = Get(fn);
    if (h == nullptr) return PF_Err_INVALID_CALLBACK;
    CallRecord& r = h->Begin(fn, "size=" + std::to_string(size));
    r.size = size;
    if (handle) r.handle = *handle;
    Fault f;
    if (h->Faulted(fn, r, &f)) return f.error;
    if (handle == nullptr) return Refuse(*h, r, PF_Err_BAD_CALLBACK_PARAM, "null handle address");
    if (size > kMaxHandleSize) return r.result = PF_Err_OUT_OF_MEMORY;
    const std::string problem = h->handles_.Resize(*handle, size);
    if (!problem.empty()) return Refuse(*h, r, PF_Err_BAD_CALLBACK_PARAM, problem);
    return PF_Err_NONE;
  }

  static PF_Handle UtilNew(A_HandleSize s) { return NewHandle("host_new_handle", s); }
  static void* UtilLock(PF_Handle p) { return LockHandle("host_lock_handle", p); }
  static void UtilUnlock(PF_Handle p) { UnlockHandle("host_unlock_handle", p); }
  static void UtilDispose(PF_Handle p) { DisposeHandle("host_dispose_handle", p); }
  static A_HandleSize UtilSize(PF_Handle p) { return HandleSize("host_get_handle_size", p); }
  static PF_Err UtilResize(A_HandleSize s, PF_Handle* p) { return ResizeHandle("host_resize_handle", s, p); }
  static PF_Handle SuiteNew(A_HandleSize s) { return NewHandle("HandleSuite.host_new_handle", s); }
  static void* SuiteLock(PF_Handle p) { return LockHandle("HandleSuite.host_lock_handle", p); }
  static void SuiteUnlock(PF_Handle p) { UnlockHandle("HandleSuite.host_unlock_handle", p); }
  static void SuiteDispose(PF_Handle p) { DisposeHandle("HandleSuite.host_dispose_handle", p); }
  static A_HandleSize SuiteSize(PF_Handle p) { return HandleSize("HandleSuite.host_get_handle_size", p); }
  static PF_Err SuiteResize(A_HandleSize s, PF_Handle* p) {
    return ResizeHandle("HandleSuite.host_resize_handle", s, p);
  }

  // ---- platform data and ANSI callbacks -------------------------------------------

  static PF_Err GetPlatformData(PF_ProgPtr effect_ref, A_long which, void* data) {
    Host* h = Get("get_platform_data");
    if (h == nullptr) return PF_Err_INVALID_CALLBACK;
    CallRecord& r = h->Begin("get_platform_data", "which=" + std::to_string(which));
    r.index = which;
    Fault f;
    if (h->Faulted("get_platform_data", r, &f)) return f.error;
    if (ForeignRef(*h, effect_ref, "get_platform_data")) return r.result = PF_Err_BAD_CALLBACK_PARAM;
    if (data == nullptr) return Refuse(*h, r, PF_Err_BAD_CALLBACK_PARAM, "null destination");
    void* value = nullptr;
    if (which == PF_PlatData_MAIN_WND) {
      value = reinterpret_cast<void*>(kFakeMainWindow);
    } else if (which == PF_PlatData_RES_DLLINSTANCE) {
      value = h->module_handle_;
    } else {
      return Refuse(*h, r, PF_Err_BAD_CALLBACK_PARAM, "selector " + std::to_string(which) + " is not served");
    }
    std::memcpy(data, &value, sizeof value);
    return PF_Err_NONE;
  }

  static int Sprintf(A_char* buffer, const A_char* format, ...) {
    Host* h = Get("sprintf");
    if (h == nullptr) return -1;
    CallRecord& r = h->Begin("sprintf", "format=" + Str(format));
    Fault f;
    if (h->Faulted("sprintf", r, &f)) return static_cast<int>(r.result = -1);
    if (buffer == nullptr || format == nullptr) {
      h->HostError("sprintf: null buffer or format");
      return static_cast<int>(r.result = -1);
    }
    va_list args;
    va_start(args, format);
    const int written = std::vsprintf(buffer, format, args);
    va_end(args);
    r.args += " -> " + Str(buffer);
    r.result = written;
    return written;
  }

  static A_char* Strcpy(A_char* dest, const A_char* src) {
    Host* h = Get("strcpy");
    if (h == nullptr) return nullptr;
    CallRecord& r = h->Begin("strcpy", Str(src));
    Fault f;
    if (h->Faulted("strcpy", r, &f)) return nullptr;
    if (dest == nullptr || src == nullptr) {
      h->HostError("strcpy: null destination or source");
      return nullptr;
    }
    return std::strcpy(dest, src);
  }

  // ---- suite broker -----------------------------------------------------------------

  static SPErr AcquireSuite(const char* name, int32_t version, const void** suite) {
    Host* h = Get("AcquireSuite");
    if (h == nullptr) return kSuiteNotFound;
    const std::string suite_name = name ? name : "";
    CallRecord& r = h->Begin("AcquireSuite", Str(name) + " " + std::to_string(version));
    r.suite = suite_name;
    r.version = version;
    if (suite) *suite = nullptr;
    Fault general, for_pair;
    const bool any = h->Faulted("AcquireSuite", r, &general);
    const bool pair = h->Faulted(AcquireKey(suite_name, version), r, &for_pair);
    if (any || pair) return static_cast<SPErr>(r.result = pair ? for_pair.error : general.error);
    if (name == nullptr || suite == nullptr)
      return Refuse(*h, r, kSuiteNotFound, "null name or suite address");
    const void* served = nullptr;
    if (suite_name == "PF Fill Matte Suite" && version == 2) served = &h->fill_suite_;
    if (suite_name == "PF World Transform Suite" && version == 1) served = &h->transform_suite_;
    if (suite_name == "PF Handle Suite" && version == 2) served = &h->handle_suite_;
    if (suite_name == "PF Param Utils Suite" && version == 3) served = &h->param_utils_suite_;
    if (served == nullptr) return static_cast<SPErr>(r.result = kSuiteNotFound);
    *suite = served;
    ++h->outstanding_[{suite_name, version}];
    return 0;
  }

  static SPErr ReleaseSuite(const char* name, int32_t version) {
    Host* h = Get("ReleaseSuite");
    if (h == nullptr) return kSuiteNotFound;
    const std::string suite_name = name ? name : "";
    CallRecord& r = h->Begin("ReleaseSuite", Str(name) + " " + std::to_string(version));
    r.suite = suite_name;
    r.version = version;
    // A refused release is the host's own trouble: the module gave the suite
    // back all the same, so it is no longer counted against the module.
    Fault f;
    const bool refused = h->Faulted("ReleaseSuite", r, &f);
    const auto it = h->outstanding_.find({suite_name, version});
    if (it == h->outstanding_.end() || it->second == 0) {
      return Refuse(*h, r, kSuiteNotFound, Str(name) + " " + std::to_string(version) + " is not held");
    }
    --it->second;
    return refused ? f.error : 0;
  }

  // ---- drawing suites -----------------------------------------------------------------

  template <typename Pixel>
  static PF_Err FillAny(const char* fn, PF_ProgPtr effect_ref, const Pixel* color, const PF_Rect* rect,
                        PF_LayerDef* world) {
    Host* h = Get(fn);
    if (h == nullptr) return PF_Err_INVALID_CALLBACK;
    CallRecord& r =
        h->Begin(fn, "color=" + ColorText(color) + " rect=" + RectText(rect) + " world=" + WorldText(world));
    if (color) Keep(r, *color);
    if (rect) r.rect = *rect;
    if (world) r.world = *world;
    Fault f;
    if (h->Faulted(fn, r, &f)) return f.error;
    if (ForeignRef(*h, effect_ref, fn)) return r.result = PF_Err_BAD_CALLBACK_PARAM;
    if (color == nullptr || world == nullptr)
      return Refuse(*h, r, PF_Err_BAD_CALLBACK_PARAM, "null colour or world");
    const PixelProblem problem = Draw(*color, rect, *world);
    if (!problem.empty()) return Refuse(*h, r, PF_Err_BAD_CALLBACK_PARAM, problem);
    return PF_Err_NONE;
  }
  static void Keep(CallRecord& r, const PF_Pixel& c) { r.color = c; }
  static void Keep(CallRecord& r, const PF_Pixel16& c) { r.color16 = c; }
  static PixelProblem Draw(const PF_Pixel& c, const PF_Rect* rect, PF_LayerDef& w) {
    return FillRect8(c, rect, w);
  }
  static PixelProblem Draw(const PF_Pixel16& c, const PF_Rect* rect, PF_LayerDef& w) {
    return FillRect16(c, rect, w);
  }

  static PF_Err Fill(PF_ProgPtr ref, const PF_Pixel* color, const PF_Rect* rect, PF_LayerDef* world) {
    return FillAny("fill", ref, color, rect, world);
  }
  static PF_Err Fill16(PF_ProgPtr ref, const PF_Pixel16* color, const PF_Rect* rect, PF_LayerDef* world) {
    return FillAny("fill16", ref, color, rect, world);
  }

  static PF_Err Copy(PF_ProgPtr effect_ref, PF_LayerDef* src, PF_LayerDef* dst, PF_Rect* src_rect,
                     PF_Rect* dst_rect) {
    Host* h = Get("copy");
    if (h == nullptr) return PF_Err_INVALID_CALLBACK;
    CallRecord& r = h->Begin("copy", "src=" + WorldText(src) + " dst=" + WorldText(dst) + " src_rect=" +
                                         RectText(src_rect) + " dst_rect=" + RectText(dst_rect));
    if (src) r.src_world = *src;
    if (dst) r.world = *dst;
    if (src_rect) r.src_rect = *src_rect;
    if (dst_rect) r.rect = *dst_rect;
    Fault f;
    if (h->Faulted("copy", r, &f)) return f.error;
    if (ForeignRef(*h, effect_ref, "copy")) return r.result = PF_Err_BAD_CALLBACK_PARAM;
    if (src == nullptr || dst == nullptr) return Refuse(*h, r, PF_Err_BAD_CALLBACK_PARAM, "null world");
    const PixelProblem problem = CopyRect(*src, *dst, src_rect, dst_rect);
    if (!problem.empty()) return Refuse(*h, r, PF_Err_BAD_CALLBACK_PARAM, problem);
    return PF_Err_NONE;
  }

  static PF_Err UpdateParamUI(PF_ProgPtr effect_ref, A_long index, const PF_ParamDef* def) {
    Host* h = Get("PF_UpdateParamUI");
    if (h == nullptr) return PF_Err_INVALID_CALLBACK;
    CallRecord& r = h->Begin("PF_UpdateParamUI", "index=" + std::to_string(index));
    r.index = index;
    if (def) r.def = *def;
    Fault f;
    if (h->Faulted("PF_UpdateParamUI", r, &f)) return f.error;
    if (ForeignRef(*h, effect_ref, "PF_UpdateParamUI")) return r.result = PF_Err_BAD_CALLBACK_PARAM;
    if (def == nullptr) return Refuse(*h, r, PF_Err_BAD_CALLBACK_PARAM, "null definition");
    if (h->current_instance_ == nullptr)
      return Refuse(*h, r, PF_Err_INVALID_CALLBACK, "outside an instance's command");
    if (index < 1 || index >= h->current_instance_->param_count()) {
      return Refuse(*h, r, PF_Err_INVALID_INDEX, "index " + std::to_string(index) + " out of range");
    }
    if (def->param_type != h->current_instance_->param(index).param_type) {
      return Refuse(*h, r, PF_Err_BAD_CALLBACK_PARAM, "definition of another parameter type");
    }
    h->ui_updates_.emplace_back(index, *def);
    return PF_Err_NONE;
  }

  static void Install(Host& h) {
    h.in_.inter.add_param = AddParam;
    h.in_.inter.register_ui = RegisterUI;
    h.in_.utils = &h.utils_;
    h.in_.pica_basicP = &h.basic_;
    PF_UtilCallbacks& u = h.utils_;
    u.host_new_handle = UtilNew;
    u.host_lock_handle = UtilLock;
    u.host_unlock_handle = UtilUnlock;
    u.host_dispose_handle = UtilDispose;
    u.host_get_handle_size = reinterpret_cast<PF_UnusedFn>(UtilSize);
    u.host_resize_handle = reinterpret_cast<PF_UnusedFn>(UtilResize);
    u.get_platform_data = GetPlatformData;
    u.ansi.sprintf = Sprintf;
    u.ansi.strcpy = Strcpy;
    h.basic_.AcquireSuite = AcquireSuite;
    h.basic_.ReleaseSuite = ReleaseSuite;
    h.fill_suite_.fill = Fill;
    h.fill_suite_.fill16 = Fill16;
    h.transform_suite_.copy = Copy;
    h.handle_suite_.host_new_handle = SuiteNew;
    h.handle_suite_.host_lock_handle = SuiteLock;
    h.handle_suite_.host_unlock_handle = SuiteUnlock;
    h.handle_suite_.host_dispose_handle = SuiteDispose;
    h.handle_suite_.host_get_handle_size = reinterpret_cast<PF_UnusedFn>(SuiteSize);
    h.handle_suite_.host_resize_handle = reinterpret_cast<PF_UnusedFn>(SuiteResize);
    h.param_utils_suite_.PF_UpdateParamUI = UpdateParamUI;
  }
};

void InstallCallbacks(Host& host) { HostCallbacks::Install(host); }

}  // namespace cinebar_simhost
