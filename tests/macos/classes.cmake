# Tests of the Objective-C metadata: of the programs, and of what our headers declare.
find_program(KELVRIN_MACOS_COMPILER clang++-19 REQUIRED)

add_library(objc_metadata STATIC
  declarations.cpp metadata_table.cpp objc_image.cpp objc_metadata.cpp)
target_link_libraries(objc_metadata PUBLIC macho_file PRIVATE kelvrin_flags)

kelvrin_macos_test(macos_classes_test
  SOURCES classes_test.cpp LIBRARIES objc_metadata macos_linkage spoiled_copy)

# The test compiles its probe itself: there is no SDK before ./dev macos has made it, and the tests
# are built before that.
kelvrin_macos_test(macos_declarations_test
  SOURCES declarations_test.cpp LIBRARIES objc_metadata)
target_compile_definitions(macos_declarations_test PRIVATE
  KELVRIN_MACOS_COMPILER="${KELVRIN_MACOS_COMPILER}"
  KELVRIN_MACOS_SDK="${KELVRIN_MACOS_BUILD}/../macos-sdk")
