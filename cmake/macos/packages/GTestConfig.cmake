# GoogleTest for the cross-build: Debian's package brings the sources along, and they name their targets like
# the installed package.
if(NOT TARGET GTest::gmock_main)
  set(INSTALL_GTEST OFF)
  add_subdirectory(/usr/src/googletest "${PROJECT_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL)
endif()
