// Command numbers, error codes and flag values of the effect API.
#pragma once

#include "hostapi/ae_effect.h"

enum : PF_Cmd {
  PF_Cmd_ABOUT = 0,
  PF_Cmd_GLOBAL_SETUP = 1,
  PF_Cmd_UNUSED_0 = 2,
  PF_Cmd_GLOBAL_SETDOWN = 3,
  PF_Cmd_PARAMS_SETUP = 4,
  PF_Cmd_SEQUENCE_SETUP = 5,
  PF_Cmd_SEQUENCE_RESETUP = 6,
  PF_Cmd_SEQUENCE_FLATTEN = 7,
  PF_Cmd_SEQUENCE_SETDOWN = 8,
  PF_Cmd_DO_DIALOG = 9,
  PF_Cmd_FRAME_SETUP = 10,
  PF_Cmd_RENDER = 11,
  PF_Cmd_FRAME_SETDOWN = 12,
  PF_Cmd_USER_CHANGED_PARAM = 13,
  PF_Cmd_UPDATE_PARAMS_UI = 14,
  PF_Cmd_EVENT = 15,
  PF_Cmd_GET_EXTERNAL_DEPENDENCIES = 16,
  PF_Cmd_COMPLETELY_GENERAL = 17,
  PF_Cmd_QUERY_DYNAMIC_FLAGS = 18,
};

enum : PF_Err {
  PF_Err_NONE = 0,
  PF_Err_OUT_OF_MEMORY = 4,
  PF_Err_INTERNAL_STRUCT_DAMAGED = 512,
  PF_Err_INVALID_INDEX = 513,
  PF_Err_UNRECOGNIZED_PARAM_TYPE = 514,
  PF_Err_INVALID_CALLBACK = 515,
  PF_Err_BAD_CALLBACK_PARAM = 516,
  PF_Interrupt_CANCEL = 517,
};

enum : PF_ParamType {
  PF_Param_LAYER = 0,
  PF_Param_COLOR = 5,
  PF_Param_POPUP = 7,
  PF_Param_NO_DATA = 9,
  PF_Param_FLOAT_SLIDER = 10,
};

enum : PF_ParamFlags {
  PF_ParamFlag_CANNOT_TIME_VARY = 0x2,
  PF_ParamFlag_START_COLLAPSED = 0x20,
  PF_ParamFlag_SUPERVISE = 0x40,
  PF_ParamFlag_SKIP_REVEAL_WHEN_UNHIDDEN = 0x200,
};

enum : PF_ParamUIFlags {
  PF_PUI_TOPIC = 0x1,
  PF_PUI_CONTROL = 0x2,
  PF_PUI_STD_CONTROL_ONLY = 0x4,
  PF_PUI_DISABLED = 0x20,
  PF_PUI_DONT_ERASE_CONTROL = 0x80,
  PF_PUI_INVISIBLE = 0x200,
};

enum : A_long {
  PF_ChangeFlag_CHANGED_VALUE = 1,
  PF_WorldFlag_DEEP = 1,
  PF_CustomEFlag_EFFECT = 4,
  PF_PlatData_MAIN_WND = 0,
  PF_PlatData_RES_DLLINSTANCE = 4,
  PF_Stage_RELEASE = 3,
};

enum : PF_EventType {
  PF_Event_NEW_CONTEXT = 0,
  PF_Event_ACTIVATE = 1,
  PF_Event_DO_CLICK = 2,
  PF_Event_DRAG = 3,
  PF_Event_DRAW = 4,
  PF_Event_DEACTIVATE = 5,
  PF_Event_CLOSE_CONTEXT = 6,
  PF_Event_IDLE = 7,
  PF_Event_ADJUST_CURSOR = 9,
  PF_Event_KEYDOWN = 10,
  PF_Event_MOUSE_EXITED = 11,
};

enum : PF_EffectArea {
  PF_EA_NONE = 0,
  PF_EA_PARAM_TITLE = 1,
  PF_EA_CONTROL = 2,
};

enum : PF_OutFlags {
  PF_OutFlag_KEEP_RESOURCE_OPEN = 0x1,
  PF_OutFlag_SEQUENCE_DATA_NEEDS_FLATTENING = 0x10,
  PF_OutFlag_DISPLAY_ERROR_MESSAGE = 0x100,
  PF_OutFlag_PIX_INDEPENDENT = 0x400,
  PF_OutFlag_CUSTOM_UI = 0x8000,
  PF_OutFlag_REFRESH_UI = 0x20000,
  PF_OutFlag_DEEP_COLOR_AWARE = 0x2000000,
  PF_OutFlag_SEND_UPDATE_PARAMS_UI = 0x4000000,
};

// Four-character application codes, first character in the high byte.
enum : A_AppID {
  PF_APPL_ID_AFTER_EFFECTS = 0x46585443,  // 'FXTC'
  PF_APPL_ID_PREMIERE = 0x50724D72,       // 'PrMr'
};

// The host's version packing: version, subversion, bug-fix, stage, build.
constexpr A_u_long PF_VERSION(A_u_long vers, A_u_long subvers, A_u_long bugvers, A_u_long stage,
                              A_u_long build) {
  return ((vers & 0x7u) << 19) | ((subvers & 0xFu) << 15) | ((bugvers & 0xFu) << 11) | ((stage & 0x3u) << 9) |
         (build & 0x1FFu);
}
