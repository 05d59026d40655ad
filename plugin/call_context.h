// Module-wide record of the call in progress. Nothing in the module reads
// these; they are kept for diagnosis (a debugger or a crash dump shows which
// call was running). g_current_in_data and g_current_suites are never
// cleared: after a call returns they dangle by design, pointing at the host's
// record and at the suite cache that lived on that call's stack. Read them
// only while a call is in progress.
#pragma once

#include "hostapi/ae_effect.h"

class HostSuiteCache;

extern PF_InData* g_current_in_data;
extern PF_OutData* g_current_out_data;  // reset to null when a call ends
extern HostSuiteCache* g_current_suites;
extern void* g_module_instance;  // the module's instance handle, fetched once and kept
