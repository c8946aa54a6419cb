# Cross-builds for Linux on arm64: clang 19 and lld 19 over the packages of Debian that ./dev arm64
# unpacks.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/linux-toolchain.cmake)

get_filename_component(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/arm64/sysroot ABSOLUTE)
# While CMake asks the compiler for its folders, ccache must not make their paths relative.
unset(ENV{CCACHE_BASEDIR})
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
foreach(language ASM C CXX OBJC OBJCXX)
  set(CMAKE_${language}_COMPILER_TARGET aarch64-linux-gnu)
endforeach()
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT -fuse-ld=lld)
endforeach()

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
set(KELVRIN_GCC_INCLUDE ${CMAKE_SYSROOT}/usr/lib/gcc/aarch64-linux-gnu/12/include)
# LLVM's headers are the same everywhere, and this machine has them.
set(KELVRIN_LLVM_INCLUDE /usr/lib/llvm-19/include CACHE PATH "LLVM's headers")
set(KELVRIN_LLVM ${CMAKE_SYSROOT}/usr/lib/aarch64-linux-gnu/libLLVM-19.so CACHE FILEPATH
  "LLVM's library")
