# Tests of what else the bundle holds: property lists, texts, files, log lines; of the download; and
# whether two builds are the same.
#
# log_formats.txt lists the formats of the extension's log lines. When they change on purpose it is
# made anew: ./macos_log_formats > SOURCE/tests/macos/log_formats.txt
find_package(PkgConfig REQUIRED)
pkg_check_modules(PLIST REQUIRED IMPORTED_TARGET libplist-2.0)

add_library(macos_contents STATIC
  bundle.cpp
  bundle_files.cpp
  bundle_property_lists.cpp
  localisation.cpp
  log_formats.cpp
  property_list.cpp
  same_folders.cpp
  source_tokens.cpp
  strings_table.cpp)
target_link_libraries(macos_contents PUBLIC macho_file PRIVATE kelvrin_flags PkgConfig::PLIST)

add_executable(macos_log_formats macos_log_formats.cpp)
target_compile_definitions(macos_log_formats PRIVATE KELVRIN_SOURCE="${CMAKE_SOURCE_DIR}")
target_link_libraries(macos_log_formats PRIVATE kelvrin_flags macos_contents)

kelvrin_macos_test(macos_contents_test
  SOURCES
    bundle_files_test.cpp
    localisation_test.cpp
    log_formats_test.cpp
    property_lists_test.cpp
    same_folders_test.cpp
    testing/bundle_copy.cpp
  LIBRARIES macos_contents spoiled_copy)

kelvrin_macos_test(macos_options_test
  SOURCES
    bundle_options_test.cpp
    testing/bundle_copy.cpp
    ${CMAKE_SOURCE_DIR}/platform/linux/host/testing/program.cpp
  LIBRARIES macos_contents)
target_link_libraries(macos_options_test PRIVATE util)
target_compile_definitions(macos_options_test PRIVATE
  KELVRIN_CMAKE="${CMAKE_COMMAND}" KELVRIN_MACOS_SDK="${KELVRIN_MACOS_BUILD}/../macos-sdk")

# Builds all of it twice.
add_executable(macos_same_folders macos_same_folders.cpp)
target_link_libraries(macos_same_folders PRIVATE kelvrin_flags macos_contents)
add_test(NAME macos_reproducible
  COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/reproducible_test.sh
    ${CMAKE_SOURCE_DIR} ${KELVRIN_MACOS_BUILD} $<TARGET_FILE:macos_same_folders>)
set_tests_properties(macos_reproducible PROPERTIES LABELS macos TIMEOUT 3000 PROCESSORS 2)

# The download, and where the SDK comes from.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
add_test(NAME macos_download
  COMMAND Python3::Interpreter -B ${CMAKE_CURRENT_SOURCE_DIR}/download_test.py
    ${KELVRIN_MACOS_BUILD})
set_tests_properties(macos_download PROPERTIES LABELS macos TIMEOUT 300)
add_test(NAME macos_headers
  COMMAND Python3::Interpreter -B ${CMAKE_CURRENT_SOURCE_DIR}/headers_test.py)
set_tests_properties(macos_headers PROPERTIES LABELS macos TIMEOUT 300)

# What the binaries bind, beside what macOS exports.
add_test(NAME macos_bindings
  COMMAND Python3::Interpreter -B ${CMAKE_CURRENT_SOURCE_DIR}/bindings_test.py
    ${KELVRIN_MACOS_BUILD})
set_tests_properties(macos_bindings PROPERTIES LABELS macos TIMEOUT 300)
