# The whole-decoder tests drive nkpdec's decoding loop directly.
target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/examples/nkpdec/mp3_decoder.cpp)
target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/examples/nkpdec)
