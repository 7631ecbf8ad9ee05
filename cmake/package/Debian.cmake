# The Debian packages: the library, and the files for building hosts.

set(ZEL_DEBIAN_LIBRARY "libzeltaskpool${PROJECT_VERSION_MAJOR}")
set(ZEL_DEBIAN_DEVELOPMENT libzeltaskpool-dev)
set(ZEL_DEBIAN_FILES "${CMAKE_CURRENT_LIST_DIR}/debian")
set(ZEL_DEBIAN_BUILT "${PROJECT_BINARY_DIR}/debian")
set(ZEL_DEBIAN_TEXT "Hosts hand it callables, which it runs in the background on up to 301 threads:
once, on behalf of an owner that may cancel them as a group, or again and
again, a fixed time after the last run ended.
This package holds ")

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${ZEL_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME "${ZEL_DEBIAN_LIBRARY}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${ZEL_DEBIAN_FILES}/triggers;${ZEL_DEBIAN_BUILT}/shlibs")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "${ZEL_DEBIAN_TEXT}the library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME "${ZEL_DEBIAN_DEVELOPMENT}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${ZEL_DEBIAN_LIBRARY} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
  "${ZEL_DEBIAN_TEXT}the headers, and what CMake and pkg-config find the
library by.")

find_program(GZIP gzip REQUIRED)
string(TIMESTAMP ZEL_DEBIAN_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC) # SOURCE_DATE_EPOCH, if set
foreach(FILE changelog shlibs)
  configure_file("${ZEL_DEBIAN_FILES}/${FILE}.in" "${ZEL_DEBIAN_BUILT}/${FILE}" @ONLY)
endforeach()
execute_process(COMMAND "${GZIP}" -9nkf "${ZEL_DEBIAN_BUILT}/changelog" COMMAND_ERROR_IS_FATAL ANY)

# Files that only these packages contain.
function(zel_install_debian_files PACKAGE COMPONENT)
  install(FILES "${ZEL_DEBIAN_FILES}/copyright" "${ZEL_DEBIAN_BUILT}/changelog.gz"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${PACKAGE}" COMPONENT ${COMPONENT} EXCLUDE_FROM_ALL)
  install(FILES "${ZEL_DEBIAN_FILES}/overrides-${COMPONENT}" RENAME "${PACKAGE}"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/lintian/overrides" COMPONENT ${COMPONENT} EXCLUDE_FROM_ALL)
endfunction()
zel_install_debian_files("${ZEL_DEBIAN_LIBRARY}" runtime)
zel_install_debian_files("${ZEL_DEBIAN_DEVELOPMENT}" development)
