# Tests of how the binaries are linked.
#
# imports/ lists what each binary imports. When that changes on purpose, and what is new exists on
# macOS 10.14.6, the lists are made anew from tests/macos in the build folder:
#   for b in extension application adapter modulecheck; do
#     ./macos_imports $b > SOURCE/tests/macos/imports/$b.txt
#   done
find_package(OpenSSL 3.0 REQUIRED)

add_library(macos_linkage STATIC
  code_signature.cpp
  entry.cpp
  expected_binaries.cpp
  exports.cpp
  import_checks.cpp
  imports.cpp
  initialisers.cpp
  link_stubs.cpp
  load_commands.cpp
  newer_symbols.cpp)
target_link_libraries(macos_linkage PUBLIC macho_file PRIVATE kelvrin_flags OpenSSL::Crypto)

add_executable(macos_imports macos_imports.cpp)
target_compile_definitions(macos_imports PRIVATE KELVRIN_MACOS_BUILD="${KELVRIN_MACOS_BUILD}")
target_link_libraries(macos_imports PRIVATE kelvrin_flags macos_linkage)

add_library(spoiled_copy STATIC testing/spoiled_copy.cpp)
target_link_libraries(spoiled_copy PUBLIC macho_file PRIVATE kelvrin_flags)

kelvrin_macos_test(macos_linkage_test
  SOURCES
    code_signature_test.cpp
    entry_test.cpp
    exports_test.cpp
    imports_test.cpp
    initialisers_test.cpp
    link_stubs_test.cpp
    linkage_test.cpp
    load_commands_test.cpp
  LIBRARIES macos_linkage spoiled_copy)
# ./dev macos leaves the SDK beside the build.
target_compile_definitions(macos_linkage_test PRIVATE
  KELVRIN_MACOS_SDK="${KELVRIN_MACOS_BUILD}/../macos-sdk")
