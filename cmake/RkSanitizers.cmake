# RK_SANITIZE is a comma list handed to -fsanitize= for every target, set by the presets.
set(RK_SANITIZE "" CACHE STRING "Sanitizers for all targets (address,undefined | thread)")
if(RK_SANITIZE)
  add_compile_options(-fsanitize=${RK_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${RK_SANITIZE})
endif()

# The fuzz preset instruments everything for coverage; only the fuzz targets link the driver.
if(RK_BUILD_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
