# One interface target carries the language level, warnings and sanitizers of everything that is ours.
add_library(vistrelle_options INTERFACE)
target_compile_features(vistrelle_options INTERFACE cxx_std_20)
target_include_directories(vistrelle_options INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_options(vistrelle_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion -Wnon-virtual-dtor
  -Wold-style-cast -Woverloaded-virtual -Wformat=2 -Werror=format-security -Werror)
# Single-precision results are behaviour: no machine may fuse a multiplication and an addition into one rounding.
target_compile_options(vistrelle_options INTERFACE -ffp-contract=off)
target_compile_definitions(vistrelle_options INTERFACE _FILE_OFFSET_BITS=64)
target_link_options(vistrelle_options INTERFACE -Wl,--as-needed)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

if(VISTRELLE_SANITIZE)
  target_compile_options(vistrelle_options INTERFACE
    -fsanitize=${VISTRELLE_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(vistrelle_options INTERFACE -fsanitize=${VISTRELLE_SANITIZE})
  if(VISTRELLE_FUZZ)
    target_compile_options(vistrelle_options INTERFACE -fsanitize=fuzzer-no-link)
  endif()
elseif(CMAKE_BUILD_TYPE STREQUAL "Release")
  target_compile_options(vistrelle_options INTERFACE -fstack-protector-strong -D_FORTIFY_SOURCE=2)
  target_link_options(vistrelle_options INTERFACE -Wl,-z,relro -Wl,-z,now)
endif()

find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE}")
endif()

# GCC 12 sees overlapping copies in plain "text" + string concatenations once it inlines them (GCC bug 105651).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(vistrelle_options INTERFACE -Wno-restrict)
endif()
