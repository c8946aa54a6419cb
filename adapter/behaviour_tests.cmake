# The built adapter as its caller meets it, in front of the memory module and of SoftHSM cards.

# SoftHSM behind a library that fails from the k-th call on.
add_library(adapter_failing_over MODULE testing/failing_over.cpp)
target_include_directories(adapter_failing_over PRIVATE ${CMAKE_SOURCE_DIR})
target_link_libraries(adapter_failing_over
  PRIVATE kelvrin_flags pkcs11_header ${CMAKE_DL_LIBS})
set_target_properties(adapter_failing_over PROPERTIES CXX_VISIBILITY_PRESET hidden)

# What a program needs that loads the adapter without having been built with the sanitizers.
set(sanitizer_runtime "")
if(KELVRIN_SANITIZE MATCHES address)
  execute_process(
    COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libclang_rt.asan-${CMAKE_SYSTEM_PROCESSOR}.so
    OUTPUT_VARIABLE sanitizer_runtime OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()

add_library(adapter_behaviour STATIC
  testing/extension.cpp testing/extension_road.cpp testing/openssl_check.cpp)
target_include_directories(adapter_behaviour PUBLIC ${CMAKE_SOURCE_DIR})
target_link_libraries(adapter_behaviour
  PRIVATE kelvrin_flags PUBLIC p11 memory_module memory_module_path product_files
         softhsm_card)
target_compile_definitions(adapter_behaviour INTERFACE
  KELVRIN_FAILING_OVER="$<TARGET_FILE:adapter_failing_over>"
  KELVRIN_SANITIZER_RUNTIME="${sanitizer_runtime}")

kelvrin_test(adapter_behaviour_test
  SOURCES
    boundary/fork_test.cpp
    boundary/function_list_test.cpp
    session/call_counts_test.cpp
    session/faults_test.cpp
    session/initialisation_test.cpp
    session/login_test.cpp
    session/odd_objects_test.cpp
    session/pulled_card_test.cpp
    session/softhsm_test.cpp
    session/swapped_card_test.cpp
    session/two_cards_test.cpp
  LIBRARIES adapter_behaviour
  SHIPPED)
kelvrin_test(adapter_threads_test
  SOURCES boundary/threads_test.cpp
  LIBRARIES adapter_behaviour
  LABELS threads
  SHIPPED)
foreach(test adapter_behaviour_test adapter_threads_test)
  add_dependencies(${test} adapter adapter_failing_over)
endforeach()
