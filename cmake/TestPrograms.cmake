# How test programs are built, and which of their tests run.

find_package(GTest REQUIRED)
include(GoogleTest)

# A program for another system needs a loader that runs it here.
set(ZEL_TESTS_RUN ON)
if(CMAKE_CROSSCOMPILING AND NOT CMAKE_CROSSCOMPILING_EMULATOR)
  set(ZEL_TESTS_RUN OFF)
  message(STATUS "The test programs are built but do not run: there is no loader for them (ZEL_MACHRUN)")
endif()

# zel_discover_tests(PROGRAM LABEL TIMEOUT [FUNCTION...])
# Registers each test of a program, with a timeout in seconds. Under the loader, the program's functions of these names
# replace the system's.
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
  gtest_discover_tests(${PROGRAM} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120
    PROPERTIES ${PROPERTIES})
endfunction()

# zel_discover_device_tests(PROGRAM LABEL TIMEOUT FILTER)
# Registers tests of a program a second time, with a C++ library that opens the random device as a file. That of older
# macOS does, and GNU's library always does.
function(zel_discover_device_tests PROGRAM LABEL TIMEOUT FILTER)
  if(NOT CMAKE_CROSSCOMPILING_EMULATOR)
    return()
  endif()
  get_target_property(EMULATOR ${PROGRAM} CROSSCOMPILING_EMULATOR)
  list(TRANSFORM EMULATOR REPLACE "/root$" "/root-device" OUTPUT_VARIABLE OLDER_EMULATOR)
  set_target_properties(${PROGRAM} PROPERTIES CROSSCOMPILING_EMULATOR "${OLDER_EMULATOR}")
  gtest_discover_tests(${PROGRAM} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120
    TEST_PREFIX RandomDevice. TEST_FILTER "${FILTER}"
    PROPERTIES LABELS ${LABEL} TIMEOUT ${TIMEOUT})
  set_target_properties(${PROGRAM} PROPERTIES CROSSCOMPILING_EMULATOR "${EMULATOR}")
endfunction()

# zel_add_views(TARGET)
# Adds the views of tests/support to a target. They alone may write the private names of the library's classes.
function(zel_add_views TARGET)
  set(VIEWS BasicView LivingScopeView LoadTurnView LogBindingView LogRecordView PoolView RunGateView ShutdownClaimView
    TaskView VariantView WorkerView)
  list(TRANSFORM VIEWS PREPEND "${PROJECT_SOURCE_DIR}/tests/support/")
  list(TRANSFORM VIEWS APPEND ".cpp")
  target_sources(${TARGET} PRIVATE ${VIEWS})
  set_source_files_properties(${VIEWS} TARGET_DIRECTORY ${TARGET} PROPERTIES COMPILE_OPTIONS -fno-access-control)
endfunction()

# zel_build_quickly(NAME)
# Halves the compiler's time for a test program, if the build asks for it. The first call precompiles the system's
# headers for all.
function(zel_build_quickly NAME)
  if(NOT ZEL_QUICK_TEST_BUILD)
    return()
  endif()
  target_compile_options(${NAME} PRIVATE -O0)
  get_property(OWNER GLOBAL PROPERTY ZEL_PRECOMPILED_HEADERS)
  if(OWNER)
    target_precompile_headers(${NAME} REUSE_FROM ${OWNER})
    return()
  endif()
  target_precompile_headers(${NAME} PRIVATE
    <gmock/gmock.h> <array> <atomic> <chrono> <condition_variable> <filesystem> <fstream> <functional> <future> <map>
    <mutex> <set> <shared_mutex> <thread>)
  set_property(GLOBAL PROPERTY ZEL_PRECOMPILED_HEADERS ${NAME})
endfunction()

