# Counts which lines and branches are reached; script/coverage builds with it.
add_compile_options(--coverage)
add_link_options(--coverage -Wl,--wrap=_exit,--wrap=abort,--wrap=execv,-u,__wrap__exit,-u,__wrap_abort,-u,__wrap_execv)
add_library(coverage_at_exit STATIC ${CMAKE_CURRENT_LIST_DIR}/coverageatexit.cpp)
link_libraries($<BUILD_INTERFACE:coverage_at_exit>) # what is installed needs it no more
