// A command as the dispatcher sees it: the call's arguments, the records its
// path needs, and a routing table's row.
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

// Every command listed once, in number order from 0, and a handler on every
// row that needs a record (none on the others).
constexpr bool EachCommandOnce(std::span<const CommandRoute> routes) {
  for (std::size_t at = 0; at < routes.size(); ++at) {
    const CommandRoute& route = routes[at];
    if (route.cmd != static_cast<PF_Cmd>(at)) return false;
    if (route.handler.present == (route.needs == Records::kNothing)) return false;
  }
  return true;
}
