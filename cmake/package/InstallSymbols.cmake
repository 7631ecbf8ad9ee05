# Installs the debug symbols of LIBRARY below FOLDER, where debuggers look for them by the library's build id.

execute_process(COMMAND "${READELF}" --notes "${LIBRARY}" OUTPUT_VARIABLE NOTES COMMAND_ERROR_IS_FATAL ANY)
if(NOT NOTES MATCHES "Build ID: ([0-9a-f][0-9a-f])([0-9a-f]+)")
  message(FATAL_ERROR "${LIBRARY} has no build id")
endif()
set(SYMBOLS "${FOLDER}/${CMAKE_MATCH_1}/${CMAKE_MATCH_2}.debug")
message(STATUS "Installing: ${SYMBOLS}")
file(MAKE_DIRECTORY "${FOLDER}/${CMAKE_MATCH_1}")
execute_process(COMMAND "${OBJCOPY}" --only-keep-debug --compress-debug-sections "${LIBRARY}" "${SYMBOLS}"
  COMMAND_ERROR_IS_FATAL ANY)
file(CHMOD "${SYMBOLS}" PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
