# The VLC benchmark reads the standard code books like the VLC tests.
target_compile_definitions(nkpac_${name} PRIVATE NKPAC_TABLES_DIR="${PROJECT_SOURCE_DIR}/tools/tables")
