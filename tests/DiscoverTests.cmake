# Which tests of a program are run. A program for another system needs a loader that runs it here.

set(LEFT_OUT_FILTER "")
set(ZEL_TESTS_RUN ON)
if(CMAKE_CROSSCOMPILING_EMULATOR)
  include(LeftOutUnderLoader.cmake)
elseif(CMAKE_CROSSCOMPILING)
  set(ZEL_TESTS_RUN OFF)
  message(STATUS "The test programs are built and not run: there is no loader for them (ZEL_MACHRUN)")
endif()

# zel_discover_tests(PROGRAM LABEL TIMEOUT)
# Registers each test of a program, with a limit in seconds.
function(zel_discover_tests PROGRAM LABEL TIMEOUT)
  if(NOT ZEL_TESTS_RUN)
    return()
  endif()
  gtest_discover_tests(${PROGRAM} DISCOVERY_MODE PRE_TEST TEST_FILTER "${LEFT_OUT_FILTER}"
    PROPERTIES LABELS ${LABEL} TIMEOUT ${TIMEOUT})
endfunction()
