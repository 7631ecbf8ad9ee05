# What cpack makes: a .tar.gz of all that is installed, and on Linux two Debian packages. scripts/package.sh makes
# and tries them.

set(CPACK_GENERATOR TGZ)
set(CPACK_PACKAGE_VENDOR "${PROJECT_NAME}")
set(CPACK_PACKAGE_FILE_NAME "${PROJECT_NAME}-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}")
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)

if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  list(APPEND CPACK_GENERATOR DEB)
  set(CPACK_COMPONENTS_ALL runtime development)
  set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_LIST_DIR}/package/EvenOut.cmake")
  set(CPACK_POST_BUILD_SCRIPTS "${CMAKE_CURRENT_LIST_DIR}/package/SortArchive.cmake")
  include(cmake/package/Debian.cmake)
endif()
include(CPack)
