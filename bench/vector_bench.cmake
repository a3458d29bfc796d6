# mpg123's syn123 as a peer for interleaving and float-to-16-bit conversion.
if(PkgConfig_FOUND)
  pkg_check_modules(NKPAC_SYN123 IMPORTED_TARGET libsyn123)
  if(NKPAC_SYN123_FOUND)
    target_link_libraries(nkpac_${name} PRIVATE PkgConfig::NKPAC_SYN123)
    target_compile_definitions(nkpac_${name} PRIVATE NKPAC_BENCH_SYN123)
  endif()
endif()
