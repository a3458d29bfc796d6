// Load-time choice of the code path.
#include "frame/exports.h"
#include "nkpcore.h"

#if defined(_WIN32) && defined(NKPAC_DLL_ENTRY)
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#endif

// Statically 0: a library used before the load-time selection ran takes
// the SSSE3 path.
int32_t nkp_code_path = 0;

namespace nkp {

int32_t select_code_path(uint64_t feature_mask) {
    constexpr uint64_t kLowPower = NKP_CPU_SSSE3 | NKP_CPU_MOVBE;
    return (feature_mask & kLowPower) == kLowPower ? 1 : 0;
}

}  // namespace nkp

namespace {

// The one place that writes the index; every way of loading the library
// ends up here exactly once.
void select_code_path_at_load() { nkp_code_path = nkp::select_code_path(nkpGetEnabledCpuFeatures()); }

}  // namespace

#if defined(_WIN32) && defined(NKPAC_DLL_ENTRY)
// nkpac.dll: the entry point chooses the path when a process attaches the
// library. Thread notifications and the detach do nothing, and every
// notification reports success. The C runtime has been set up by the time
// this runs, and nkpcore.dll, which nkpac.dll imports, is already initialised.
extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) select_code_path_at_load();
    return TRUE;
}
#else
// Runs once when the shared object, or a program linking the static
// library, is loaded, before any export can be called. Nothing runs at
// unload.
__attribute__((constructor)) static void nkp_select_code_path_at_load() { select_code_path_at_load(); }
#endif
