# GoogleTest for the cross-build. Debian's package contains the sources, whose targets have the same names as those of
# the installed package.
if(NOT TARGET GTest::gmock_main)
  set(INSTALL_GTEST OFF)
  add_subdirectory(/usr/src/googletest "${PROJECT_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL)
endif()
