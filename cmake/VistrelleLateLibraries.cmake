# Libraries that are loaded when one of their functions is called for the first time, and not when a program starts.
#
# vistrelle_load_late(TARGET...): each imported pkg-config target goes on giving its include folders and options, but
# what it links is, for every shared library it names, a small library of our own with a doorway for each function (see
# vistrelle/platform/late). Doorways that nothing calls are left out by the linker. Sources notice nothing: they call
# the functions as they are declared. A library whose data (not functions) is named cannot be loaded late; the linker
# says so.
#
# Processors without doorways, and VISTRELLE_LATE_LOADING=OFF, link the libraries themselves.
option(VISTRELLE_LATE_LOADING "Load third-party libraries at the first call into them" ON)
set(VISTRELLE_LATE_FOLDER "${PROJECT_SOURCE_DIR}/vistrelle/platform/late")
set(VISTRELLE_LATE_DOORWAYS "${VISTRELLE_LATE_FOLDER}/doorway_${CMAKE_SYSTEM_PROCESSOR}.S")
if(NOT EXISTS "${VISTRELLE_LATE_DOORWAYS}" OR NOT CMAKE_READELF OR NOT CMAKE_NM)
  set(VISTRELLE_LATE_LOADING OFF)
endif()

if(VISTRELLE_LATE_LOADING)
  enable_language(ASM)
  add_library(vistrelle_late STATIC "${VISTRELLE_LATE_FOLDER}/late_library.cpp" "${VISTRELLE_LATE_FOLDER}/call_${CMAKE_SYSTEM_PROCESSOR}.S")
  target_link_libraries(vistrelle_late PUBLIC vistrelle_options ${CMAKE_DL_LIBS})
  target_link_options(vistrelle_late INTERFACE -Wl,--gc-sections)
endif()

# A library target of doorways for the shared library `file`; `result` receives its name.
function(vistrelle_late_doorways file result)
  get_filename_component(real "${file}" REALPATH)
  execute_process(COMMAND ${CMAKE_READELF} -d "${real}" OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
  if(NOT dynamic MATCHES "SONAME[^[]*\\[([^]]+)\\]")
    message(FATAL_ERROR "${file} states no name to load it by")
  endif()
  set(soname "${CMAKE_MATCH_1}")
  string(MAKE_C_IDENTIFIER "late_${soname}" name)
  set(${result} ${name} PARENT_SCOPE)
  if(TARGET ${name})
    return()
  endif()
  # Functions of C only: a C++ interface has data (type descriptions) that must be there from the start.
  execute_process(COMMAND ${CMAKE_NM} -D --defined-only "${real}" OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCHALL " [TWi] [A-Za-z][A-Za-z0-9_]*" symbols "${symbols}")
  list(TRANSFORM symbols REPLACE " . " "doorway ")
  list(REMOVE_DUPLICATES symbols)
  list(JOIN symbols "\n" symbols)
  set(source "${CMAKE_BINARY_DIR}/late/${name}.S")
  set(text "#include \"${VISTRELLE_LATE_DOORWAYS}\"\nlibrary \"${soname}\"\n${symbols}\n")
  file(CONFIGURE OUTPUT "${source}" CONTENT "${text}" @ONLY)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${real}")
  add_library(${name} STATIC "${source}")
  target_link_libraries(${name} PUBLIC vistrelle_late)
  set_property(GLOBAL APPEND PROPERTY VISTRELLE_LATE_TARGETS ${name})
endfunction()

function(vistrelle_load_late)
  if(NOT VISTRELLE_LATE_LOADING)
    return()
  endif()
  foreach(target IN LISTS ARGN)
    get_target_property(linked ${target} INTERFACE_LINK_LIBRARIES)
    set(late "")
    foreach(item IN LISTS linked)
      if(item MATCHES "\\.so$" AND EXISTS "${item}")
        vistrelle_late_doorways("${item}" doorways)
        list(APPEND late ${doorways})
      else()
        list(APPEND late "${item}")
      endif()
    endforeach()
    set_property(TARGET ${target} PROPERTY INTERFACE_LINK_LIBRARIES "${late}")
  endforeach()
endfunction()
