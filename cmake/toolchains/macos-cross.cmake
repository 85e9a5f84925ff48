# Builds for a Mac on a host that is none, with clang (16 or later), lld, llvm's tools and a Mac's SDK:
#
#   QLX_MAC_SDK=/path/to/MacOSX.sdk cmake --preset macos-cross ...
#
# The SDK is laid out as Xcode lays it out, with usr/include, usr/lib and System/Library/Frameworks.
# docs/building.md says the rest.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 21)  # the kernel of macOS 12
set(CMAKE_SYSTEM_PROCESSOR arm64)

if(NOT QLX_MAC_SDK)
  set(QLX_MAC_SDK "$ENV{QLX_MAC_SDK}")
endif()
set(QLX_MAC_SDK "${QLX_MAC_SDK}" CACHE PATH "The SDK folder of a Mac")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QLX_MAC_SDK)
if(NOT IS_DIRECTORY "${QLX_MAC_SDK}")
  message(FATAL_ERROR "QLX_MAC_SDK is '${QLX_MAC_SDK}'; it must name the folder of a Mac's SDK")
endif()
foreach(part IN ITEMS
    usr/include/stdio.h usr/include/c++/v1/version usr/lib/libSystem.tbd
    System/Library/Frameworks/CoreFoundation.framework/CoreFoundation.tbd)
  if(NOT EXISTS "${QLX_MAC_SDK}/${part}")
    message(FATAL_ERROR "the SDK ${QLX_MAC_SDK} has no ${part}")
  endif()
endforeach()

# One version of all tools, the newest that is there whole.
if(NOT QLX_LLVM_SUFFIX)
  foreach(version IN ITEMS 21 20 19 18 17 16)
    unset(found CACHE)
    find_program(found NAMES clang++-${version} NO_CMAKE_FIND_ROOT_PATH)
    if(found)
      set(QLX_LLVM_SUFFIX "-${version}")
      break()
    endif()
  endforeach()
  unset(found CACHE)
endif()
set(QLX_LLVM_SUFFIX "${QLX_LLVM_SUFFIX}" CACHE STRING
    "What the names of the tools end in, such as -19 (empty: nothing)")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QLX_LLVM_SUFFIX)
foreach(tool IN ITEMS
    clang clang++ ld64.lld llvm-lipo llvm-libtool-darwin llvm-ar llvm-ranlib llvm-install-name-tool)
  find_program(QLX_TOOL_${tool} NAMES ${tool}${QLX_LLVM_SUFFIX} NO_CMAKE_FIND_ROOT_PATH)
  if(NOT QLX_TOOL_${tool})
    message(FATAL_ERROR "there is no ${tool}${QLX_LLVM_SUFFIX}; clang, lld and llvm of one version are "
                        "needed, 16 or later (QLX_LLVM_SUFFIX says what their names end in)")
  endif()
endforeach()
set(CMAKE_C_COMPILER "${QLX_TOOL_clang}")
set(CMAKE_CXX_COMPILER "${QLX_TOOL_clang++}")
set(CMAKE_AR "${QLX_TOOL_llvm-ar}" CACHE FILEPATH "")
set(CMAKE_RANLIB "${QLX_TOOL_llvm-ranlib}" CACHE FILEPATH "")
set(CMAKE_INSTALL_NAME_TOOL "${QLX_TOOL_llvm-install-name-tool}" CACHE FILEPATH "")
set(CMAKE_C_COMPILER_TARGET arm64-apple-macos12)
set(CMAKE_CXX_COMPILER_TARGET arm64-apple-macos12)
set(CMAKE_OSX_SYSROOT "${QLX_MAC_SDK}" CACHE PATH "")
# An archiver would put objects for two processors into the library as they are, which no linker reads.
foreach(language IN ITEMS C CXX)
  set(CMAKE_${language}_ARCHIVE_CREATE "\"${QLX_TOOL_llvm-libtool-darwin}\" -static -o <TARGET> <OBJECTS>")
  set(CMAKE_${language}_ARCHIVE_FINISH "")
endforeach()

# clang looks for the linker and for what puts the processors' code together by a Mac's names.
set(tools "${CMAKE_BINARY_DIR}/tools")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QLX_CROSS_TOOLS)
if(NOT QLX_CROSS_TOOLS)
  set(QLX_CROSS_TOOLS "${tools}")
  file(MAKE_DIRECTORY "${tools}")
  file(CREATE_LINK "${QLX_TOOL_llvm-lipo}" "${tools}/lipo" SYMBOLIC)
  file(CREATE_LINK "${QLX_TOOL_ld64.lld}" "${tools}/ld64.lld" SYMBOLIC)
endif()
# Quoted inside the strings: a shell takes them apart.
set(CMAKE_C_FLAGS_INIT "\"-B${QLX_CROSS_TOOLS}\"")
# The SDK's C++ library before one that the compiler has beside itself for the host.
set(CMAKE_CXX_FLAGS_INIT "\"-B${QLX_CROSS_TOOLS}\" -nostdinc++ -isystem \"${QLX_MAC_SDK}/usr/include/c++/v1\"")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-fuse-ld=lld")

set(CMAKE_FIND_ROOT_PATH "${QLX_MAC_SDK}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
