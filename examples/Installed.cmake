# Replaces what the surrounding project defines for the examples, if they are built with an installed library.

# Installed, the examples are in share/doc/ZelTaskPool/examples.
find_package(ZelTaskPool 1.0 REQUIRED HINTS "${PROJECT_SOURCE_DIR}/../../../..")
add_custom_target(ZelTaskPool) # there is nothing to build before them

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release)
endif()
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
include(GNUInstallDirs)

set(ZEL_BUILD_WINDOW_EXAMPLES ON)
set(ZEL_LOG_LIBRARY_NAME "libZelLog.dylib")

add_library(zel_compiler INTERFACE)
target_include_directories(zel_compiler INTERFACE "${PROJECT_SOURCE_DIR}/..")
target_link_libraries(zel_compiler INTERFACE ZelTaskPool::Headers)
# The programs find the installed library by its plain name.
target_link_options(zel_compiler INTERFACE "LINKER:-rpath,$<TARGET_FILE_DIR:ZelTaskPool::ZelTaskPool>")
