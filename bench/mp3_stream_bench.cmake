# mpg123 (Debian libmpg123-dev) decodes the same stream in full, for scale.
if(PKG_CONFIG_FOUND)
  pkg_check_modules(NKPAC_MPG123 IMPORTED_TARGET libmpg123)
  if(NKPAC_MPG123_FOUND)
    target_link_libraries(nkpac_${name} PRIVATE PkgConfig::NKPAC_MPG123)
    target_compile_definitions(nkpac_${name} PRIVATE NKPAC_HAVE_MPG123)
  endif()
endif()
