# The sanitized flavour: with MAILVEK_SANITIZED_TOO, each room, the tool and each unit test program is
# there twice, as itself and with the suffix _sanitized, which is compiled with the address and
# undefined-behaviour sanitizers and lies in bin/sanitized. The objects of the tests are compiled once
# and linked into both: the sanitizers watch the code under test, and the tests take longest to compile.
option(MAILVEK_SANITIZED_TOO "build the tool and its tests a second time, under the sanitizers" OFF)

set(MAILVEK_FLAVOURS plain)
if(MAILVEK_SANITIZED_TOO)
  list(APPEND MAILVEK_FLAVOURS sanitized)
endif()

# The suffix of a flavour's targets: nothing, or _sanitized.
function(mailvek_flavour_suffix flavour result)
  set(suffix _${flavour})
  if(flavour STREQUAL plain)
    set(suffix)
  endif()
  set(${result} "${suffix}" PARENT_SCOPE)
endfunction()

# Compiles a target for its flavour: with the project's warnings, or with the sanitizers and without
# optimisation. Without vptr: that check reads memory through a pipe of its own, and reports a broken
# object when no descriptor is left, which some tests arrange.
function(mailvek_compile_as target flavour)
  if(flavour STREQUAL plain)
    mailvek_warnings(${target})
  else()
    target_compile_options(${target} PRIVATE -O0 -g1 -UNDEBUG
      -fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=all -fno-omit-frame-pointer)
  endif()
endfunction()

# Names a program of the flavour `output` and places it. A sanitized one brings the sanitizers' runtime.
function(mailvek_place_program target flavour output)
  set_target_properties(${target} PROPERTIES OUTPUT_NAME ${output})
  if(NOT flavour STREQUAL plain)
    set_target_properties(${target} PROPERTIES
      RUNTIME_OUTPUT_DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${flavour})
    target_link_options(${target} PRIVATE -fsanitize=address,undefined)
  endif()
endfunction()
