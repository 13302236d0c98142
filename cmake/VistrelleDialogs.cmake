# Windows for alerts: a helper program, and the plug-in that it loads, the only part that links a GUI library. Without
# Qt 6 the rest builds and alerts are text on the terminal.
include(GNUInstallDirs)
set(VISTRELLE_DIALOGS_INSTALL_FOLDER "${CMAKE_INSTALL_LIBEXECDIR}/vistrelle")
target_compile_definitions(vistrelle_dialogs PRIVATE
  VISTRELLE_DIALOGS_FOLDER="${CMAKE_INSTALL_FULL_LIBEXECDIR}/vistrelle")

add_executable(vistrelle-dialog platform/dialogs/helper/main.cpp)
target_link_libraries(vistrelle-dialog PRIVATE vistrelle_options ${CMAKE_DL_LIBS})
install(TARGETS vistrelle-dialog RUNTIME DESTINATION "${VISTRELLE_DIALOGS_INSTALL_FOLDER}")

find_package(Qt6 QUIET COMPONENTS Widgets)
if(NOT Qt6Widgets_FOUND)
  message(STATUS "Qt 6 Widgets not found: alerts are text on the terminal")
  return()
endif()
file(GLOB dialogs_qt_sources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/vistrelle/platform/dialogs/qt/*.cpp")
# The two sources of the room that both sides need are compiled in: the plug-in shares no state with its loader.
add_library(vistrelle-dialogs-qt MODULE ${dialogs_qt_sources}
  platform/dialogs/alert_content.cpp platform/dialogs/wire.cpp)
set_target_properties(vistrelle-dialogs-qt PROPERTIES PREFIX "" CXX_VISIBILITY_PRESET hidden)
target_link_libraries(vistrelle-dialogs-qt PRIVATE vistrelle_options Qt6::Widgets)
install(TARGETS vistrelle-dialogs-qt LIBRARY DESTINATION "${VISTRELLE_DIALOGS_INSTALL_FOLDER}")
