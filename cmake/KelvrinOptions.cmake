# Flags every target of ours shares: warnings, sanitizers, coverage.
set(KELVRIN_SANITIZE "" CACHE STRING "Sanitizers to build with, comma separated")
option(KELVRIN_COVERAGE "Instrument for source-based coverage" OFF)

add_library(kelvrin_flags INTERFACE)
target_compile_options(kelvrin_flags INTERFACE
  -Wall -Wextra -Wshadow -Wconversion -Wimplicit-fallthrough -Wformat=2 -Werror)

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
target_link_libraries(kelvrin_extension_flags INTERFACE kelvrin_flags)

# The PKCS#11 header is p11-kit's; nothing of p11-kit is linked.
find_package(PkgConfig REQUIRED)
pkg_check_modules(P11KIT REQUIRED p11-kit-1)
add_library(pkcs11_header INTERFACE)
target_include_directories(pkcs11_header SYSTEM INTERFACE ${P11KIT_INCLUDE_DIRS})
