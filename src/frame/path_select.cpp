// Load-time choice of the code path.
#include "frame/exports.h"
#include "nkpcore.h"

// Statically 0: a library used before the load-time selection ran takes
// the SSSE3 path.
int32_t nkp_code_path = 0;

namespace nkp {

int32_t select_code_path(uint64_t feature_mask) {
    constexpr uint64_t kLowPower = NKP_CPU_SSSE3 | NKP_CPU_MOVBE;
    return (feature_mask & kLowPower) == kLowPower ? 1 : 0;
}

}  // namespace nkp

#if !defined(_WIN32)
// Runs once when the shared object is loaded, before any export can be
// called. Nothing runs at unload.
__attribute__((constructor)) static void nkp_select_code_path_at_load() {
    nkp_code_path = nkp::select_code_path(nkpGetEnabledCpuFeatures());
}
#endif
