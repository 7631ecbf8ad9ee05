# Run by cpack before it packs. Makes packages reproducible: folders get the same permissions for every user, and all
# files get the time SOURCE_DATE_EPOCH, if set.

execute_process(COMMAND find "${CPACK_TEMPORARY_DIRECTORY}" -type d -exec chmod 755 {} + COMMAND_ERROR_IS_FATAL ANY)
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  # The form that "touch -d" accepts on every system.
  string(TIMESTAMP TIME "%Y-%m-%dT%H:%M:%SZ" UTC)
  execute_process(COMMAND find "${CPACK_TEMPORARY_DIRECTORY}" -exec touch -h -d "${TIME}" {} +
    COMMAND_ERROR_IS_FATAL ANY)
endif()
