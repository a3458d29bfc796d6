# The whole-decoder tests drive nkpdec's decoding loop directly.
target_link_libraries(${target} PRIVATE nkpdec_loop)
# The program itself, for its exit codes and WAV output.
if(TARGET nkpdec)
  add_dependencies(${target} nkpdec)
  target_compile_definitions(${target} PRIVATE NKPDEC_PROGRAM="$<TARGET_FILE:nkpdec>")
endif()
