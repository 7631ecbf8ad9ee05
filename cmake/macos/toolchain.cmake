# Builds for macOS on Linux, with Debian's clang and ld64.lld and the SDK of make-sdk.sh. The C++ runtime is the
# system's /usr/lib/libc++.1.dylib, so that library and host share it.

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 20.1.0) # macOS 11.0

set(ZEL_MACOS_SDK "${CMAKE_CURRENT_LIST_DIR}/../../build/macos-sdk" CACHE PATH "The SDK folder of make-sdk.sh")
set(ZEL_MACOS_ARCHS x86_64 CACHE STRING "x86_64, arm64, or both as a list")
set(ZEL_MACHRUN "${CMAKE_CURRENT_LIST_DIR}/../../build/machrun" CACHE PATH
  "The folder of make-loader.sh: the loader for macOS x86-64 programs")
# CMake's trial projects read this file again.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZEL_MACOS_SDK ZEL_MACOS_ARCHS)

if(NOT EXISTS "${ZEL_MACOS_SDK}/usr/lib/libSystem.tbd")
  message(FATAL_ERROR "No SDK in ${ZEL_MACOS_SDK}: run cmake/macos/make-sdk.sh first")
endif()

list(GET ZEL_MACOS_ARCHS 0 CMAKE_SYSTEM_PROCESSOR)
set(CMAKE_OSX_ARCHITECTURES "${ZEL_MACOS_ARCHS}" CACHE STRING "" FORCE)
set(CMAKE_OSX_SYSROOT "${ZEL_MACOS_SDK}" CACHE PATH "" FORCE)
set(CMAKE_OSX_DEPLOYMENT_TARGET 11.0 CACHE STRING "" FORCE)

find_program(CMAKE_C_COMPILER clang-19 REQUIRED)
find_program(CMAKE_CXX_COMPILER clang++-19 REQUIRED)
find_program(CMAKE_LINKER ld64.lld-19 REQUIRED)
foreach(TOOL AR INSTALL_NAME_TOOL LIPO NM OBJDUMP OTOOL RANLIB STRIP)
  string(TOLOWER "llvm-${TOOL}-19" PROGRAM)
  string(REPLACE "_" "-" PROGRAM "${PROGRAM}")
  find_program(CMAKE_${TOOL} ${PROGRAM} REQUIRED)
endforeach()
set(CMAKE_C_COMPILER_TARGET ${CMAKE_SYSTEM_PROCESSOR}-apple-macosx11.0)
set(CMAKE_CXX_COMPILER_TARGET ${CMAKE_C_COMPILER_TARGET})

# Options of the folder stay in force if a user sets CMAKE_CXX_FLAGS.
file(STRINGS "${CMAKE_CURRENT_LIST_DIR}/libc++-config.txt" ZEL_MACOS_RUNTIME REGEX "^[^#]")
add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:${ZEL_MACOS_RUNTIME}>")
# The SDK contains lipo, which the compiler needs to join the objects of several architectures.
add_compile_options("-B${ZEL_MACOS_SDK}/usr/bin")
add_link_options("-B${ZEL_MACOS_SDK}/usr/bin")
foreach(KIND EXE SHARED MODULE)
  set(CMAKE_${KIND}_LINKER_FLAGS_INIT "-fuse-ld=lld --ld-path=${CMAKE_LINKER}")
endforeach()

set(CMAKE_USER_MAKE_RULES_OVERRIDE "${CMAKE_CURRENT_LIST_DIR}/rules.cmake")
set(CMAKE_MACOSX_RPATH ON)

# Finds only what is in the SDK or in CMAKE_PREFIX_PATH, nothing of this machine.
set(CMAKE_FIND_ROOT_PATH "${ZEL_MACOS_SDK}" ${CMAKE_PREFIX_PATH})
string(REPLACE ":" ";" ZEL_MACOS_ENVIRONMENT "$ENV{CMAKE_PREFIX_PATH}")
list(APPEND CMAKE_FIND_ROOT_PATH ${ZEL_MACOS_ENVIRONMENT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

if(EXISTS "${ZEL_MACHRUN}/machrun" AND "x86_64" IN_LIST ZEL_MACOS_ARCHS)
  set(CMAKE_CROSSCOMPILING_EMULATOR "${ZEL_MACHRUN}/machrun" --root "${ZEL_MACHRUN}/root")
endif()
