# Counting which lines and branches are reached. Everything that is made from here on counts, and
# writes its counts also where it ends by _exit, as every session does.
add_compile_options(--coverage -fprofile-update=atomic)
add_link_options(--coverage LINKER:--wrap=_exit LINKER:--wrap=_Exit LINKER:--wrap=raise)
add_library(butngain_counted_end STATIC cmake/coverage/counted_end.cpp)
link_libraries(butngain_counted_end)
