# Which tests of a program are run. A program for another system needs a loader that runs it here.

set(ZEL_TESTS_RUN ON)
if(CMAKE_CROSSCOMPILING AND NOT CMAKE_CROSSCOMPILING_EMULATOR)
  set(ZEL_TESTS_RUN OFF)
  message(STATUS "The test programs are built and not run: there is no loader for them (ZEL_MACHRUN)")
endif()

# zel_discover_tests(PROGRAM LABEL TIMEOUT [FUNCTION...])
# Registers each test of a program, with a limit in seconds. The loader puts the program's functions of these names
# in front of the system's.
function(zel_discover_tests PROGRAM LABEL TIMEOUT)
  if(NOT ZEL_TESTS_RUN)
    return()
  endif()
  set(PROPERTIES LABELS ${LABEL} TIMEOUT ${TIMEOUT})
  if(ARGN AND CMAKE_CROSSCOMPILING_EMULATOR)
    list(TRANSFORM ARGN PREPEND "_")
    list(JOIN ARGN "," FUNCTIONS)
    list(APPEND PROPERTIES ENVIRONMENT "MACHRUN_INTERPOSE=${FUNCTIONS}")
  endif()
  gtest_discover_tests(${PROGRAM} DISCOVERY_MODE PRE_TEST
    PROPERTIES ${PROPERTIES})
endfunction()

# zel_discover_device_tests(PROGRAM LABEL TIMEOUT FILTER)
# Registers tests of a program once more, to run with a C++ library that opens the random device as a file, as that
# of older macOS does. GNU's always does.
function(zel_discover_device_tests PROGRAM LABEL TIMEOUT FILTER)
  if(NOT CMAKE_CROSSCOMPILING_EMULATOR)
    return()
  endif()
  get_target_property(EMULATOR ${PROGRAM} CROSSCOMPILING_EMULATOR)
  list(TRANSFORM EMULATOR REPLACE "/root$" "/root-device" OUTPUT_VARIABLE OLDER_EMULATOR)
  set_target_properties(${PROGRAM} PROPERTIES CROSSCOMPILING_EMULATOR "${OLDER_EMULATOR}")
  gtest_discover_tests(${PROGRAM} DISCOVERY_MODE PRE_TEST TEST_PREFIX RandomDevice. TEST_FILTER "${FILTER}"
    PROPERTIES LABELS ${LABEL} TIMEOUT ${TIMEOUT})
  set_target_properties(${PROGRAM} PROPERTIES CROSSCOMPILING_EMULATOR "${EMULATOR}")
endfunction()
