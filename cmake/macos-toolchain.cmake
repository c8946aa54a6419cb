# Cross-builds for macOS on Linux: clang 19 and lld 19 over the SDK that platform/macos/make-sdk puts
# together. One configuration makes both slices.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 23.5.0)
set(CMAKE_SYSTEM_PROCESSOR arm64)

set(KELVRIN_MACOS_SDK ${CMAKE_CURRENT_LIST_DIR}/../build/macos-sdk CACHE PATH "SDK of cross-builds")
get_filename_component(KELVRIN_MACOS_SDK "${KELVRIN_MACOS_SDK}" ABSOLUTE)
if(NOT EXISTS ${KELVRIN_MACOS_SDK}/usr/lib/libSystem.tbd)
  message(FATAL_ERROR "There is no SDK in ${KELVRIN_MACOS_SDK}; ./dev macos makes it")
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KELVRIN_MACOS_SDK)

# Nothing of this machine's environment gets in while configuring; ./dev keeps it out of builds too.
foreach(variable LIBRARY_PATH CPATH C_INCLUDE_PATH CPLUS_INCLUDE_PATH OBJCPLUS_INCLUDE_PATH
        OBJC_INCLUDE_PATH SDKROOT MACOSX_DEPLOYMENT_TARGET)
  unset(ENV{${variable}})
endforeach()

find_program(KELVRIN_CLANG clang-19 REQUIRED)
find_program(KELVRIN_CLANGXX clang++-19 REQUIRED)
foreach(tool ar ranlib nm strip objdump install-name-tool libtool-darwin)
  string(TOUPPER ${tool} variable)
  string(REPLACE "-" "_" variable ${variable})
  find_program(KELVRIN_${variable} llvm-${tool}-19 REQUIRED)
endforeach()
find_program(KELVRIN_LINKER ld64.lld-19 REQUIRED)
find_path(KELVRIN_LIBCXX __config PATHS /usr/lib/llvm-19/include/c++/v1
  NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)

foreach(language C OBJC)
  set(CMAKE_${language}_COMPILER ${KELVRIN_CLANG})
endforeach()
foreach(language CXX OBJCXX)
  set(CMAKE_${language}_COMPILER ${KELVRIN_CLANGXX})
endforeach()
foreach(language C CXX OBJC OBJCXX)
  # Selects the Darwin driver; -arch picks the slices.
  set(CMAKE_${language}_COMPILER_TARGET x86_64-apple-darwin)
  # The driver joins the slices with the lipo that it finds there.
  set(CMAKE_${language}_FLAGS_INIT "-B${KELVRIN_MACOS_SDK}/usr/bin")
  # llvm-ar writes no index for objects of several slices.
  set(CMAKE_${language}_ARCHIVE_CREATE
      "${KELVRIN_LIBTOOL_DARWIN} -static -D -o <TARGET> <OBJECTS>")
  set(CMAKE_${language}_ARCHIVE_APPEND "")
  set(CMAKE_${language}_ARCHIVE_FINISH "")
  # The environment's library path would leak into links.
  set(CMAKE_${language}_LINKER_LAUNCHER ${CMAKE_COMMAND} -E env --unset=LIBRARY_PATH)
endforeach()
# LLVM's own C++ headers, set to what the oldest supported system has: our __config_site comes first.
foreach(language CXX OBJCXX)
  string(APPEND CMAKE_${language}_FLAGS_INIT
    " -nostdinc++ -isystem ${CMAKE_CURRENT_LIST_DIR}/../platform/macos/libcxx"
    " -isystem ${KELVRIN_LIBCXX}")
endforeach()

set(CMAKE_AR ${KELVRIN_AR})
set(CMAKE_RANLIB ${KELVRIN_RANLIB})
set(CMAKE_NM ${KELVRIN_NM})
set(CMAKE_STRIP ${KELVRIN_STRIP})
set(CMAKE_OBJDUMP ${KELVRIN_OBJDUMP})
set(CMAKE_INSTALL_NAME_TOOL ${KELVRIN_INSTALL_NAME_TOOL})
set(CMAKE_LINKER ${KELVRIN_LINKER})

set(CMAKE_OSX_SYSROOT ${KELVRIN_MACOS_SDK})
# Without the C++ library, which CMake's own test of the compiler would ask for.
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-fuse-ld=lld -nostdlib++")
endforeach()
set(CMAKE_FIND_ROOT_PATH ${KELVRIN_MACOS_SDK})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
