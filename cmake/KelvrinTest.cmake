# kelvrin_test(NAME SOURCES file... [LIBRARIES target...] [LABELS label...]): a GoogleTest
# executable whose tests CTest runs one process each.
find_package(GTest REQUIRED)
include(GoogleTest)
function(kelvrin_test name)
  cmake_parse_arguments(TEST "" "" "SOURCES;LIBRARIES;LABELS" ${ARGN})
  add_executable(${name} ${TEST_SOURCES})
  target_link_libraries(${name} PRIVATE kelvrin_flags ${TEST_LIBRARIES} GTest::gtest_main
                        GTest::gmock)
  # GNUstep's own locks look like a deadlock to ThreadSanitizer; ours are looked at.
  set(environment "")
  if("foundation_test_main" IN_LIST TEST_LIBRARIES OR "foundation_sanitizer" IN_LIST TEST_LIBRARIES)
    set(environment "TSAN_OPTIONS=detect_deadlocks=0")
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 300
                       LABELS "${TEST_LABELS}" ENVIRONMENT "${environment}")
endfunction()
