# The Debian packages: the library, the files for building hosts, the example logging library, and the debug symbols of
# both libraries.

set(ZEL_DEBIAN_LIBRARY "libzeltaskpool${PROJECT_VERSION_MAJOR}")
set(ZEL_DEBIAN_DEVELOPMENT libzeltaskpool-dev)
set(ZEL_DEBIAN_LOGGING libzellog)
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
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "${ZEL_DEBIAN_LOGGING}")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
  "${ZEL_DEBIAN_TEXT}the headers, those of the host kit among
them, what CMake and pkg-config find the library by, the documentation and the
examples.")

set(CPACK_DEBIAN_LOGGING_PACKAGE_NAME "${ZEL_DEBIAN_LOGGING}")
set(CPACK_DEBIAN_LOGGING_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LOGGING_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_LOGGING_PACKAGE_ENHANCES "${ZEL_DEBIAN_LIBRARY}")
set(CPACK_DEBIAN_LOGGING_PACKAGE_CONTROL_EXTRA "${ZEL_DEBIAN_FILES}/triggers")
set(CPACK_COMPONENT_LOGGING_DESCRIPTION
  "${ZEL_DEBIAN_TEXT}a logging library. The pool opens it if it is
there, and then writes log records to standard error or to a file.")

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
  if(EXISTS "${ZEL_DEBIAN_FILES}/overrides-${COMPONENT}")
    install(FILES "${ZEL_DEBIAN_FILES}/overrides-${COMPONENT}" RENAME "${PACKAGE}"
      DESTINATION "${CMAKE_INSTALL_DATADIR}/lintian/overrides" COMPONENT ${COMPONENT} EXCLUDE_FROM_ALL)
  endif()
endfunction()
zel_install_debian_files("${ZEL_DEBIAN_LIBRARY}" runtime)
zel_install_debian_files("${ZEL_DEBIAN_DEVELOPMENT}" development)
zel_install_debian_files("${ZEL_DEBIAN_LOGGING}" logging)

# Where gdb looks for commands when it reads the library.
install(FILES "${ZEL_GDB_COMMAND}" RENAME "$<TARGET_FILE_NAME:ZelTaskPool>-gdb.py"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR}"
  COMPONENT runtime EXCLUDE_FROM_ALL)

find_program(READELF readelf REQUIRED)
# The debug symbols of a library, in a package of their own, which is found by the library's build id.
function(zel_package_symbols TARGET PACKAGE COMPONENT)
  set(SYMBOLS ${COMPONENT}_symbols)
  string(TOUPPER ${SYMBOLS} NAME)
  install(CODE "
    set(LIBRARY \"$<TARGET_FILE:${TARGET}>\")
    set(OBJCOPY \"${CMAKE_OBJCOPY}\")
    set(READELF \"${READELF}\")
    set(FOLDER \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/lib/debug/.build-id\")
    include(\"${PROJECT_SOURCE_DIR}/cmake/package/InstallSymbols.cmake\")"
    COMPONENT ${SYMBOLS} EXCLUDE_FROM_ALL)
  zel_install_debian_files(${PACKAGE}-dbgsym ${SYMBOLS})
  set(CPACK_DEBIAN_${NAME}_PACKAGE_NAME ${PACKAGE}-dbgsym PARENT_SCOPE)
  set(CPACK_DEBIAN_${NAME}_PACKAGE_SECTION debug PARENT_SCOPE)
  set(CPACK_DEBIAN_${NAME}_PACKAGE_DEPENDS "${PACKAGE} (= ${PROJECT_VERSION})" PARENT_SCOPE)
  set(CPACK_COMPONENT_${NAME}_DESCRIPTION "${ZEL_DEBIAN_TEXT}the debug symbols of the package
${PACKAGE}." PARENT_SCOPE)
endfunction()

set(CPACK_COMPONENTS_ALL runtime development runtime_symbols)
zel_package_symbols(ZelTaskPool "${ZEL_DEBIAN_LIBRARY}" runtime)
if(TARGET zel_log)
  list(APPEND CPACK_COMPONENTS_ALL logging logging_symbols)
  zel_package_symbols(zel_log "${ZEL_DEBIAN_LOGGING}" logging)
endif()
