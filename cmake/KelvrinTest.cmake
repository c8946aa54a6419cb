# kelvrin_test(NAME SOURCES file... [LIBRARIES target...] [LABELS label...]): a GoogleTest
# executable whose tests CTest runs one process each.
find_package(GTest REQUIRED)
include(GoogleTest)
function(kelvrin_test name)
  cmake_parse_arguments(TEST "" "" "SOURCES;LIBRARIES;LABELS" ${ARGN})
  add_executable(${name} ${TEST_SOURCES})
  target_link_libraries(${name} PRIVATE kelvrin_flags ${TEST_LIBRARIES} GTest::gtest_main
                        GTest::gmock)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 300
                       LABELS "${TEST_LABELS}")
endfunction()
