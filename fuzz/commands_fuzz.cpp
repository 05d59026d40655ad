// Random command sequences through the simulated host (fixtures/life_driver.h
// gone wild), with faults in any host function the module calls. After every
// command the checks of fixtures/command_checks.h must find nothing: no host
// error (misuse, suites, leaks, reused handles), locks balanced, no host
// function the effect has no use for.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstdlib>

#include "tests/fixtures/command_checks.h"
#include "tests/fixtures/life_driver.h"

extern "C" PF_Err EntryPointFunc(PF_Cmd cmd, PF_InData* in_data, PF_OutData* out_data, PF_ParamDef* params[],
                                 PF_LayerDef* output, void* extra);

namespace {

void Abort(const std::string& what) {
  std::fprintf(stderr, "commands_fuzz: %s\n", what.c_str());
  std::abort();
}

void AfterCommand(cinebar_simhost::Host& host, PF_Cmd cmd, PF_Err, std::size_t first_record,
                  std::size_t first_error) {
  const std::string problems = CommandProblems(host, cmd, first_record, first_error);
  if (!problems.empty()) Abort("after command " + std::to_string(cmd) + ":" + problems);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  setenv("CINEBAR_COMMON_APPDATA", "/nonexistent/cinebar-fuzz", 1);  // the effect runs unbound
  cinebar_simhost::Host::SetCommandObserver(AfterCommand);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  cinebar_simhost::Host host(&EntryPointFunc);
  if (in.ConsumeIntegralInRange(0, 15) == 0) host.SetApplId(PF_APPL_ID_PREMIERE);
  LifeDriver life(
      host, [&](uint32_t below) { return below < 2 ? 0 : in.ConsumeIntegralInRange<uint32_t>(0, below - 1); },
      true, Abort);
  life.Begin();
  for (int n = 0; n < 48 && in.remaining_bytes() > 0; ++n) life.Step();
  life.End();
  return 0;
}
