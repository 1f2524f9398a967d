option(MAILVEK_SANITIZE "build with address and undefined-behaviour sanitizers" OFF)

# Without vptr: that check looks at memory through a pipe of its own, and takes an object for a
# broken one where no descriptor is left, which tests arrange.
if(MAILVEK_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=all
    -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
