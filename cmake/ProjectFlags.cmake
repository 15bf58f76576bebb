# Warnings as errors for project code; sanitizer flags for the whole build.
add_library(tovra_warnings INTERFACE)
target_compile_options(tovra_warnings INTERFACE -Wall -Wextra -Werror)
# GCC 12 at -O3 reports -Wrestrict inside libstdc++'s own string code (a known
# false positive of that release), which would fail a Release build.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(tovra_warnings INTERFACE -Wno-restrict)
endif()

if(TOVRA_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(TOVRA_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT TOVRA_SANITIZE STREQUAL "")
  message(FATAL_ERROR "TOVRA_SANITIZE must be empty, address or thread")
endif()
