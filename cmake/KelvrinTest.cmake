# kelvrin_test(NAME SOURCES file... [LIBRARIES target...] [LABELS label...] [OWN_PROCESS suite...]
# [ENVIRONMENT NAME=VALUE...] [SHIPPED]): a GoogleTest program. CTest runs each of its suites as NAME.SUITE in one process; of
# the suites behind OWN_PROCESS it runs each test in a process of its own. The target `threads` builds
# the programs that carry this label. With SHIPPED all of it runs once more over the files that ship,
# as macho.NAME.SUITE with the label `macho`.
#
# The sources are compiled with the precompiled header of `test_headers`, and those that end in
# _test in batches of six: what is local to a file must have a name of its own in its program.
find_package(GTest REQUIRED)
add_custom_target(threads)

file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/test_headers.cpp CONTENT "int main() {}\n")
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/test_headers.mm CONTENT "\n")
add_executable(test_headers EXCLUDE_FROM_ALL
  ${CMAKE_BINARY_DIR}/test_headers.cpp ${CMAKE_BINARY_DIR}/test_headers.mm)
target_link_libraries(test_headers PRIVATE kelvrin_flags foundation GTest::gtest GTest::gmock)
target_precompile_headers(test_headers PRIVATE
  # Before all others: what C++ headers of the runtime declare must not come first.
  $<$<COMPILE_LANGUAGE:OBJCXX>:<Foundation/Foundation.h$<ANGLE-R>>
  $<$<COMPILE_LANGUAGE:OBJCXX>:<objc/runtime.h$<ANGLE-R>>
  <gmock/gmock.h> <gtest/gtest.h>
  <algorithm> <array> <cstring> <filesystem> <fstream> <functional> <map> <memory> <optional>
  <sstream> <string> <thread> <vector>)

# Puts files that include `size` tests of a language each in the place of those tests; what else
# stands among the sources stays. CMake's own UNITY_BUILD leaves Objective-C++ alone.
function(kelvrin_batch sources name size)
  set(batches ${${sources}})
  list(FILTER batches EXCLUDE REGEX "_test\\.(cpp|mm)$")
  foreach(language cpp mm)
    set(members ${${sources}})
    list(FILTER members INCLUDE REGEX "_test\\.${language}$")
    set(number 0)
    while(members)
      set(includes "")
      foreach(place RANGE 1 ${size})
        list(POP_FRONT members member)
        if(member)
          cmake_path(ABSOLUTE_PATH member)
          string(APPEND includes "#include \"${member}\"\n")
        endif()
      endforeach()
      set(batch ${CMAKE_CURRENT_BINARY_DIR}/${name}_batch_${number}.${language})
      file(CONFIGURE OUTPUT ${batch} CONTENT "${includes}")
      list(APPEND batches ${batch})
      math(EXPR number "${number} + 1")
    endwhile()
  endforeach()
  set(${sources} ${batches} PARENT_SCOPE)
endfunction()

# A local name may be that of something in another file of the batch.
add_library(kelvrin_batch_flags INTERFACE)
target_compile_options(kelvrin_batch_flags INTERFACE -Wno-shadow)

function(kelvrin_test name)
  cmake_parse_arguments(TEST "SHIPPED" "" "SOURCES;LIBRARIES;LABELS;OWN_PROCESS;ENVIRONMENT"
    ${ARGN})
  kelvrin_batch(TEST_SOURCES ${name} 6)
  add_executable(${name} ${TEST_SOURCES})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE kelvrin_flags kelvrin_batch_flags ${TEST_LIBRARIES}
                        GTest::gtest_main GTest::gmock)
  target_precompile_headers(${name} REUSE_FROM test_headers)
  # A suite that matches nothing, or that skips a test, tests nothing.
  set(properties TIMEOUT 900 FAIL_REGULAR_EXPRESSION "Running 0 tests|\\[  SKIPPED \\]")
  if("threads" IN_LIST TEST_LABELS)
    add_dependencies(threads ${name})
  endif()
  # GNUstep's own locks look like a deadlock to ThreadSanitizer; ours are looked at.
  if(TEST_SOURCES MATCHES "\\.mm")
    list(APPEND TEST_ENVIRONMENT TSAN_OPTIONS=detect_deadlocks=0)
  endif()
  if(TEST_ENVIRONMENT)
    list(JOIN TEST_ENVIRONMENT "\\;" environment)
    list(APPEND properties ENVIRONMENT "${environment}")
  endif()
  set(shipped "")
  if(TEST_SHIPPED)
    set(shipped "LD_PRELOAD=$<TARGET_FILE:macho>"
                "KELVRIN_SHIPPED_FILES=${CMAKE_SOURCE_DIR}/build/macos")
  endif()
  set(suites ${CMAKE_CURRENT_BINARY_DIR}/${name}_suites.cmake)
  file(GENERATE OUTPUT ${suites} CONTENT
"set(name [==[${name}]==])
set(program [==[$<TARGET_FILE:${name}>]==])
set(own_process [==[${TEST_OWN_PROCESS}]==])
set(properties [==[${properties}]==])
set(labels [==[${TEST_LABELS}]==])
set(shipped [==[${shipped}]==])
include([==[${CMAKE_SOURCE_DIR}/cmake/KelvrinSuites.cmake]==])
")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${suites})
endfunction()
