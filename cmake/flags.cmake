# Compile options of every target of ours: warnings are errors, and the order of floating-point
# operations is the one that is written (no contraction into fused multiply-adds).
add_library(butngain_flags INTERFACE)
target_compile_options(butngain_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -ffp-contract=off)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # At -O3 this compiler takes the inlined copy of a short std::string for an overlapping one.
  target_compile_options(butngain_flags INTERFACE -Wno-restrict)
endif()
