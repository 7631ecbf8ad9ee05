# ZEL_LIBRARY_CHECK is the command that checks a built library; the file follows. The target zel_check_library runs it
# for each architecture.

find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(ZEL_LIBRARY_CHECK "${Python3_EXECUTABLE}" "${CMAKE_CURRENT_LIST_DIR}/check_dylib.py"
  --exports "${PROJECT_SOURCE_DIR}/QuenPlugins/ZelTaskPool/exports-macos.txt" --version "${PROJECT_VERSION}")
if(CMAKE_CROSSCOMPILING)
  # Another compiler may import other names. The cross-build always uses the same one.
  list(APPEND ZEL_LIBRARY_CHECK
    --imports "${CMAKE_CURRENT_LIST_DIR}/libc++.1.tbd" --imports "${CMAKE_CURRENT_LIST_DIR}/system-names.txt")
endif()

# Empty in a native build on a Mac.
set(ZEL_LIBRARY_ARCHS "${CMAKE_OSX_ARCHITECTURES}")
if(NOT ZEL_LIBRARY_ARCHS)
  set(ZEL_LIBRARY_ARCHS "${CMAKE_SYSTEM_PROCESSOR}")
endif()

set(COMMANDS "")
foreach(ARCH IN LISTS ZEL_LIBRARY_ARCHS)
  list(APPEND COMMANDS COMMAND ${ZEL_LIBRARY_CHECK} "$<TARGET_FILE:ZelTaskPool>" --arch ${ARCH})
endforeach()
add_custom_target(zel_check_library ${COMMANDS} VERBATIM)
