// Internal view of the export list: a declaration of every implementation
// and of every export's two-entry table (nkpt_<export>), so that families
// define their implementations against the public prototypes and tests can
// call either table entry directly.
#pragma once

#include "nkpac.h"

#include <cstdint>

#if defined(_WIN32)
#define NKP_HIDDEN
#else
#define NKP_HIDDEN __attribute__((visibility("hidden")))
#endif

// The active code path: 0 (SSSE3) or 1 (low-power), set once at load.
extern "C" NKP_HIDDEN int32_t nkp_code_path;

namespace nkp {

#define NKP_EXPORT(name) decltype(::name) name;
#define NKP_EXPORT_DUAL(name)                 \
    namespace ssse3 { decltype(::name) name; } \
    namespace lowpower { decltype(::name) name; }
#include "frame/export_list.inc"
#undef NKP_EXPORT
#undef NKP_EXPORT_DUAL

// Which code path a feature mask selects: both SSSE3 (0x10) and MOVBE (0x20)
// give the low-power path, anything else the SSSE3 path.
int32_t select_code_path(uint64_t feature_mask);

}  // namespace nkp

#define NKP_EXPORT(name) extern "C" NKP_HIDDEN const decltype(&::name) nkpt_##name[2];
#define NKP_EXPORT_DUAL(name) NKP_EXPORT(name)
#include "frame/export_list.inc"
#undef NKP_EXPORT
#undef NKP_EXPORT_DUAL
