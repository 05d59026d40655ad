// The effect's routing table: one row per command, in number order, saying
// which records its path needs and which handler answers it. The number of
// commands is the table's length; every higher number is routed to nothing.
#pragma once

#include <array>
#include <cstddef>

#include "branding/branding.h"
#include "effect/params.h"
#include "effect/render.h"
#include "effect/sequence.h"
#include "hostapi/ae_constants.h"
#include "plugin/command_route.h"
#include "plugin/route.h"
#include "plugin/shell_handlers.h"

inline constexpr auto kCinebarRoutes = std::to_array<CommandRoute>({
    {PF_Cmd_ABOUT, Records::kInData, Route<ShowAbout>},
    {PF_Cmd_GLOBAL_SETUP, Records::kInData, Route<SetupGlobals>},
    {PF_Cmd_UNUSED_0, Records::kNothing, nullptr},
    {PF_Cmd_GLOBAL_SETDOWN, Records::kInAndOutData, Route<UnloadBranding>},
    {PF_Cmd_PARAMS_SETUP, Records::kInAndOutData, Route<SetupParameters>},
    {PF_Cmd_SEQUENCE_SETUP, Records::kInAndOutData, Route<SetupSequence>},
    {PF_Cmd_SEQUENCE_RESETUP, Records::kInAndOutData, Route<ResetupSequence>},
    {PF_Cmd_SEQUENCE_FLATTEN, Records::kInData, Route<Acknowledge>},
    {PF_Cmd_SEQUENCE_SETDOWN, Records::kInData, Route<SetdownSequence>},
    {PF_Cmd_DO_DIALOG, Records::kNothing, nullptr},
    {PF_Cmd_FRAME_SETUP, Records::kInData, Route<Acknowledge>},
    {PF_Cmd_RENDER, Records::kInData, Route<RenderBars>},
    {PF_Cmd_FRAME_SETDOWN, Records::kNothing, nullptr},
    {PF_Cmd_USER_CHANGED_PARAM, Records::kInData, Route<HandleUserChangedParam>},
    {PF_Cmd_UPDATE_PARAMS_UI, Records::kInData, Route<UpdateParamsUI>},
    {PF_Cmd_EVENT, Records::kInData, Route<HandleEvent>},
    {PF_Cmd_GET_EXTERNAL_DEPENDENCIES, Records::kNothing, nullptr},
    {PF_Cmd_COMPLETELY_GENERAL, Records::kNothing, nullptr},
    {PF_Cmd_QUERY_DYNAMIC_FLAGS, Records::kNothing, nullptr},
});
static_assert(EachCommandOnce(kCinebarRoutes),
              "every command listed once, in number order, each with its handler");

inline constexpr std::size_t kCommandCount = kCinebarRoutes.size();
