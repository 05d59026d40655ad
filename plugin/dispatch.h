// Command dispatch: the one place where commands are routed and where every
// failure a handler throws becomes the host's result code and message.
#pragma once

#include <cstddef>
#include <span>

#include "hostapi/ae_effect.h"

// The arguments of one call, as the host passed them; each handler reads what
// it needs. Handlers report failure only by throwing (a bare int host error
// or a DAE exception).
struct CommandCall {
  PF_Cmd cmd;
  PF_InData* in_data;
  PF_OutData* out_data;
  PF_ParamDef** params;
  PF_LayerDef* output;
  void* extra;
};

// The host records a command's path works on. A command that needs nothing
// has no handler and answers "no error" whatever it is given; one whose every
// path goes through a record the host left null is refused before anything
// runs. A handler that touches out_data on some paths only checks it there.
enum class Records { kNothing, kInData, kInAndOutData };

using HandlerFn = void (*)(const CommandCall&);

// A row's handler, or none. Whether there is one is kept beside the pointer
// for the build's table check: with null-pointer checks kept, as the
// sanitizers keep them, GCC cannot compare the address of a function
// template's instance with null at compile time.
struct CommandHandler {
  constexpr CommandHandler() = default;
  constexpr CommandHandler(std::nullptr_t) {}
  constexpr CommandHandler(HandlerFn fn) : call(fn), present(true) {}
  HandlerFn call = nullptr;
  bool present = false;
};

// One row per command, indexed by the command's number.
struct CommandRoute {
  PF_Cmd cmd;
  Records needs;
  CommandHandler handler;  // none exactly when nothing is needed
};

// The commands numbered 0 to 18; every higher number is routed to nothing.
inline constexpr std::size_t kCommandCount = 19;

// Every command listed once, in number order, and a handler on every row that
// needs a record (none on the others).
constexpr bool EachCommandOnce(std::span<const CommandRoute> routes) {
  if (routes.size() != kCommandCount) return false;
  for (std::size_t at = 0; at < routes.size(); ++at) {
    const CommandRoute& route = routes[at];
    if (route.cmd != static_cast<PF_Cmd>(at)) return false;
    if (route.handler.present == (route.needs == Records::kNothing)) return false;
  }
  return true;
}

// The effect's own routing, used by EntryPointFunc.
extern const std::span<const CommandRoute, kCommandCount> kCinebarRoutes;

PF_Err DispatchCommand(std::span<const CommandRoute, kCommandCount> routes, PF_Cmd cmd, PF_InData* in_data,
                       PF_OutData* out_data, PF_ParamDef* params[], PF_LayerDef* output, void* extra);
