# Run by cpack after it packs. Packs an archive again, sorted by name and without a user, so that the same files give
# the same archive on every machine. Needs GNU tar, which Homebrew calls gtar; without it the archive stays unchanged.

find_program(TAR NAMES gtar tar REQUIRED)
execute_process(COMMAND "${TAR}" --version OUTPUT_VARIABLE TAR_VERSION ERROR_QUIET)
if(CPACK_PACKAGE_FILES MATCHES "\\.tar\\.gz$" AND TAR_VERSION MATCHES "GNU tar")
  get_filename_component(FOLDER "${CPACK_TEMPORARY_DIRECTORY}" NAME)
  get_filename_component(PARENT "${CPACK_TEMPORARY_DIRECTORY}" DIRECTORY)
  execute_process(COMMAND "${TAR}" --create --file "${CPACK_PACKAGE_FILES}" --use-compress-program "gzip -9n"
    --format ustar --sort name --owner 0 --group 0 --numeric-owner --directory "${PARENT}" "${FOLDER}"
    COMMAND_ERROR_IS_FATAL ANY)
endif()
