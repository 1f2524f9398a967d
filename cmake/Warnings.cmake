option(MAILVEK_WERROR "treat warnings as errors" OFF)

# The warnings of the project. -Wshadow=local and not plain -Wshadow, because constructor parameters
# share the given names of fields. No -Wnull-dereference: with optimisation it warns about the option
# library's own code wherever an option with a text is declared.
function(mailvek_warnings target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wcast-qual -Wcast-align
    -Wformat=2 -Wundef -Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast
    -Wextra-semi
    $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local -Wduplicated-cond -Wlogical-op>
    $<$<BOOL:${MAILVEK_WERROR}>:-Werror>)
endfunction()
