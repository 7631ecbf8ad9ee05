# The options of a build. Everything else is a constant of the code.

option(ZEL_BUILD_EXAMPLES "Build the example host and the example logging library" ON)
option(ZEL_BUILD_FUZZERS "Build the fuzzers (clang only; see the preset \"fuzz\")" OFF)
option(ZEL_BUILD_BENCHMARKS "Build the benchmarks (see the preset \"bench\")" OFF)
option(ZEL_WERROR "Treat every compiler warning as an error" OFF)
option(ZEL_INSTALL_LOG_LIBRARY "Also install the example logging library; programs that find it get log records" OFF)
option(ZEL_COVERAGE "Count what is executed (clang only; see scripts/checks/coverage.sh)" OFF)
option(ZEL_QUICK_TEST_BUILD "Build tests quickly: without optimisation, with the system's headers precompiled" OFF)

set(ZEL_SANITIZE "" CACHE STRING
  "Sanitizers, in the form of -fsanitize=: \"thread\" or \"address,undefined\"")
# The Qt of a system has no sanitizers, and cannot be linked for another system.
set(ZEL_WINDOWS_DEFAULT ON)
if(ZEL_SANITIZE OR ZEL_COVERAGE OR CMAKE_CROSSCOMPILING)
  set(ZEL_WINDOWS_DEFAULT OFF)
endif()
option(ZEL_BUILD_WINDOW_EXAMPLES "Build the examples with windows if Qt 6 is found" ${ZEL_WINDOWS_DEFAULT})

set(ZEL_LOG_LIBRARY_NAME "libZelLog.dylib" CACHE STRING
  "File name of the logging library that the pool opens at run time")
set(ZEL_PACKAGE_MAINTAINER "No maintainer yet <nobody@nowhere.invalid>" CACHE STRING
  "Maintainer of the Debian packages, as NAME <ADDRESS>")

# All programs and libraries are in one folder, so that the programs find the libraries.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")

# Installed files go to the usual folders. The headers get a folder of their own: include paths start there.
include(GNUInstallDirs)
set(ZEL_INSTALL_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/${PROJECT_NAME}")
