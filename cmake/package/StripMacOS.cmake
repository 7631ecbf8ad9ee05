# Run by cpack before it packs. Strips each library of what only a debugger reads, such as the names of its objects.
# Stripping breaks the signature; llvm-strip renews it, and on a Mac codesign does.

file(GLOB LIBRARIES "${CPACK_TEMPORARY_DIRECTORY}/lib/*.dylib")
if(NOT LIBRARIES)
  message(FATAL_ERROR "There is no library in ${CPACK_TEMPORARY_DIRECTORY}/lib")
endif()
foreach(LIBRARY IN LISTS LIBRARIES)
  execute_process(COMMAND "${CPACK_ZEL_STRIP}" -S -x "${LIBRARY}" COMMAND_ERROR_IS_FATAL ANY)
  if(CMAKE_HOST_APPLE)
    execute_process(COMMAND codesign --force --sign - "${LIBRARY}" COMMAND_ERROR_IS_FATAL ANY)
  endif()
endforeach()
