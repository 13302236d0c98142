# FFmpeg: the distribution's shared libraries or, with VISTRELLE_FAST_START, a private static build of the same source
# without what the tool never uses. That one starts in a millisecond where the shared ones pull in a hundred libraries
# and cost thirty to fifty. scripts/build-ffmpeg makes and keeps it.
option(VISTRELLE_FAST_START "Link a private static build of FFmpeg for a fast start" OFF)
option(VISTRELLE_INSTRUMENTED_FFMPEG "Link a private static build of FFmpeg with sanitizers and coverage" ${VISTRELLE_FUZZ})
set(VISTRELLE_FFMPEG_STATIC "")
if(VISTRELLE_FAST_START OR VISTRELLE_INSTRUMENTED_FFMPEG)
  set(variant "")
  if(VISTRELLE_INSTRUMENTED_FFMPEG)
    set(variant --instrumented)
  endif()
  execute_process(COMMAND "${PROJECT_SOURCE_DIR}/scripts/build-ffmpeg" ${variant}
    OUTPUT_VARIABLE VISTRELLE_FFMPEG_STATIC OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE failed)
  if(failed)
    set(VISTRELLE_FFMPEG_STATIC "")
    message(WARNING "No private FFmpeg (see above): the distribution's libraries are used")
  endif()
endif()

if(NOT VISTRELLE_FFMPEG_STATIC)
  pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET GLOBAL libavformat>=59 libavcodec>=59 libavutil>=57 libswscale>=6
    libswresample>=4)
  pkg_check_modules(SWSCALE REQUIRED IMPORTED_TARGET GLOBAL libswscale libavutil)
  return()
endif()

message(STATUS "Private FFmpeg: ${VISTRELLE_FFMPEG_STATIC}")
pkg_check_modules(DAV1D REQUIRED IMPORTED_TARGET GLOBAL dav1d)
pkg_check_modules(LZMA REQUIRED IMPORTED_TARGET GLOBAL liblzma)
pkg_check_modules(ZLIB REQUIRED IMPORTED_TARGET GLOBAL zlib)
# Without a description for pkg-config, or with one that names the mathematical library, which is not loaded late.
find_library(VISTRELLE_BZIP2 bz2 REQUIRED)
find_library(VISTRELLE_VPX vpx REQUIRED)
find_library(VISTRELLE_LAME mp3lame REQUIRED)
find_library(VISTRELLE_OPUS opus REQUIRED)
find_library(VISTRELLE_GSM gsm REQUIRED)
foreach(library BZIP2 VPX LAME OPUS GSM)
  add_library(PkgConfig::${library} INTERFACE IMPORTED GLOBAL)
  set_property(TARGET PkgConfig::${library} PROPERTY INTERFACE_LINK_LIBRARIES "${VISTRELLE_${library}}")
endforeach()
# The distribution's own headers: the private ones are the same files, and with these a compiler cache gives the objects of
# the other builds.
pkg_check_modules(FFMPEG_HEADERS REQUIRED libavformat libavcodec libavutil libswscale libswresample)
foreach(part avutil swresample swscale avcodec avformat)
  add_library(vistrelle_static_${part} STATIC IMPORTED GLOBAL)
  set_target_properties(vistrelle_static_${part} PROPERTIES
    IMPORTED_LOCATION "${VISTRELLE_FFMPEG_STATIC}/lib/lib${part}.a")
  target_include_directories(vistrelle_static_${part} SYSTEM INTERFACE ${FFMPEG_HEADERS_INCLUDE_DIRS})
endforeach()
target_link_libraries(vistrelle_static_avutil INTERFACE Threads::Threads m)
target_link_libraries(vistrelle_static_swresample INTERFACE vistrelle_static_avutil)
target_link_libraries(vistrelle_static_swscale INTERFACE vistrelle_static_avutil)
target_link_libraries(vistrelle_static_avcodec INTERFACE vistrelle_static_swresample vistrelle_static_avutil
  PkgConfig::DAV1D PkgConfig::VPX PkgConfig::LAME PkgConfig::OPUS PkgConfig::GSM PkgConfig::LZMA PkgConfig::ZLIB)
target_link_libraries(vistrelle_static_avformat INTERFACE vistrelle_static_avcodec PkgConfig::BZIP2)
add_library(PkgConfig::FFMPEG INTERFACE IMPORTED GLOBAL)
target_link_libraries(PkgConfig::FFMPEG INTERFACE vistrelle_static_avformat vistrelle_static_swscale)
add_library(PkgConfig::SWSCALE INTERFACE IMPORTED GLOBAL)
target_link_libraries(PkgConfig::SWSCALE INTERFACE vistrelle_static_swscale)
