# How a test program is made, and which of its tests are run.

find_package(GTest REQUIRED)
include(GoogleTest)

# A program for another system needs a loader that runs it here.
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

# zel_add_test(NAME SOURCE... [LABEL label] [TIMEOUT seconds] [INTERPOSE function...])
# A test program that is linked with the product's objects and may look inside its classes. It defines the
# functions after INTERPOSE and needs them in front of the system's in the C++ library, too. On Linux that is so by
# itself, and the loader does it for programs for macOS; a Mac does not, so there is no such program there.
function(zel_add_test NAME)
  cmake_parse_arguments(ARG "" "LABEL;TIMEOUT" "INTERPOSE" ${ARGN})
  if(ARG_INTERPOSE AND APPLE AND NOT CMAKE_CROSSCOMPILING_EMULATOR)
    return()
  endif()
  if(NOT ARG_LABEL)
    set(ARG_LABEL unit)
  endif()
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  add_executable(${NAME} ${ARG_UNPARSED_ARGUMENTS})
  target_link_libraries(${NAME} PRIVATE zel_taskpool_objects quen_include zel_test_support GTest::gmock_main)
  # The library's own sources stay optimised. The tests compile in half the time without.
  target_compile_options(${NAME} PRIVATE -fno-access-control -O0)
  # Programs that interpose functions of the system must offer them to the libraries that they load.
  set_target_properties(${NAME} PROPERTIES ENABLE_EXPORTS ON ZEL_LOOKS_INSIDE ON)
  zel_discover_tests(${NAME} ${ARG_LABEL} ${ARG_TIMEOUT} ${ARG_INTERPOSE})
endfunction()

# zel_wrap_memory(NAME SYMBOL...)
# Memory functions that a test program replaces. The sanitizers' runtimes bring their own, so there the linker
# puts the test's in front.
function(zel_wrap_memory NAME)
  if(ZEL_SANITIZE AND NOT APPLE)
    target_compile_definitions(${NAME} PRIVATE ZEL_TEST_WRAPPED_NEW)
    list(TRANSFORM ARGN PREPEND "LINKER:--wrap=")
    target_link_options(${NAME} PRIVATE ${ARGN})
  endif()
endfunction()

# zel_use_classes(NAME)
# A program that uses the library's classes from outside: their type information is not exported, and a
# sanitizer must not ask for it.
function(zel_use_classes NAME)
  if(ZEL_SANITIZE MATCHES "undefined")
    # A source's options come last, and the last one counts.
    get_target_property(SOURCES ${NAME} SOURCES)
    set_property(SOURCE ${SOURCES} APPEND PROPERTY COMPILE_OPTIONS -fno-sanitize=vptr)
  endif()
endfunction()

# zel_fail_memory(NAME)
# Lets a test program fail single allocations: see tests/support/FailingMemory.h.
function(zel_fail_memory NAME)
  target_sources(${NAME} PRIVATE "${PROJECT_SOURCE_DIR}/tests/support/FailingMemory.cpp")
  # The other sanitizers let a program bring its own operators.
  if(ZEL_SANITIZE MATCHES "thread")
    zel_wrap_memory(${NAME} _Znwm)
  endif()
endfunction()

# zel_hook_records(NAME SYMBOL...)
# Leads the product's calls of a record's constructor and destructor to a test program. Where the linker cannot do
# it, the program gets the product's sources compiled once more: see tests/support/HookedRecord.h.
function(zel_hook_records NAME)
  if(NOT APPLE)
    list(TRANSFORM ARGN PREPEND "LINKER:--wrap=")
    target_link_options(${NAME} PRIVATE ${ARGN})
    return()
  endif()
  set(HOOK "SHELL:-include \"${PROJECT_SOURCE_DIR}/tests/support/HookedRecord.h\"")
  if(NOT TARGET zel_hooked_objects)
    get_target_property(FOUNDATION_SOURCES quen_include SOURCES)
    get_target_property(POOL_SOURCES zel_taskpool_objects SOURCES)
    list(REMOVE_ITEM FOUNDATION_SOURCES Logger.cpp)
    list(TRANSFORM FOUNDATION_SOURCES PREPEND "${PROJECT_SOURCE_DIR}/QuenInclude/")
    list(TRANSFORM POOL_SOURCES PREPEND "${PROJECT_SOURCE_DIR}/QuenPlugins/ZelTaskPool/")
    add_library(zel_hooked_objects OBJECT ${FOUNDATION_SOURCES} ${POOL_SOURCES})
    target_link_libraries(zel_hooked_objects PUBLIC zel_compiler)
    target_compile_options(zel_hooked_objects PRIVATE "${HOOK}")
    add_library(zel_unhooked_objects OBJECT "${PROJECT_SOURCE_DIR}/QuenInclude/Logger.cpp")
    target_link_libraries(zel_unhooked_objects PUBLIC zel_compiler)
    target_compile_definitions(zel_unhooked_objects PRIVATE ZEL_LOG_LIBRARY_NAME="${ZEL_LOG_LIBRARY_NAME}")
  endif()
  get_target_property(LIBRARIES ${NAME} LINK_LIBRARIES)
  list(REMOVE_ITEM LIBRARIES zel_taskpool_objects quen_include)
  set_target_properties(${NAME} PROPERTIES
    LINK_LIBRARIES "zel_hooked_objects;zel_unhooked_objects;${LIBRARIES}")
  target_compile_options(${NAME} PRIVATE "${HOOK}")
endfunction()

# zel_exempt_records(NAME)
# Leaves log records out of that: see tests/support/UnfailingRecords.cpp.
function(zel_exempt_records NAME)
  target_sources(${NAME} PRIVATE "${PROJECT_SOURCE_DIR}/tests/support/UnfailingRecords.cpp")
  zel_hook_records(${NAME}
    _ZN6Logger16LogMessageStreamC1EPKcS2_S2_ii
    _ZN6Logger16LogMessageStreamD1Ev)
endfunction()

# zel_fail_records(NAME)
# Lets a test program fail the making of log records: see tests/support/FailingRecords.h.
function(zel_fail_records NAME)
  target_sources(${NAME} PRIVATE "${PROJECT_SOURCE_DIR}/tests/support/FailingRecords.cpp")
  zel_hook_records(${NAME} _ZN6Logger16LogMessageStreamC1EPKcS2_S2_ii)
endfunction()
