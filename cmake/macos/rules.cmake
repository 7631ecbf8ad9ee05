# Read after CMake's own rules for the platform. These ask the host system about run paths. Linux cannot answer, so
# CMake would silently omit install names and run paths.
foreach(LANGUAGE C CXX)
  set(CMAKE_SHARED_LIBRARY_RUNTIME_${LANGUAGE}_FLAG "-Wl,-rpath,")
endforeach()
