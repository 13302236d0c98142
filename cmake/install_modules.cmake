# Installs the pkg-config modules of the folder `source` with the prefix that they are installed under, which `cmake
# --install --prefix` may have named anew.
get_filename_component(prefix "${CMAKE_INSTALL_PREFIX}" ABSOLUTE)
file(GLOB modules RELATIVE "${source}" "${source}/*.pc")
foreach(module IN LISTS modules)
  file(READ "${source}/${module}" text)
  string(REGEX REPLACE "^prefix=[^\n]*" "prefix=${prefix}" text "${text}")
  file(WRITE "${source}/installed/${module}" "${text}")
  file(INSTALL "${source}/installed/${module}" DESTINATION "${destination}")
endforeach()
