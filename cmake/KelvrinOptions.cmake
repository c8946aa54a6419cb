# Flags every target of ours shares: warnings, sanitizers, coverage.
include(KelvrinNative) # what a Mac has to have
set(KELVRIN_SANITIZE "" CACHE STRING "Sanitizers to build with, comma separated")
option(KELVRIN_COVERAGE "Instrument for source-based coverage" OFF)

add_library(kelvrin_flags INTERFACE)
target_compile_options(kelvrin_flags INTERFACE
  -Wall -Wextra -Wshadow -Wconversion -Wimplicit-fallthrough -Wformat=2)
if(NOT APPLE OR CMAKE_CROSSCOMPILING)
  # Of Apple's compilers we do not know which one it will be, and what it warns of.
  target_compile_options(kelvrin_flags INTERFACE -Werror)
endif()

if(APPLE)
  # The same bytes wherever the sources lie.
  add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}=.)
  if(NOT CMAKE_CROSSCOMPILING)
    kelvrin_check_native_sdk()
  endif()
endif()

if(KELVRIN_SANITIZE)
  add_compile_options(-fsanitize=${KELVRIN_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${KELVRIN_SANITIZE})
  if(KELVRIN_SANITIZE MATCHES undefined)
    # GNUstep's objects carry no C++ type information, and our loadable parts resolve late.
    add_compile_options(-fno-sanitize=vptr,function)
  endif()
endif()
if(KELVRIN_COVERAGE)
  add_compile_options(-fprofile-instr-generate -fcoverage-mapping)
  add_link_options(-fprofile-instr-generate)
endif()

# What ships in the extension: no C++ runtime, so no exceptions and no RTTI.
add_library(kelvrin_extension_flags INTERFACE)
target_compile_options(kelvrin_extension_flags INTERFACE -fno-exceptions -fno-rtti)
if(APPLE)
  target_compile_options(kelvrin_extension_flags INTERFACE
    -fapplication-extension -fvisibility=hidden
    $<$<COMPILE_LANGUAGE:OBJCXX>:-fno-objc-arc;-fno-objc-exceptions>)
endif()
target_link_libraries(kelvrin_extension_flags INTERFACE kelvrin_flags)

# The PKCS#11 header is p11-kit's; nothing of p11-kit is linked. Cross-builds take it from this
# machine: it is the same everywhere.
find_path(KELVRIN_PKCS11_INCLUDE p11-kit/pkcs11.h PATH_SUFFIXES p11-kit-1
  NO_CMAKE_FIND_ROOT_PATH DOC "Folder of p11-kit's header")
if(NOT KELVRIN_PKCS11_INCLUDE)
  kelvrin_missing("p11-kit's header" p11-kit libp11-kit-dev)
endif()
add_library(pkcs11_header INTERFACE)
target_include_directories(pkcs11_header SYSTEM INTERFACE ${KELVRIN_PKCS11_INCLUDE})
