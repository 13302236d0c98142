# What `cmake --install` gives: programs, the library with its headers and packages, manual pages, completions.
if(NOT VISTRELLE_INSTALL)
  return()
endif()
include(CMakePackageConfigHelpers)

foreach(program vistrelle vistrelle-batch vistrelle-call)
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
  endif()
endforeach()
# The prefix may be moved: the host finds its library by where it stands itself.
file(RELATIVE_PATH to_library "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
set_target_properties(vistrelle-call PROPERTIES INSTALL_RPATH "$ORIGIN/${to_library}")

# ---- library and headers ---------------------------------------------------------------------------
install(TARGETS ${installed_libraries} EXPORT vistrelle
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}")
# vistrelle_folder_in_prefix(VARIABLE KIND): CMAKE_INSTALL_<KIND> for a script, below the prefix of the installation.
function(vistrelle_folder_in_prefix variable kind)
  set(folder "${CMAKE_INSTALL_FULL_${kind}}")
  cmake_path(IS_PREFIX CMAKE_INSTALL_PREFIX "${folder}" is_below)
  if(is_below)
    set(folder "\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_${kind}}")
  endif()
  set(${variable} "${folder}" PARENT_SCOPE)
endfunction()
vistrelle_folder_in_prefix(VISTRELLE_HEADERS_TO INCLUDEDIR)
install(CODE "set(source \"${PROJECT_SOURCE_DIR}\")\nset(destination \"${VISTRELLE_HEADERS_TO}\")")
install(SCRIPT "${CMAKE_CURRENT_LIST_DIR}/install_headers.cmake")

# ---- CMake package ---------------------------------------------------------------------------------
set(VISTRELLE_COMPONENTS text files system image movie movieinfo movieedit)
set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/vistrelle")
configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/vistrelleConfig.cmake.in"
  "${CMAKE_CURRENT_BINARY_DIR}/package/vistrelleConfig.cmake" INSTALL_DESTINATION "${package_folder}"
  NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/package/vistrelleConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/package/vistrelleConfig.cmake"
  "${CMAKE_CURRENT_BINARY_DIR}/package/vistrelleConfigVersion.cmake" DESTINATION "${package_folder}")
install(EXPORT vistrelle NAMESPACE vistrelle:: FILE vistrelleTargets.cmake DESTINATION "${package_folder}")

# ---- pkg-config ------------------------------------------------------------------------------------
# vistrelle_pc(NAME DESCRIPTION LIBRARY...): the libraries are those that the archive needs besides.
function(vistrelle_pc name description)
  set(libraries ${ARGN})
  list(REMOVE_DUPLICATES libraries)
  list(TRANSFORM libraries PREPEND "-l")
  set(VISTRELLE_PC_NAME "${name}")
  set(VISTRELLE_PC_DESCRIPTION "${description}")
  list(JOIN libraries " " VISTRELLE_PC_PRIVATE)
  foreach(kind LIBDIR INCLUDEDIR)
    set(VISTRELLE_PC_${kind} "${CMAKE_INSTALL_FULL_${kind}}")
    cmake_path(IS_PREFIX CMAKE_INSTALL_PREFIX "${CMAKE_INSTALL_FULL_${kind}}" is_below)
    if(is_below)
      set(VISTRELLE_PC_${kind} "\${prefix}/${CMAKE_INSTALL_${kind}}")
    endif()
  endforeach()
  configure_file("${PROJECT_SOURCE_DIR}/cmake/vistrelle.pc.in" "${CMAKE_CURRENT_BINARY_DIR}/package/${name}.pc" @ONLY)
endfunction()
set(text_libraries ${VISTRELLE_STATIC_LIBRARIES_text})
set(image_libraries ${VISTRELLE_STATIC_LIBRARIES_image} ${text_libraries})
set(movie_libraries ${VISTRELLE_STATIC_LIBRARIES_movie} ${image_libraries})
vistrelle_pc(vistrelle "exact still pictures of movies, movie information and editing, texts and files" ${movie_libraries})
vistrelle_pc(vistrelle-text "texts, numbers, titles and dates" ${text_libraries})
vistrelle_pc(vistrelle-files "file queries, guarded removal and moves, listings" ${text_libraries})
vistrelle_pc(vistrelle-system "commands, preferences, encodings, alerts" ${text_libraries})
vistrelle_pc(vistrelle-image "rescaling and writing pictures" ${image_libraries})
vistrelle_pc(vistrelle-movie "loading movies, still pictures at given times" ${movie_libraries})
vistrelle_pc(vistrelle-movieinfo "what is in a movie" ${movie_libraries})
vistrelle_pc(vistrelle-movieedit "cutting, joining and muxing movies, exports" ${movie_libraries})
vistrelle_folder_in_prefix(VISTRELLE_MODULES_TO LIBDIR)
install(CODE "set(source \"${CMAKE_CURRENT_BINARY_DIR}/package\")\nset(destination \"${VISTRELLE_MODULES_TO}/pkgconfig\")")
install(SCRIPT "${CMAKE_CURRENT_LIST_DIR}/install_modules.cmake")

# ---- manual pages and completions ------------------------------------------------------------------
file(GLOB manuals CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/docs/man/*.in")
foreach(manual IN LISTS manuals)
  get_filename_component(page "${manual}" NAME_WLE)
  string(REGEX MATCH "[0-9]$" section "${page}")
  configure_file("${manual}" "${CMAKE_CURRENT_BINARY_DIR}/man/${page}" @ONLY)
  install(FILES "${CMAKE_CURRENT_BINARY_DIR}/man/${page}" DESTINATION "${CMAKE_INSTALL_MANDIR}/man${section}")
endforeach()
set(completions "${PROJECT_SOURCE_DIR}/packaging/completions")
install(DIRECTORY "${completions}/bash/" DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
install(DIRECTORY "${completions}/zsh/" DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions")
install(DIRECTORY "${completions}/fish/" DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d")

# ---- recipes for many machines ---------------------------------------------------------------------
install(DIRECTORY "${PROJECT_SOURCE_DIR}/recipes/" DESTINATION "${CMAKE_INSTALL_DATADIR}/vistrelle/recipes" USE_SOURCE_PERMISSIONS)
