# Language level, warnings and sanitizers of every target of the project.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_package(Threads REQUIRED)

add_library(zel_compiler INTERFACE)
target_include_directories(zel_compiler INTERFACE "${PROJECT_SOURCE_DIR}")
target_link_libraries(zel_compiler INTERFACE Threads::Threads ${CMAKE_DL_LIBS})
target_compile_options(zel_compiler INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  $<$<BOOL:${ZEL_WERROR}>:-Werror>)

if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # The lock discipline of QuenInclude/ThreadSafety.h; no other compiler checks it. Programs that look inside
  # classes say so with this property: a test knows when nobody else is there, and the compiler cannot.
  target_compile_options(zel_compiler INTERFACE
    "$<$<NOT:$<BOOL:$<TARGET_PROPERTY:ZEL_LOOKS_INSIDE>>>:-Wthread-safety;-Wthread-safety-beta>")
endif()

# What ships does not tell where it was built. Other builds do, for their debuggers.
target_compile_options(zel_compiler INTERFACE
  "$<$<CONFIG:Release,MinSizeRel>:-ffile-prefix-map=${PROJECT_BINARY_DIR}=build;-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>")

if(ZEL_SANITIZE)
  target_compile_options(zel_compiler INTERFACE
    -fsanitize=${ZEL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(zel_compiler INTERFACE -fsanitize=${ZEL_SANITIZE})
endif()

if(ZEL_COVERAGE)
  # One file a program, which its processes and the libraries that they open merge what they counted into.
  set(ZEL_PROFILE "-fprofile-instr-generate=${PROJECT_BINARY_DIR}/profiles/%m.profraw")
  # Many threads count, and a lost count would be a lost line.
  target_compile_options(zel_compiler INTERFACE
    "${ZEL_PROFILE}" -fcoverage-mapping -fcoverage-mcdc -fprofile-update=atomic
    "-fprofile-list=${PROJECT_SOURCE_DIR}/cmake/counted-sources.txt")
  target_link_options(zel_compiler INTERFACE "${ZEL_PROFILE}")
endif()

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Unique symbols would pin a library in the process: a host could never unload it.
  target_compile_options(zel_compiler INTERFACE -fno-gnu-unique)
endif()
