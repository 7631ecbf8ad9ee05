# What cpack makes: a .tar.gz of everything that is installed and, on Linux, Debian packages. scripts/package.sh makes
# and tests them.

set(CPACK_GENERATOR TGZ)
set(CPACK_PACKAGE_VENDOR "${PROJECT_NAME}")
set(CPACK_PACKAGE_FILE_NAME "${PROJECT_NAME}-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}")
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)

find_package(Python3 QUIET COMPONENTS Interpreter)
set(CPACK_ZEL_PYTHON "${Python3_EXECUTABLE}")
set(CPACK_ZEL_DOCUMENTATION "${ZEL_INSTALL_DOCUMENTATION}")
set(CPACK_ZEL_HEADERS "${ZEL_INSTALL_INCLUDEDIR}")
set(CPACK_PRE_BUILD_SCRIPTS
  "${CMAKE_CURRENT_LIST_DIR}/package/FitLinks.cmake" "${CMAKE_CURRENT_LIST_DIR}/package/EvenOut.cmake")
set(CPACK_POST_BUILD_SCRIPTS "${CMAKE_CURRENT_LIST_DIR}/package/SortArchive.cmake")

if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  list(APPEND CPACK_GENERATOR DEB)
  include(cmake/package/Debian.cmake)
elseif(APPLE)
  list(LENGTH CMAKE_OSX_ARCHITECTURES ARCHS)
  if(ARCHS GREATER 1)
    set(CPACK_PACKAGE_FILE_NAME "${PROJECT_NAME}-${PROJECT_VERSION}-macOS-universal")
  else()
    set(CPACK_PACKAGE_FILE_NAME "${PROJECT_NAME}-${PROJECT_VERSION}-macOS-${CMAKE_SYSTEM_PROCESSOR}")
  endif()
  # cpack's own strip would keep the names of the objects.
  set(CPACK_STRIP_FILES OFF)
  set(CPACK_ZEL_STRIP "${CMAKE_STRIP}")
  list(PREPEND CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_LIST_DIR}/package/StripMacOS.cmake")
endif()
include(CPack)
