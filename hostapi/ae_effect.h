// The After Effects effect API records, constants and function tables as the
// host lays them out on 64-bit Windows. Declared here from the published
// layout facts; layout_check.cpp proves every field against the layout table.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {

typedef int32_t A_long;
typedef uint32_t A_u_long;
typedef int16_t A_short;
typedef uint16_t A_u_short;
typedef char A_char;
typedef uint8_t A_u_char;
typedef uint64_t A_HandleSize;
typedef float PF_FpShort;
typedef double PF_FpLong;
typedef uint8_t PF_Boolean;

typedef A_long PF_Err;
typedef A_long PF_Cmd;
typedef A_long PF_Fixed;
typedef A_long A_AppID;
typedef A_long PF_Quality;
typedef A_long PF_Field;
typedef A_long PF_InFlags;
typedef A_long PF_OutFlags;
typedef A_long PF_OutFlags2;
typedef A_long PF_ParamType;
typedef A_long PF_ParamFlags;
typedef A_long PF_ParamUIFlags;
typedef A_long PF_ChangeFlags;
typedef A_long PF_ParamValue;
typedef A_long PF_ParamIndex;
typedef A_long PF_WorldFlags;
typedef A_short PF_Precision;
typedef A_short PF_ValueDisplayFlags;
typedef A_long PF_FSliderFlags;
typedef A_long PF_EventType;
typedef A_long PF_EffectArea;
typedef A_long PF_EventInFlags;
typedef A_long PF_EventOutFlags;
typedef A_long PF_CustomEventFlags;
typedef A_long PF_UIAlignment;

typedef struct PF_ProgressInfo* PF_ProgPtr;  // opaque to the effect
typedef void** PF_Handle;                    // pointer to a master pointer
typedef struct PF_ContextOpaque* PF_ContextH;

typedef struct PF_Pixel {
  A_u_char alpha, red, green, blue;
} PF_Pixel;
typedef PF_Pixel* PF_PixelPtr;

typedef struct PF_Pixel16 {
  A_u_short alpha, red, green, blue;
} PF_Pixel16;

typedef struct PF_RationalScale {
  A_long num;
  A_u_long den;
} PF_RationalScale;

typedef struct PF_Rect {
  A_long left, top, right, bottom;
} PF_Rect;

typedef struct PF_Point {
  A_long h, v;
} PF_Point;

typedef struct PF_SpecVersion {
  A_short major, minor;
} PF_SpecVersion;

typedef struct PF_SoundFormatInfo {
  PF_FpLong rate;
  A_long num_channels;
  A_short format;
  A_short sample_size;
} PF_SoundFormatInfo;

typedef struct PF_SoundWorld {
  PF_SoundFormatInfo fi;
  A_long num_samples;
  void* dataP;
} PF_SoundWorld;

// ---- worlds and parameters -------------------------------------------------

typedef struct PF_LayerDef {
  void* reserved0;
  void* reserved1;
  PF_WorldFlags world_flags;
  PF_PixelPtr data;
  A_long rowbytes;
  A_long width;
  A_long height;
  PF_Rect extent_hint;
  void* platform_ref;
  A_long reserved_long1;
  void* reserved_long4;
  PF_RationalScale pix_aspect_ratio;
  void* reserved_long2;
  A_long origin_x;
  A_long origin_y;
  A_long reserved_long3;
  A_long dephault;
} PF_LayerDef;
typedef PF_LayerDef PF_EffectWorld;

typedef union PF_PopupDef_u {
  const A_char* namesptr;
} PF_PopupDef_u;

typedef struct PF_PopupDef {
  PF_ParamValue value;
  A_short num_choices;
  A_short dephault;
  PF_PopupDef_u u;
} PF_PopupDef;

typedef struct PF_FloatSliderDef {
  PF_FpLong value;
  PF_FpLong phase;
  A_char value_desc[32];
  PF_FpShort valid_min;
  PF_FpShort valid_max;
  PF_FpShort slider_min;
  PF_FpShort slider_max;
  PF_FpShort dephault;
  PF_Precision precision;
  PF_ValueDisplayFlags display_flags;
  PF_FSliderFlags fs_flags;
  PF_FpShort curve_tolerance;
  PF_Boolean useExponent;
  PF_FpShort exponent;
} PF_FloatSliderDef;

