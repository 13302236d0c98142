# Installs the public headers, under the paths that they have in the tree: those that say that what they declare is
# visible outside of the shared library.
file(GLOB_RECURSE headers RELATIVE "${source}" "${source}/vistrelle/*.h")
foreach(header IN LISTS headers)
  file(STRINGS "${source}/${header}" marks REGEX "^#pragma GCC visibility push\\(default\\)")
  if(marks)
    get_filename_component(folder "${header}" DIRECTORY)
    file(INSTALL "${source}/${header}" DESTINATION "${destination}/${folder}")
  endif()
endforeach()
