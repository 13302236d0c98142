# The third-party libraries, each as one SYSTEM imported target that only rooms of platform/ may name.
# Visible in a host that takes this tree in as a folder of its own, too.
set(CMAKE_FIND_PACKAGE_TARGETS_GLOBAL ON)
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
include(VistrelleFfmpeg)
pkg_check_modules(ICU REQUIRED IMPORTED_TARGET GLOBAL icu-uc icu-i18n)
pkg_check_modules(GUMBO REQUIRED IMPORTED_TARGET GLOBAL gumbo)
pkg_check_modules(GIO REQUIRED IMPORTED_TARGET GLOBAL gio-2.0 gio-unix-2.0)
pkg_check_modules(PLIST REQUIRED IMPORTED_TARGET GLOBAL libplist-2.0)
pkg_check_modules(CURL REQUIRED IMPORTED_TARGET GLOBAL libcurl)
pkg_check_modules(JPEG REQUIRED IMPORTED_TARGET GLOBAL libjpeg libturbojpeg)
pkg_check_modules(PNG REQUIRED IMPORTED_TARGET GLOBAL libpng)
pkg_check_modules(TIFF REQUIRED IMPORTED_TARGET GLOBAL libtiff-4)
pkg_check_modules(OPENJPEG REQUIRED IMPORTED_TARGET GLOBAL libopenjp2)
pkg_check_modules(LCMS REQUIRED IMPORTED_TARGET GLOBAL lcms2)
pkg_check_modules(GIF REQUIRED IMPORTED_TARGET GLOBAL libgif)
pkg_check_modules(ZLIB REQUIRED IMPORTED_TARGET GLOBAL zlib)
find_package(fmt REQUIRED)
find_package(nlohmann_json REQUIRED)

# Not gumbo: its default options are data.
include(VistrelleLateLibraries)
vistrelle_load_late(PkgConfig::FFMPEG PkgConfig::SWSCALE PkgConfig::ICU PkgConfig::GIO PkgConfig::PLIST
  PkgConfig::CURL PkgConfig::JPEG PkgConfig::PNG PkgConfig::TIFF PkgConfig::OPENJPEG PkgConfig::LCMS PkgConfig::GIF
  PkgConfig::ZLIB)
if(VISTRELLE_FFMPEG_STATIC)
  vistrelle_load_late(PkgConfig::DAV1D PkgConfig::VPX PkgConfig::LAME PkgConfig::OPUS PkgConfig::GSM PkgConfig::LZMA
    PkgConfig::BZIP2)
endif()
