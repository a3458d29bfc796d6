// The export stubs and their two-entry tables, generated from the export list.
//
// A stub is three instructions: load the code-path index, address the
// export's table, jump through the entry. The implementation then returns
// straight to the caller with the caller's arguments untouched, so the stub
// needs no knowledge of the signature. r11 is a scratch register in both the
// System V and the Windows x64 calling conventions, and rax carries nothing
// into a non-variadic call.
#include "frame/exports.h"

#define NKP_EXPORT(name) const decltype(&::name) nkpt_##name[2] = {&nkp::name, &nkp::name};
#define NKP_EXPORT_DUAL(name) \
    const decltype(&::name) nkpt_##name[2] = {&nkp::ssse3::name, &nkp::lowpower::name};
#include "frame/export_list.inc"
#undef NKP_EXPORT
#undef NKP_EXPORT_DUAL

#if defined(_WIN32)
#define NKP_STUB_BEGIN(name) ".def " #name "; .scl 2; .type 32; .endef\n"
#define NKP_STUB_END(name) ""
#else
#define NKP_STUB_BEGIN(name) ".type " #name ", @function\n"
#define NKP_STUB_END(name) ".size " #name ", .-" #name "\n"
#endif

#define NKP_EXPORT(name)                                  \
    asm(".text\n"                                         \
        ".p2align 4\n"                                    \
        ".globl " #name "\n" NKP_STUB_BEGIN(name) #name ":\n" \
        "    movslq nkp_code_path(%rip), %rax\n"           \
        "    leaq nkpt_" #name "(%rip), %r11\n"            \
        "    jmp *(%r11,%rax,8)\n" NKP_STUB_END(name));
#define NKP_EXPORT_DUAL(name) NKP_EXPORT(name)
#include "frame/export_list.inc"
#undef NKP_EXPORT
#undef NKP_EXPORT_DUAL
