// One render call of the module with a host whose functions do nothing, for
// bench/callgrind.sh. Usage: cinebar_render_once CALLS [8|16] [image|transparent]
// Makes CALLS render calls (callgrind counts the instructions inside
// EntryPointFunc) and fails when any of them allocated on the heap.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "bench/alloc_counter.h"
#include "bench/noop_host.h"

int main(int argc, char** argv) {
  const int calls = argc > 1 ? std::atoi(argv[1]) : 1;
  const bool deep = argc > 2 && std::strcmp(argv[2], "16") == 0;
  const bool transparent = argc > 3 && std::strcmp(argv[3], "transparent") == 0;
  try {
    const cinebar_simhost::Module module(cinebar_bench::ModulePath());
    cinebar_bench::NoOpHost host(module.entry(), 1920, 1080, deep);
    host.param(PARAM_RENDER).u.pd.value = transparent ? RENDER_ON_TRANSPARENT : RENDER_ON_IMAGE;
    cinebar_bench::AllocationCount::Start();
    for (int i = 0; i < calls; ++i) {
      if (host.Render() != PF_Err_NONE) {
        std::fprintf(stderr, "render call %d failed\n", i + 1);
        return 1;
      }
    }
    const auto allocations = cinebar_bench::AllocationCount::Stop();
    std::printf("%d render calls, %llu heap allocations\n", calls,
                static_cast<unsigned long long>(allocations));
    return allocations == 0 ? 0 : 1;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
  }
}
