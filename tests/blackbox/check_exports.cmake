# Compares the symbols that the built library defines for others with the list, both ways:
#   cmake -D NM=... -D LIBRARY=... -D LIST=... -P check_exports.cmake

cmake_minimum_required(VERSION 3.22)

execute_process(COMMAND "${NM}" -D --defined-only "${LIBRARY}"
  OUTPUT_VARIABLE LINES RESULT_VARIABLE STATUS)
if(NOT STATUS EQUAL 0)
  message(FATAL_ERROR "${NM} cannot read ${LIBRARY}")
endif()
string(REGEX MATCHALL "[^\n]+" LINES "${LINES}")
set(FOUND "")
foreach(LINE IN LISTS LINES)
  string(REGEX REPLACE "^.* " "" NAME "${LINE}")
  list(APPEND FOUND "${NAME}")
endforeach()

file(STRINGS "${LIST}" LISTED REGEX "^[^#]")

set(FAILED FALSE)
foreach(NAME IN LISTS FOUND)
  if(NOT NAME IN_LIST LISTED)
    message(SEND_ERROR "in the library, not on the list: ${NAME}")
    set(FAILED TRUE)
  endif()
endforeach()
foreach(NAME IN LISTS LISTED)
  if(NOT NAME IN_LIST FOUND)
    message(SEND_ERROR "on the list, not in the library: ${NAME}")
    set(FAILED TRUE)
  endif()
endforeach()
list(LENGTH FOUND COUNT)
if(COUNT EQUAL 0 OR FAILED)
  message(FATAL_ERROR "${COUNT} symbols, not as listed")
endif()
message("${COUNT} symbols, as listed")
