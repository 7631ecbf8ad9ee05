# CLI11 for the cross-build: headers only. make-sdk.sh links them into the SDK.
set(CLI11_FOUND FALSE)
if(EXISTS "${CMAKE_OSX_SYSROOT}/usr/local/include/CLI")
  set(CLI11_FOUND TRUE)
  add_library(CLI11::CLI11 INTERFACE IMPORTED)
  target_include_directories(CLI11::CLI11 INTERFACE "${CMAKE_OSX_SYSROOT}/usr/local/include")
endif()
