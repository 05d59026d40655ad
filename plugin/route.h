// Route<&Handler>: the row entry that calls a handler with typed arguments.
// A handler takes any of the call's records in order (in_data, out_data,
// params, output) and, last, the command's extra record as its own pointer
// type; the adapter hands each parameter the call's field of that type, so
// the one cast of `extra` per command lives here and nowhere else.
#pragma once

#include <type_traits>

#include "plugin/command_route.h"

namespace route_detail {

// The call's argument for a handler parameter of type Arg.
template <typename Arg>
Arg Unpack(const CommandCall& call) {
  if constexpr (std::is_same_v<Arg, PF_InData*>) {
    return call.in_data;
  } else if constexpr (std::is_same_v<Arg, PF_OutData*>) {
    return call.out_data;
  } else if constexpr (std::is_same_v<Arg, PF_ParamDef**>) {
    return call.params;
  } else if constexpr (std::is_same_v<Arg, PF_LayerDef*>) {
    return call.output;
  } else {
    static_assert(std::is_pointer_v<Arg>,
                  "a handler takes the call's records and the command's extra record");
    return static_cast<Arg>(call.extra);
  }
}

// A handler's result is not the host's answer: handlers fail by throwing.
template <auto Handler, typename Result, typename... Args>
void Call(Result (*)(Args...), const CommandCall& call) {
  static_cast<void>(Handler(Unpack<Args>(call)...));
}

}  // namespace route_detail

template <auto Handler>
void Route(const CommandCall& call) {
  route_detail::Call<Handler>(Handler, call);
}
