# Run by cpack before it packs. Adapts the links of the pages to the files that are packed with them.

# The root of an archive, and that of the Debian package that has the pages.
foreach(ROOT "${CPACK_TEMPORARY_DIRECTORY}" "${CPACK_TEMPORARY_DIRECTORY}/development/usr")
  set(PAGES "${ROOT}/${CPACK_ZEL_DOCUMENTATION}")
  if(EXISTS "${PAGES}")
    if(NOT CPACK_ZEL_PYTHON)
      message(FATAL_ERROR "A package with the documentation needs Python 3")
    endif()
    execute_process(COMMAND "${CPACK_ZEL_PYTHON}" "${CMAKE_CURRENT_LIST_DIR}/fit_links.py"
        "${PAGES}" "${ROOT}/${CPACK_ZEL_HEADERS}"
      COMMAND_ERROR_IS_FATAL ANY)
  endif()
endforeach()
