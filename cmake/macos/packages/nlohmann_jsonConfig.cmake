# JSON for Modern C++ for the cross-build: headers only. make-sdk.sh links them into the SDK.
set(nlohmann_json_FOUND FALSE)
if(EXISTS "${CMAKE_OSX_SYSROOT}/usr/local/include/nlohmann")
  set(nlohmann_json_FOUND TRUE)
  add_library(nlohmann_json::nlohmann_json INTERFACE IMPORTED)
  target_include_directories(nlohmann_json::nlohmann_json INTERFACE "${CMAKE_OSX_SYSROOT}/usr/local/include")
endif()
