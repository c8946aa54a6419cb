# Tests of the Objective-C metadata: of the programs, and of what our headers declare; of what else
# the headers declare, and what the link stubs list.
find_program(KELVRIN_MACOS_COMPILER clang++-19 REQUIRED)
find_package(nlohmann_json REQUIRED)

add_library(objc_metadata STATIC
  declarations.cpp header_compiler.cpp metadata_table.cpp objc_image.cpp objc_metadata.cpp)
target_link_libraries(objc_metadata PUBLIC macho_file PRIVATE kelvrin_flags)

add_library(header_listing STATIC header_listing.cpp syntax_tree.cpp)
target_link_libraries(header_listing
  PUBLIC objc_metadata PRIVATE kelvrin_flags nlohmann_json::nlohmann_json)

kelvrin_macos_test(macos_classes_test
  SOURCES classes_test.cpp LIBRARIES objc_metadata macos_linkage spoiled_copy)

# The tests compile the headers themselves: there is no SDK before ./dev macos has made it, and the
# tests are built before that.
kelvrin_macos_test(macos_declarations_test
  SOURCES declarations_test.cpp header_listing_test.cpp nullability_test.cpp
  LIBRARIES header_listing)
target_compile_definitions(macos_declarations_test PRIVATE
  KELVRIN_MACOS_COMPILER="${KELVRIN_MACOS_COMPILER}"
  KELVRIN_MACOS_SDK="${KELVRIN_MACOS_BUILD}/../macos-sdk")

add_library(stub_uses STATIC stub_uses.cpp)
target_link_libraries(stub_uses PUBLIC macos_linkage PRIVATE kelvrin_flags)
kelvrin_macos_test(macos_stub_uses_test SOURCES stub_uses_test.cpp LIBRARIES stub_uses)
target_compile_definitions(macos_stub_uses_test PRIVATE
  KELVRIN_MACOS_SDK="${KELVRIN_MACOS_BUILD}/../macos-sdk")
