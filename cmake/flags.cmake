# Compile options of every target of ours: warnings are errors, and the order of floating-point
# operations is the one that is written (no contraction into fused multiply-adds).
add_library(butngain_flags INTERFACE)
target_compile_options(butngain_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -ffp-contract=off)
