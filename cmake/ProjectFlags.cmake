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

# Coverage-guided fuzzing (clang): every library a fuzz target drives is
# instrumented, not only the entry points; fuzz/CMakeLists.txt adds the
# engine to the fuzz targets. Executables get the coverage callbacks from the
# runtime clang links in and export them to the shared libraries they load.
option(TOVRA_LIBFUZZER "Build the libFuzzer targets with instrumented libraries (clang only)" OFF)
if(TOVRA_LIBFUZZER)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "TOVRA_LIBFUZZER needs clang: configure with -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
  add_link_options(-fsanitize=fuzzer-no-link)
endif()
