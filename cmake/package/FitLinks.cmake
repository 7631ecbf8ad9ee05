# Run by cpack before it packs. Adapts the links of the pages to the files that are packed with them.

set(PAGES "${CPACK_TEMPORARY_DIRECTORY}/${CPACK_ZEL_DOCUMENTATION}")
if(EXISTS "${PAGES}") # Debian packages contain no pages
  if(NOT CPACK_ZEL_PYTHON)
    message(FATAL_ERROR "An archive with the documentation needs Python 3")
  endif()
  execute_process(COMMAND "${CPACK_ZEL_PYTHON}" "${CMAKE_CURRENT_LIST_DIR}/fit_links.py"
      "${PAGES}" "${CPACK_TEMPORARY_DIRECTORY}/${CPACK_ZEL_HEADERS}"
    COMMAND_ERROR_IS_FATAL ANY)
endif()
