# The plain reference loops in this suite are compiled with the library's
# own flags (SSSE3, no FMA), so the ratio measures the code, not the flags.
target_compile_options(nkpac_${name} PRIVATE -mssse3)
