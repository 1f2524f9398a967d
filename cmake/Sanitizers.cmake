option(MAILVEK_SANITIZE "build with address and undefined-behaviour sanitizers" OFF)

if(MAILVEK_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