typedef struct PF_ColorDef {
  PF_Pixel value;
  PF_Pixel dephault;
} PF_ColorDef;

// Parameter kinds this effect never defines: only their sizes matter here.
typedef struct PF_SliderDef {
  A_long opaque[22];
} PF_SliderDef;
typedef struct PF_FixedSliderDef {
  A_long opaque[23];
} PF_FixedSliderDef;
typedef struct PF_AngleDef {
  A_long opaque[4];
} PF_AngleDef;
typedef struct PF_CheckBoxDef {
  void* opaque[2];
} PF_CheckBoxDef;
typedef struct PF_PointDef {
  A_long opaque[5];
} PF_PointDef;
typedef struct PF_ArbitraryDef {
  void* opaque[4];
} PF_ArbitraryDef;
typedef struct PF_PathDef {
  A_long opaque[3];
} PF_PathDef;
typedef struct PF_ButtonDef {
  void* opaque[2];
} PF_ButtonDef;
typedef struct PF_Point3DDef {
  PF_FpLong opaque[8];
} PF_Point3DDef;

typedef union PF_ParamDefUnion {
  PF_LayerDef ld;
  PF_SliderDef sd;
  PF_FixedSliderDef fd;
  PF_AngleDef ad;
  PF_CheckBoxDef bd;
  PF_ColorDef cd;
  PF_PointDef td;
  PF_PopupDef pd;
  PF_FloatSliderDef fs_d;
  PF_ArbitraryDef arb_d;
  PF_PathDef path_d;
  PF_ButtonDef button_d;
  PF_Point3DDef point3d_d;
} PF_ParamDefUnion;

typedef union PF_ParamDef_uu {
  A_long id;
  PF_ChangeFlags change_flags;
} PF_ParamDef_uu;

typedef struct PF_ParamDef {
  PF_ParamDef_uu uu;
  PF_ParamUIFlags ui_flags;
  A_short ui_width;
  A_short ui_height;
  PF_ParamType param_type;
  A_char name[32];
  PF_ParamFlags flags;
  A_long unused;
  PF_ParamDefUnion u;
} PF_ParamDef;
typedef PF_ParamDef** PF_ParamList;

// ---- custom UI and events --------------------------------------------------

typedef struct PF_CustomUIInfo {
  A_long reserved;
  PF_CustomEventFlags events;
  A_long comp_ui_width;
  A_long comp_ui_height;
  PF_UIAlignment comp_ui_alignment;
  A_long layer_ui_width;
  A_long layer_ui_height;
  PF_UIAlignment layer_ui_alignment;
  A_long preview_ui_width;
  A_long preview_ui_height;
  PF_UIAlignment preview_ui_alignment;
} PF_CustomUIInfo;

typedef struct PF_EffectWindowInfo {
  PF_ParamIndex index;
  PF_EffectArea area;
  PF_Rect current_frame;
  PF_Rect param_title_frame;
  A_long horiz_offset;
} PF_EffectWindowInfo;

// The per-event payload and the event callbacks belong to the branding
// library; the effect only passes them through.
typedef union PF_EventUnion {
  void* opaque[8];
} PF_EventUnion;
typedef struct PF_EventCallbacks {
  void* opaque[9];
} PF_EventCallbacks;

typedef struct PF_EventExtra {
  PF_ContextH contextH;
  PF_EventType e_type;
  PF_EventUnion u;
  PF_EffectWindowInfo effect_win;
  PF_EventCallbacks cbs;
  PF_EventInFlags evt_in_flags;
  PF_EventOutFlags evt_out_flags;
} PF_EventExtra;

typedef struct PF_UserChangedParamExtra {
  PF_ParamIndex param_index;
} PF_UserChangedParamExtra;

// ---- callback tables -------------------------------------------------------

typedef void (*PF_UnusedFn)(void);  // slots the effect never calls

typedef PF_Err (*PF_AddParamFn)(PF_ProgPtr effect_ref, A_long index, PF_ParamDef* def);
typedef PF_Err (*PF_RegisterUIFn)(PF_ProgPtr effect_ref, PF_CustomUIInfo* info);

