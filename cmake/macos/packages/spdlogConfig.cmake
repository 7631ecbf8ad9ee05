# spdlog for the cross-build: nothing but headers, which make-packages.sh has linked into the SDK.
set(spdlog_FOUND FALSE)
if(EXISTS "${CMAKE_OSX_SYSROOT}/usr/local/include/spdlog")
  set(spdlog_FOUND TRUE)
  add_library(spdlog::spdlog INTERFACE IMPORTED)
  target_include_directories(spdlog::spdlog INTERFACE "${CMAKE_OSX_SYSROOT}/usr/local/include")
  target_compile_definitions(spdlog::spdlog INTERFACE SPDLOG_HEADER_ONLY SPDLOG_FMT_EXTERNAL FMT_HEADER_ONLY)
endif()
