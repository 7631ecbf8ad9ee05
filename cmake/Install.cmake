# What "cmake --install" installs: the library, the headers, the files for CMake and pkg-config, the pages, and on Linux
# the gdb command. No file contains the install folder, so the folder may be moved.

include(CMakePackageConfigHelpers)

set(ZEL_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/${PROJECT_NAME}")
set(ZEL_INSTALL_PKGCONFIGDIR "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

# Hosts open the library by its plain name at run time, so that link belongs to the runtime component.
install(TARGETS ZelTaskPool zel_headers EXPORT ZelTaskPoolTargets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime NAMELINK_COMPONENT runtime)

# Headers that only the library's own sources include are left out.
install(DIRECTORY QuenHost QuenInclude
  DESTINATION "${ZEL_INSTALL_INCLUDEDIR}" COMPONENT development FILES_MATCHING PATTERN "*.h")
install(DIRECTORY QuenPlugins/ZelTaskPool
  DESTINATION "${ZEL_INSTALL_INCLUDEDIR}/QuenPlugins" COMPONENT development
  FILES_MATCHING PATTERN "*.h" PATTERN "CLS_ShutdownClaim.h" EXCLUDE
  PATTERN "TaskPoolRecord.h" EXCLUDE PATTERN "ReserveEntry.h" EXCLUDE)

# The pages and the files they link to, under the same paths as in the sources.
set(ZEL_INSTALL_DOCUMENTATION "${CMAKE_INSTALL_DATADIR}/doc/${PROJECT_NAME}")
install(FILES README.md CHANGELOG.md SECURITY.md
  DESTINATION "${ZEL_INSTALL_DOCUMENTATION}" COMPONENT development)
install(DIRECTORY docs examples
  DESTINATION "${ZEL_INSTALL_DOCUMENTATION}" COMPONENT development)
install(DIRECTORY tests/consumer
  DESTINATION "${ZEL_INSTALL_DOCUMENTATION}/tests" COMPONENT development)

configure_package_config_file(cmake/package/ZelTaskPoolConfig.cmake.in "${PROJECT_BINARY_DIR}/ZelTaskPoolConfig.cmake"
  INSTALL_DESTINATION "${ZEL_INSTALL_CMAKEDIR}"
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/ZelTaskPoolConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/ZelTaskPoolConfig.cmake" "${PROJECT_BINARY_DIR}/ZelTaskPoolConfigVersion.cmake"
  DESTINATION "${ZEL_INSTALL_CMAKEDIR}" COMPONENT development)
install(EXPORT ZelTaskPoolTargets
  NAMESPACE ZelTaskPool:: DESTINATION "${ZEL_INSTALL_CMAKEDIR}" COMPONENT development)

file(RELATIVE_PATH ZEL_PREFIX_FROM_PKGCONFIG
  "${CMAKE_INSTALL_PREFIX}/${ZEL_INSTALL_PKGCONFIGDIR}" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" ZEL_PREFIX_FROM_PKGCONFIG "${ZEL_PREFIX_FROM_PKGCONFIG}")
configure_file(cmake/package/ZelTaskPool.pc.in "${PROJECT_BINARY_DIR}/ZelTaskPool.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/ZelTaskPool.pc"
  DESTINATION "${ZEL_INSTALL_PKGCONFIGDIR}" COMPONENT development)

if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  set(ZEL_GDB_COMMAND "${PROJECT_SOURCE_DIR}/QuenPlugins/ZelTaskPool/libZelTaskPool-gdb.py")
  install(FILES "${ZEL_GDB_COMMAND}"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/${PROJECT_NAME}" COMPONENT debugger)
endif()
