# Tests of alerts with real windows: a robot that the toolkit loads into the helper, and a program that is itself a host
# with windows. Both need Qt 6; without it the tests that use the robot say that they are skipped.
find_package(Qt6 QUIET COMPONENTS Widgets Test)
if(TARGET system_tests)
  add_dependencies(system_tests vistrelle-dialog)
endif()
if(TARGET platform_dialogs_tests)
  add_dependencies(platform_dialogs_tests vistrelle-dialog vistrelle)
endif()
if(NOT TARGET vistrelle-dialogs-qt OR NOT Qt6Test_FOUND)
  return()
endif()

add_library(vistrelle-test-robot MODULE platform/dialogs/robot/robot.cpp)
set_target_properties(vistrelle-test-robot PROPERTIES AUTOMOC ON PREFIX ""
  LIBRARY_OUTPUT_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/toolkit/generic")
target_link_libraries(vistrelle-test-robot PRIVATE vistrelle_options Qt6::Widgets Qt6::Test)

vistrelle_tests(platform_dialogs_qt_tests platform/dialogs/qt USES vistrelle_system vistrelle_dialogs
  PRIVATE Qt6::Widgets Qt6::Test)
foreach(program system_tests platform_dialogs_tests platform_dialogs_qt_tests)
  if(TARGET ${program})
    add_dependencies(${program} vistrelle-dialog vistrelle-dialogs-qt vistrelle-test-robot)
    target_compile_definitions(${program} PRIVATE
      VISTRELLE_DIALOG_FILES="$<TARGET_FILE_DIR:vistrelle-dialog>"
      VISTRELLE_ROBOT_FOLDER="${CMAKE_CURRENT_BINARY_DIR}/toolkit")
  endif()
endforeach()
