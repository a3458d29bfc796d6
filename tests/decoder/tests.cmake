# The whole-decoder tests drive nkpdec's decoding loop directly.
target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/examples/nkpdec/mp3_decoder.cpp)
target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/examples/nkpdec)
# The program itself, for its exit codes and WAV output.
if(TARGET nkpdec)
  add_dependencies(${target} nkpdec)
  target_compile_definitions(${target} PRIVATE NKPDEC_PROGRAM="$<TARGET_FILE:nkpdec>")
endif()
