# The VLC tests read the standard code books from the vendored text tables.
target_compile_definitions(${target} PRIVATE NKPAC_TABLES_DIR="${PROJECT_SOURCE_DIR}/tools/tables")