typedef struct PF_InteractCallbacks {
  PF_UnusedFn checkout_param;
  PF_UnusedFn checkin_param;
  PF_AddParamFn add_param;
  PF_UnusedFn abort;
  PF_UnusedFn progress;
  PF_RegisterUIFn register_ui;
  PF_UnusedFn checkout_layer_audio;
  PF_UnusedFn checkin_layer_audio;
  PF_UnusedFn get_audio_data;
  void* reserved_str[3];
  void* reserved[10];
} PF_InteractCallbacks;

typedef int (*PF_SprintfFn)(A_char* buffer, const A_char* format, ...);
typedef A_char* (*PF_StrcpyFn)(A_char* dest, const A_char* src);

typedef struct PF_ANSICallbacks {
  PF_UnusedFn atan, atan2, ceil, cos, exp, fabs, floor, fmod, hypot, log, log10, pow, sin, sqrt, tan;
  PF_SprintfFn sprintf;
  PF_StrcpyFn strcpy;
  PF_UnusedFn asin, acos;
  A_long unused_longA[1];
} PF_ANSICallbacks;

typedef struct PF_ColorCallbacks {
  PF_UnusedFn opaque[8];
} PF_ColorCallbacks;

typedef PF_Handle (*PF_NewHandleFn)(A_HandleSize size);
typedef void* (*PF_LockHandleFn)(PF_Handle h);
typedef void (*PF_UnlockHandleFn)(PF_Handle h);
typedef void (*PF_DisposeHandleFn)(PF_Handle h);
typedef PF_Err (*PF_GetPlatformDataFn)(PF_ProgPtr effect_ref, A_long which, void* data);

typedef struct PF_UtilCallbacks {
  PF_UnusedFn begin_sampling;
  PF_UnusedFn subpixel_sample;
  PF_UnusedFn area_sample;
  void* get_batch_func_is_deprecated;
  PF_UnusedFn end_sampling;
  PF_UnusedFn composite_rect;
  PF_UnusedFn blend;
  PF_UnusedFn convolve;
  PF_UnusedFn copy;
  PF_UnusedFn fill;
  PF_UnusedFn gaussian_kernel;
  PF_UnusedFn iterate;
  PF_UnusedFn premultiply;
  PF_UnusedFn premultiply_color;
  PF_UnusedFn new_world;
  PF_UnusedFn dispose_world;
  PF_UnusedFn iterate_origin;
  PF_UnusedFn iterate_lut;
  PF_UnusedFn transfer_rect;
  PF_UnusedFn transform_world;
  PF_NewHandleFn host_new_handle;
  PF_LockHandleFn host_lock_handle;
  PF_UnlockHandleFn host_unlock_handle;
  PF_DisposeHandleFn host_dispose_handle;
  PF_UnusedFn get_callback_addr;
  PF_UnusedFn app;
  PF_ANSICallbacks ansi;
  PF_ColorCallbacks colorCB;
  PF_GetPlatformDataFn get_platform_data;
  PF_UnusedFn host_get_handle_size;
  PF_UnusedFn iterate_origin_non_clip_src;
  PF_UnusedFn iterate_generic;
  PF_UnusedFn host_resize_handle;
  PF_UnusedFn subpixel_sample16;
  PF_UnusedFn area_sample16;
  PF_UnusedFn fill16;
  PF_UnusedFn premultiply_color16;
  PF_UnusedFn iterate16;
  PF_UnusedFn iterate_origin16;
  PF_UnusedFn iterate_origin_non_clip_src16;
  PF_UnusedFn get_pixel_data8;
  PF_UnusedFn get_pixel_data16;
  A_long reserved[1];
} PF_UtilCallbacks;

// ---- suites ----------------------------------------------------------------

typedef int32_t SPErr;

typedef struct SPBasicSuite {
  SPErr (*AcquireSuite)(const char* name, int32_t version, const void** suite);
  SPErr (*ReleaseSuite)(const char* name, int32_t version);
  PF_UnusedFn IsEqual;
  PF_UnusedFn AllocateBlock;
  PF_UnusedFn FreeBlock;
  PF_UnusedFn ReallocateBlock;
  PF_UnusedFn Undefined;
} SPBasicSuite;

