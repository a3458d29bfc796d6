# The providers of the two-path exports live beside their families' tests.
file(GLOB providers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/*/both_paths.cpp)
target_sources(${target} PRIVATE ${providers})
