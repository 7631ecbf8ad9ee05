# Run by cpack on what it is about to pack: whoever packs it, folders get the same rights, and everything the time
# SOURCE_DATE_EPOCH, if that is set, so that packages of the same sources are the same.

execute_process(COMMAND find "${CPACK_TEMPORARY_DIRECTORY}" -type d -exec chmod 755 {} + COMMAND_ERROR_IS_FATAL ANY)
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  # As every system's "touch -d" takes it.
  string(TIMESTAMP TIME "%Y-%m-%dT%H:%M:%SZ" UTC)
  execute_process(COMMAND find "${CPACK_TEMPORARY_DIRECTORY}" -exec touch -h -d "${TIME}" {} +
    COMMAND_ERROR_IS_FATAL ANY)
endif()
