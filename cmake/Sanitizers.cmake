option(MAILVEK_SANITIZE "build with address and undefined-behaviour sanitizers" OFF)

# Without vptr: that check reads memory through a pipe of its own, and reports a broken object when no
# descriptor is left, which some tests arrange.
if(MAILVEK_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=all
    -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
