// Parameter descriptors: short-lived objects on the stack of parameter setup
// that fill in one PF_ParamDef and register it with the host.
#pragma once

#include "hostapi/ae_constants.h"
#include "hostapi/ae_effect.h"

namespace DAE {

class Param_Parameter {
 public:
  Param_Parameter(PF_InData* in_data, PF_ParamType type, const char* name, A_long disk_id);
  virtual ~Param_Parameter() = default;
  Param_Parameter(const Param_Parameter&) = delete;
  Param_Parameter& operator=(const Param_Parameter&) = delete;

  // Appends the definition to the host's parameter list; a host refusal is
  // thrown as its bare error code.
  virtual void add();

  // Flags beyond the ones every control starts with.
  void AddFlags(PF_ParamFlags flags, PF_ParamUIFlags ui_flags) {
    definition_.flags |= flags;
    definition_.ui_flags |= ui_flags;
  }

 protected:
  PF_InData* in_data_;  // not owned
  PF_ParamDef definition_;
};

class Param_Popup_Menu : public Param_Parameter {
 public:
  static constexpr int kItemBufferSize = 1024;

  Param_Popup_Menu(PF_InData* in_data, const char* name, A_long disk_id);

  // Items separated by '|'. The text is copied into the descriptor's own
  // buffer, which the definition points at; it must fit with its terminator.
  void SetItems(const char* items);
  void SetDefault(A_short item) { definition_.u.pd.dephault = item; }

 private:
  char items_[kItemBufferSize];
};

class Param_Float_Slider : public Param_Parameter {
 public:
  Param_Float_Slider(PF_InData* in_data, const char* name, A_long disk_id);

  void SetValidRange(PF_FpShort min, PF_FpShort max);
  void SetSliderRange(PF_FpShort min, PF_FpShort max);
  void SetDefault(PF_FpShort value);
  void SetPrecision(A_short digits) { definition_.u.fs_d.precision = digits; }
};

class Param_Color : public Param_Parameter {
 public:
  Param_Color(PF_InData* in_data, const char* name, A_long disk_id);

  void SetDefault(PF_Pixel pixel);
};

}  // namespace DAE