# zel_add_test(NAME SOURCE... [LABEL label] [TIMEOUT seconds] [INTERPOSE function...])
# A test program that is linked with the product's objects and accesses private members through the views. It
# defines the functions after INTERPOSE, which must replace the system's in the C++ library, too. Linux and the loader
# do so; a Mac does not, so such programs are not built there.
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
  target_link_libraries(${NAME} PRIVATE zel_taskpool_objects quen_include zel_test_views zel_test_support GTest::gmock_main)
  # Without optimisation, the tests compile in half the time. The library's own sources stay optimised.
  target_compile_options(${NAME} PRIVATE -O0)
  zel_build_quickly(${NAME})
  # Programs that replace system functions must export them to the libraries that they load.
  set_target_properties(${NAME} PROPERTIES ENABLE_EXPORTS ON ZEL_LOOKS_INSIDE ON)
  zel_discover_tests(${NAME} ${ARG_LABEL} ${ARG_TIMEOUT} ${ARG_INTERPOSE})
endfunction()

# zel_wrap_memory(NAME SYMBOL...)
# Memory functions that a test program replaces. The sanitizers' runtimes define their own, so with a sanitizer the
# linker redirects the calls.
function(zel_wrap_memory NAME)
  if(ZEL_SANITIZE AND NOT APPLE)
    target_compile_definitions(${NAME} PRIVATE ZEL_TEST_WRAPPED_NEW)
    list(TRANSFORM ARGN PREPEND "LINKER:--wrap=")
    target_link_options(${NAME} PRIVATE ${ARGN})
  endif()
endfunction()

# zel_use_classes(NAME)
# A program that uses the library's classes from outside. Their type information is not exported, so the sanitizer
# must not check it.
function(zel_use_classes NAME)
  if(ZEL_SANITIZE MATCHES "undefined")
    # The options of a source come last, and the last option wins.
    get_target_property(SOURCES ${NAME} SOURCES)
    set_property(SOURCE ${SOURCES} APPEND PROPERTY COMPILE_OPTIONS -fno-sanitize=vptr)
  endif()
endfunction()

# zel_fail_memory(NAME)
# Lets a test program make single allocations fail: see tests/support/FailingMemory.h.
function(zel_fail_memory NAME)
  target_sources(${NAME} PRIVATE "${PROJECT_SOURCE_DIR}/tests/support/FailingMemory.cpp")
  # With the other sanitizers, a program may define its own operators.
  if(ZEL_SANITIZE MATCHES "thread")
    zel_wrap_memory(${NAME} _Znwm)
  endif()
endfunction()

# zel_hook_records(NAME SYMBOL...)
# Redirects the product's calls of a log record's constructor and destructor to a test program. If the linker cannot do
# that, the product's sources are compiled again for the program: see tests/support/HookedRecord.h.
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
  # A precompiled header works only as the first one that is included.
  set_target_properties(${NAME} PROPERTIES
    LINK_LIBRARIES "zel_hooked_objects;zel_unhooked_objects;${LIBRARIES}" DISABLE_PRECOMPILE_HEADERS ON)
  target_compile_options(${NAME} PRIVATE "${HOOK}")
endfunction()

# zel_exempt_records(NAME)
# Exempts log records from failing allocations: see tests/support/UnfailingRecords.cpp.
function(zel_exempt_records NAME)
  target_sources(${NAME} PRIVATE "${PROJECT_SOURCE_DIR}/tests/support/UnfailingRecords.cpp")
  zel_hook_records(${NAME}
    _ZN6Logger16LogMessageStreamC1EPKcS2_S2_ii
    _ZN6Logger16LogMessageStreamD1Ev)
endfunction()

# zel_fail_records(NAME)
# Lets a test program make the creation of log records fail: see tests/support/FailingRecords.h.
function(zel_fail_records NAME)
  target_sources(${NAME} PRIVATE "${PROJECT_SOURCE_DIR}/tests/support/FailingRecords.cpp")
  zel_hook_records(${NAME} _ZN6Logger16LogMessageStreamC1EPKcS2_S2_ii)
endfunction()
