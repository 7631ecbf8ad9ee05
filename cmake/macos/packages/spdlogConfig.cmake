# spdlog for the cross-build and for universal files on a Mac: headers only, because its libraries are built for one
# processor. make-sdk.sh links them into the SDK; on a Mac, Homebrew installs them.
set(spdlog_FOUND FALSE)
find_path(ZEL_SPDLOG_INCLUDE NAMES spdlog/spdlog.h)
find_path(ZEL_FMT_INCLUDE NAMES fmt/format.h)
mark_as_advanced(ZEL_SPDLOG_INCLUDE ZEL_FMT_INCLUDE)
if(ZEL_SPDLOG_INCLUDE AND ZEL_FMT_INCLUDE)
  set(spdlog_FOUND TRUE)
  add_library(spdlog::spdlog INTERFACE IMPORTED)
  target_include_directories(spdlog::spdlog INTERFACE "${ZEL_SPDLOG_INCLUDE}" "${ZEL_FMT_INCLUDE}")
  target_compile_definitions(spdlog::spdlog INTERFACE SPDLOG_HEADER_ONLY SPDLOG_FMT_EXTERNAL FMT_HEADER_ONLY)
endif()
