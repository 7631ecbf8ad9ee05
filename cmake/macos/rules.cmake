# Read after CMake's own rules for the platform. Those ask the host whether run paths exist; Linux has no answer,
# and install names and run paths would silently be left out.
foreach(LANGUAGE C CXX)
  set(CMAKE_SHARED_LIBRARY_RUNTIME_${LANGUAGE}_FLAG "-Wl,-rpath,")
endforeach()
