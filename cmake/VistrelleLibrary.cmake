# The library as hosts link it: all rooms in one shared library, and in one archive.
#
# One shared library serves every component because third-party libraries are loaded at the first call into them
# (VistrelleLateLibraries.cmake): a host that wants texts only never sees FFmpeg. Where that is switched off, or the
# processor has no doorways, the shared library names them all to the loader, and only the archive is frugal.
option(VISTRELLE_INSTALL "Build and install the library, its headers and packages" ${PROJECT_IS_TOP_LEVEL})
if(VISTRELLE_SANITIZE OR VISTRELLE_FUZZ)
  set(VISTRELLE_INSTALL OFF)
endif()
if(NOT VISTRELLE_INSTALL)
  return()
endif()
include(GNUInstallDirs)

get_property(rooms GLOBAL PROPERTY VISTRELLE_ROOMS)
list(REMOVE_ITEM rooms vistrelle_batch_room)  # a program of its own
get_property(room_libraries GLOBAL PROPERTY VISTRELLE_ROOM_LIBRARIES)
list(TRANSFORM rooms REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>" OUTPUT_VARIABLE room_objects)

add_library(vistrelle_shared SHARED ${room_objects})
set_target_properties(vistrelle_shared PROPERTIES OUTPUT_NAME vistrelle EXPORT_NAME vistrelle LINKER_LANGUAGE CXX
  VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
  LINK_DEPENDS "${PROJECT_SOURCE_DIR}/cmake/vistrelle.map")
target_link_libraries(vistrelle_shared PRIVATE vistrelle_options ${room_libraries})
target_link_options(vistrelle_shared PRIVATE -Wl,-z,defs
  "-Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/vistrelle.map")

# What a program that links the archive names besides, by component.
set(VISTRELLE_STATIC_LIBRARIES_text ${GUMBO_LIBRARIES} fmt)
set(VISTRELLE_STATIC_LIBRARIES_image "")
set(VISTRELLE_STATIC_LIBRARIES_movie "")
if(VISTRELLE_LATE_LOADING)
  get_property(doorways GLOBAL PROPERTY VISTRELLE_LATE_TARGETS)
  list(TRANSFORM doorways REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>")
  list(APPEND room_objects $<TARGET_OBJECTS:vistrelle_late> ${doorways})
else()
  list(APPEND VISTRELLE_STATIC_LIBRARIES_text ${ICU_LIBRARIES} ${GIO_LIBRARIES} ${PLIST_LIBRARIES} ${CURL_LIBRARIES})
  list(APPEND VISTRELLE_STATIC_LIBRARIES_image ${SWSCALE_LIBRARIES} ${JPEG_LIBRARIES} ${PNG_LIBRARIES}
    ${TIFF_LIBRARIES} ${OPENJPEG_LIBRARIES} ${LCMS_LIBRARIES} ${GIF_LIBRARIES} ${ZLIB_LIBRARIES})
  list(APPEND VISTRELLE_STATIC_LIBRARIES_movie ${FFMPEG_LIBRARIES})
endif()
set(installed_libraries vistrelle_shared)
# With a private FFmpeg the archive would name files of this machine only.
if(NOT VISTRELLE_FFMPEG_STATIC)
  add_library(vistrelle_static STATIC ${room_objects})
  set_target_properties(vistrelle_static PROPERTIES OUTPUT_NAME vistrelle LINKER_LANGUAGE CXX)
  set(static_libraries ${VISTRELLE_STATIC_LIBRARIES_movie} ${VISTRELLE_STATIC_LIBRARIES_image}
    ${VISTRELLE_STATIC_LIBRARIES_text})
  list(REMOVE_DUPLICATES static_libraries)
  target_link_libraries(vistrelle_static INTERFACE ${static_libraries} Threads::Threads ${CMAKE_DL_LIBS})
  list(APPEND installed_libraries vistrelle_static)
endif()

foreach(library IN LISTS installed_libraries)
  target_compile_features(${library} INTERFACE cxx_std_20)
  target_include_directories(${library} INTERFACE
    "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>" "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")
endforeach()