typedef struct PF_FillMatteSuite2 {
  PF_Err (*fill)(PF_ProgPtr effect_ref, const PF_Pixel* color, const PF_Rect* rect, PF_LayerDef* world);
  PF_Err (*fill16)(PF_ProgPtr effect_ref, const PF_Pixel16* color, const PF_Rect* rect, PF_LayerDef* world);
  PF_UnusedFn fill_float;
  PF_UnusedFn premultiply;
  PF_UnusedFn premultiply_color;
  PF_UnusedFn premultiply_color16;
  PF_UnusedFn premultiply_color_float;
} PF_FillMatteSuite2;

typedef struct PF_WorldTransformSuite1 {
  PF_UnusedFn composite_rect;
  PF_UnusedFn blend;
  PF_UnusedFn convolve;
  PF_Err (*copy)(PF_ProgPtr effect_ref, PF_LayerDef* src, PF_LayerDef* dst, PF_Rect* src_rect,
                 PF_Rect* dst_rect);
  PF_UnusedFn copy_hq;
  PF_UnusedFn transfer_rect;
  PF_UnusedFn transform_world;
} PF_WorldTransformSuite1;

typedef struct PF_HandleSuite1 {
  PF_NewHandleFn host_new_handle;
  PF_LockHandleFn host_lock_handle;
  PF_UnlockHandleFn host_unlock_handle;
  PF_DisposeHandleFn host_dispose_handle;
  PF_UnusedFn host_get_handle_size;
  PF_UnusedFn host_resize_handle;
} PF_HandleSuite1;

typedef struct PF_ParamUtilsSuite3 {
  PF_Err (*PF_UpdateParamUI)(PF_ProgPtr effect_ref, A_long param_index, const PF_ParamDef* def);
  PF_UnusedFn PF_GetCurrentState;
  PF_UnusedFn PF_AreStatesIdentical;
  PF_UnusedFn PF_IsIdenticalCheckout;
  PF_UnusedFn PF_FindKeyframeTime;
  PF_UnusedFn PF_GetKeyframeCount;
  PF_UnusedFn PF_CheckoutKeyframe;
  PF_UnusedFn PF_CheckinKeyframe;
  PF_UnusedFn PF_KeyIndexToTime;
} PF_ParamUtilsSuite3;

// ---- the per-call records --------------------------------------------------

typedef struct PF_InData {
  PF_InteractCallbacks inter;
  PF_UtilCallbacks* utils;
  PF_ProgPtr effect_ref;
  PF_Quality quality;
  PF_SpecVersion version;
  A_long serial_num;
  A_AppID appl_id;
  A_long num_params;
  A_long reserved;
  A_long what_cpu;
  A_long what_fpu;
  A_long current_time;
  A_long time_step;
  A_long total_time;
  A_long local_time_step;
  A_u_long time_scale;
  PF_Field field;
  PF_Fixed shutter_angle;
  A_long width;
  A_long height;
  PF_Rect extent_hint;
  A_long output_origin_x;
  A_long output_origin_y;
  PF_RationalScale downsample_x;
  PF_RationalScale downsample_y;
  PF_RationalScale pixel_aspect_ratio;
  PF_InFlags in_flags;
  PF_Handle global_data;
  PF_Handle sequence_data;
  PF_Handle frame_data;
  A_long start_sampL;
  A_long dur_sampL;
  A_long total_sampL;
  PF_SoundWorld src_snd;
  SPBasicSuite* pica_basicP;
  A_long pre_effect_source_origin_x;
  A_long pre_effect_source_origin_y;
  PF_Fixed shutter_phase;
} PF_InData;

typedef struct PF_OutData {
  A_u_long my_version;
  A_char name[32];
  PF_Handle global_data;
  A_long num_params;
  PF_Handle sequence_data;
  A_long flat_sdata_size;
  PF_Handle frame_data;
  A_long width;
  A_long height;
  PF_Point origin;
  PF_OutFlags out_flags;
  A_char return_msg[256];
  A_long start_sampL;
  A_long dur_sampL;
  PF_SoundWorld dest_snd;
  PF_OutFlags2 out_flags2;
} PF_OutData;

typedef PF_Err (*PF_EntryPointFn)(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                                  PF_LayerDef* output, void* extra);

}  // extern "C"
