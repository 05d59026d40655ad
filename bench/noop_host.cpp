#include "bench/noop_host.h"

#include <cstdlib>
#include <iterator>

#include "effect/params.h"
#include "host/host_functions.h"

namespace cinebar_bench {
namespace {

// ---- functions that do nothing ----------------------------------------------
PF_Err AddParam(PF_ProgPtr, A_long, PF_ParamDef*) { return PF_Err_NONE; }
PF_Err RegisterUi(PF_ProgPtr, PF_CustomUIInfo*) { return PF_Err_NONE; }
int Sprintf(A_char*, const A_char*, ...) { return 0; }
A_char* Strcpy(A_char* dest, const A_char*) { return dest; }
PF_Err GetPlatformData(PF_ProgPtr, A_long, void*) { return PF_Err_NONE; }
PF_Handle NewHandle(A_HandleSize) { return nullptr; }
void* LockHandle(PF_Handle) { return nullptr; }
void UnlockHandle(PF_Handle) {}
void DisposeHandle(PF_Handle) {}
PF_Err Fill(PF_ProgPtr, const PF_Pixel*, const PF_Rect*, PF_LayerDef*) { return PF_Err_NONE; }
PF_Err Fill16(PF_ProgPtr, const PF_Pixel16*, const PF_Rect*, PF_LayerDef*) { return PF_Err_NONE; }
PF_Err Copy(PF_ProgPtr, PF_LayerDef*, PF_LayerDef*, PF_Rect*, PF_Rect*) { return PF_Err_NONE; }
PF_Err UpdateParamUi(PF_ProgPtr, A_long, const PF_ParamDef*) { return PF_Err_NONE; }

using cinebar_simhost::kSuite;
const PF_FillMatteSuite2 kFillSuite{Fill, Fill16, nullptr, nullptr, nullptr, nullptr, nullptr};
const PF_WorldTransformSuite1 kTransformSuite{nullptr, nullptr, nullptr, Copy, nullptr, nullptr, nullptr};
const PF_HandleSuite1 kHandleSuite{NewHandle, LockHandle, UnlockHandle, DisposeHandle, nullptr, nullptr};
const PF_ParamUtilsSuite3 kParamUtilsSuite{UpdateParamUi, nullptr, nullptr, nullptr, nullptr,
                                           nullptr,       nullptr, nullptr, nullptr};

// The first position at which the names of the host's suites all differ: the
// broker tells them apart by that one character, as cheaply as a host can.
constexpr std::size_t kTellingChar = [] {
  const auto differ_at = [](const char* a, const char* b, std::size_t at) {
    for (std::size_t i = 0; i <= at; ++i) {
      if (a[i] == '\0' || b[i] == '\0') return false;
    }
    return a[at] != b[at];
  };
  for (std::size_t at = 0;; ++at) {
    bool all = true;
    for (std::size_t i = 0; i < std::size(cinebar_simhost::kSuites); ++i) {
      for (std::size_t j = i + 1; j < std::size(cinebar_simhost::kSuites); ++j)
        all = all && differ_at(cinebar_simhost::kSuites[i].name, cinebar_simhost::kSuites[j].name, at);
    }
    if (all) return at;
  }
}();
template <typename Table>
constexpr char Telling() {
  return kSuite<Table>.name[kTellingChar];
}

SPErr AcquireSuite(const char* name, int32_t, const void** suite) {
  switch (name[kTellingChar]) {
    case Telling<PF_FillMatteSuite2>():
      *suite = &kFillSuite;
      break;
    case Telling<PF_WorldTransformSuite1>():
      *suite = &kTransformSuite;
      break;
    case Telling<PF_HandleSuite1>():
      *suite = &kHandleSuite;
      break;
    default:
      *suite = &kParamUtilsSuite;
  }
  return 0;
}
SPErr ReleaseSuite(const char*, int32_t) { return 0; }

}  // namespace

NoOpHost::NoOpHost(PF_EntryPointFn entry, A_long width, A_long height, bool deep) : entry_(entry) {
  utils_.ansi.sprintf = Sprintf;
  utils_.ansi.strcpy = Strcpy;
  utils_.get_platform_data = GetPlatformData;
  utils_.host_new_handle = NewHandle;
  utils_.host_lock_handle = LockHandle;
  utils_.host_unlock_handle = UnlockHandle;
  basic_.AcquireSuite = AcquireSuite;
  basic_.ReleaseSuite = ReleaseSuite;
  in_.inter.add_param = AddParam;
  in_.inter.register_ui = RegisterUi;
  in_.utils = &utils_;
  in_.pica_basicP = &basic_;
  in_.effect_ref = reinterpret_cast<PF_ProgPtr>(&effect_tag_);
  in_.appl_id = PF_APPL_ID_AFTER_EFFECTS;
  in_.version = PF_SpecVersion{13, 0};
  in_.downsample_x = in_.downsample_y = in_.pixel_aspect_ratio = PF_RationalScale{1, 1};
  in_.width = width;
  in_.height = height;
  in_.extent_hint = PF_Rect{0, 0, width, height};
  in_.num_params = kParamCount;
  in_.sequence_data = reinterpret_cast<PF_Handle>(&sequence_master_);

  // A world record without pixels: the fills and the copy never look at them.
  output_.world_flags = deep ? PF_WorldFlag_DEEP : 0;
  output_.width = width;
  output_.height = height;
  output_.rowbytes = width * (deep ? 8 : 4);
  output_.extent_hint = in_.extent_hint;
  output_.pix_aspect_ratio = PF_RationalScale{1, 1};

  params_[PARAM_INPUT].param_type = PF_Param_LAYER;
  params_[PARAM_INPUT].u.ld = output_;
  params_[PARAM_HEADER].param_type = PF_Param_NO_DATA;
  params_[PARAM_RENDER].param_type = PF_Param_POPUP;
  params_[PARAM_RENDER].u.pd.value = RENDER_ON_IMAGE;
  params_[PARAM_PRESET].param_type = PF_Param_POPUP;
  params_[PARAM_PRESET].u.pd.value = 5;  // 2.35:1
  params_[PARAM_ASPECT_RATIO].param_type = PF_Param_FLOAT_SLIDER;
  params_[PARAM_ASPECT_RATIO].u.fs_d.value = 2.35;
  params_[PARAM_COLOR].param_type = PF_Param_COLOR;
  params_[PARAM_COLOR].u.cd.value = PF_Pixel{255, 0, 0, 0};
  for (int i = 0; i < kParamCount; ++i) param_list_[i] = &params_[i];
}

PF_Err NoOpHost::Call(PF_Cmd cmd, PF_LayerDef* output, void* extra) {
  return entry_(cmd, &in_, &out_, param_list_, output, extra);
}

PF_Err NoOpHost::Render() { return Call(PF_Cmd_RENDER, &output_, nullptr); }

PF_Err NoOpHost::UserChanged(A_long index) {
  PF_UserChangedParamExtra extra{index};
  return Call(PF_Cmd_USER_CHANGED_PARAM, nullptr, &extra);
}

PF_Err NoOpHost::ParamsSetup() {
  out_ = PF_OutData{};
  return Call(PF_Cmd_PARAMS_SETUP, nullptr, nullptr);
}

std::string ModulePath() {
  const char* env = std::getenv("CINEBAR_MODULE");
  return env != nullptr && *env != '\0' ? env : CINEBAR_MODULE_PATH;
}

}  // namespace cinebar_bench
