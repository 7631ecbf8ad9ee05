# The command that checks the built file, to be given the file, and a target that runs it for each architecture.

find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(ZEL_LIBRARY_CHECK "${Python3_EXECUTABLE}" "${CMAKE_CURRENT_LIST_DIR}/check_dylib.py"
  --exports "${PROJECT_SOURCE_DIR}/QuenPlugins/ZelTaskPool/exports-macos.txt" --version "${PROJECT_VERSION}")
if(CMAKE_CROSSCOMPILING)
  # Another compiler may take other names from the system; here it is always the same one.
  list(APPEND ZEL_LIBRARY_CHECK
    --imports "${CMAKE_CURRENT_LIST_DIR}/libc++.1.tbd" --imports "${CMAKE_CURRENT_LIST_DIR}/system-names.txt")
endif()

# Empty on a Mac that builds for itself.
set(ZEL_LIBRARY_ARCHS "${CMAKE_OSX_ARCHITECTURES}")
if(NOT ZEL_LIBRARY_ARCHS)
  set(ZEL_LIBRARY_ARCHS "${CMAKE_SYSTEM_PROCESSOR}")
endif()

set(COMMANDS "")
foreach(ARCH IN LISTS ZEL_LIBRARY_ARCHS)
  list(APPEND COMMANDS COMMAND ${ZEL_LIBRARY_CHECK} "$<TARGET_FILE:ZelTaskPool>" --arch ${ARCH})
endforeach()
add_custom_target(zel_check_library ${COMMANDS} VERBATIM)
