# What a build may choose. Everything else is a constant of the code.

option(ZEL_BUILD_EXAMPLES "Build the example host and the example logging library" ON)
option(ZEL_BUILD_FUZZERS "Build the fuzzers; for clang, see the preset \"fuzz\"" OFF)
option(ZEL_BUILD_BENCHMARKS "Build the benchmarks; see the preset \"bench\"" OFF)
option(ZEL_WERROR "Treat every compiler warning as an error" OFF)
option(ZEL_INSTALL_LOG_LIBRARY "Install the example logging library, too; programs that find it get records" OFF)

option(ZEL_COVERAGE "Count what is executed (clang); scripts/checks/coverage.sh reports it" OFF)

set(ZEL_SANITIZE "" CACHE STRING
  "Sanitizers to build with, as -fsanitize= takes them: \"thread\" or \"address,undefined\"")
set(ZEL_LOG_LIBRARY_NAME "libZelLog.dylib" CACHE STRING
  "File name of the logging library that the pool looks for at run time")
set(ZEL_PACKAGE_MAINTAINER "No maintainer yet <nobody@nowhere.invalid>" CACHE STRING
  "Who answers for the Debian packages, as NAME <ADDRESS>")

# Everything that is run lies in one folder, so that programs find the libraries beside them.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")

# Everything that is installed lies in one of the usual folders; the headers in one of their own, for they are
# included from its root.
include(GNUInstallDirs)
set(ZEL_INSTALL_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/${PROJECT_NAME}")
