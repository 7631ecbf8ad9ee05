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
  # Checks the lock rules of QuenInclude/ThreadSafety.h; only clang can. Test programs that access private members set
  # ZEL_LOOKS_INSIDE: a test knows when no other thread runs, the compiler does not.
  target_compile_options(zel_compiler INTERFACE
    "$<$<NOT:$<BOOL:$<TARGET_PROPERTY:ZEL_LOOKS_INSIDE>>>:-Wthread-safety;-Wthread-safety-beta>")
endif()

# Release builds do not reveal the build folder. Other builds keep it for the debugger.
target_compile_options(zel_compiler INTERFACE
  "$<$<CONFIG:Release,MinSizeRel>:-ffile-prefix-map=${PROJECT_BINARY_DIR}=build;-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>")

# The debug symbols ship separately. They name the sources below a root that a debugger maps to a checkout.
target_compile_options(zel_compiler INTERFACE
  "$<$<CONFIG:Release,MinSizeRel>:-fdebug-prefix-map=${PROJECT_SOURCE_DIR}=/${PROJECT_NAME}>")

if(APPLE)
  target_compile_options(zel_compiler INTERFACE
    "$<$<AND:$<CONFIG:Release,MinSizeRel>,$<BOOL:${ZEL_MACOS_SDK}>>:-fdebug-prefix-map=${ZEL_MACOS_SDK}=/macos-sdk>")
  # An ad hoc signature in both parts of a universal file. It names no identity, but proves that the file is intact.
  add_link_options(LINKER:-adhoc_codesign)
  # A linked file lists its objects for dsymutil. Omit the build folder and the timestamps.
  add_link_options("$<$<CONFIG:Release,MinSizeRel>:LINKER:-oso_prefix,${PROJECT_BINARY_DIR}/>")
  set(CMAKE_CXX_LINKER_LAUNCHER "${CMAKE_COMMAND}" -E env ZERO_AR_DATE=1)
endif()

if(ZEL_SANITIZE)
  target_compile_options(zel_compiler INTERFACE
    -fsanitize=${ZEL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(zel_compiler INTERFACE -fsanitize=${ZEL_SANITIZE})
endif()

if(ZEL_COVERAGE)
  # One file per program. All its processes, and the libraries that they open, merge their counts into it.
  set(ZEL_PROFILE "-fprofile-instr-generate=${PROJECT_BINARY_DIR}/profiles/%m.profraw")
  # Many threads count at once. A lost count would look like a line that never ran.
  target_compile_options(zel_compiler INTERFACE
    "${ZEL_PROFILE}" -fcoverage-mapping -fcoverage-mcdc -fprofile-update=atomic
    "-fprofile-list=${PROJECT_SOURCE_DIR}/cmake/counted-sources.txt")
  target_link_options(zel_compiler INTERFACE "${ZEL_PROFILE}")
endif()

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Unique symbols would keep the library in the process: a host could never unload it.
  target_compile_options(zel_compiler INTERFACE -fno-gnu-unique)
endif()
