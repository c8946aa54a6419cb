# kelvrin_test(NAME SOURCES file... [LIBRARIES target...] [LABELS label...]): a GoogleTest
# executable whose tests CTest runs one process each.
find_package(GTest REQUIRED)
include(GoogleTest)
function(kelvrin_test name)
  cmake_parse_arguments(TEST "" "" "SOURCES;LIBRARIES;LABELS" ${ARGN})
  add_executable(${name} ${TEST_SOURCES})
  target_link_libraries(${name} PRIVATE kelvrin_flags ${TEST_LIBRARIES} GTest::gtest_main
                        GTest::gmock)
  set(properties TIMEOUT 300)
  if(TEST_LABELS)
    list(APPEND properties LABELS "${TEST_LABELS}")
  endif()
  # GNUstep's own locks look like a deadlock to ThreadSanitizer; ours are looked at.
  if(TEST_SOURCES MATCHES "\\.mm")
    list(APPEND properties ENVIRONMENT TSAN_OPTIONS=detect_deadlocks=0)
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES ${properties})
endfunction()
