# Where the bundles come together: the application with the extension inside on macOS, the extension
# alone on Linux. And the link settings of what runs on macOS.
set(KELVRIN_APPLICATION_ID org.kelvrin.KelvrinToken CACHE STRING "The application's identifier")
set(KELVRIN_EXTENSION_ID org.kelvrin.KelvrinToken.extension CACHE STRING
  "The extension's identifier, which begins with the application's")
set(KELVRIN_MINIMUM_SYSTEM 10.14.6) # of x86-64; arm64 begins with 11.0
string(FIND "${KELVRIN_EXTENSION_ID}" "${KELVRIN_APPLICATION_ID}." _kelvrin_position)
if(NOT _kelvrin_position EQUAL 0)
  message(FATAL_ERROR "KELVRIN_EXTENSION_ID '${KELVRIN_EXTENSION_ID}' must begin with "
                      "'${KELVRIN_APPLICATION_ID}.'; the system takes no other extension")
endif()

set(KELVRIN_APPLICATION_CONTENTS ${CMAKE_BINARY_DIR}/KelvrinToken.app/Contents)
if(APPLE)
  set(KELVRIN_EXTENSION_CONTENTS
      ${KELVRIN_APPLICATION_CONTENTS}/PlugIns/KelvrinToken.appex/Contents)
else()
  set(KELVRIN_EXTENSION_CONTENTS ${CMAKE_BINARY_DIR}/KelvrinToken.appex/Contents)
endif()

# Settings of every macOS link: each slice gets a signature.
function(kelvrin_macos_link target)
  if(CMAKE_CROSSCOMPILING)
    target_link_options(${target} PRIVATE LINKER:-fatal_warnings LINKER:-adhoc_codesign)
    file(GLOB_RECURSE stubs ${CMAKE_OSX_SYSROOT}/*.tbd)
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${stubs})
  endif()
  set_property(TARGET ${target} PROPERTY BUILD_WITH_INSTALL_RPATH ON)
endfunction()

# Takes the local symbols out. Stripping signs anew under the file's own name, so that two builds
# are the same.
function(kelvrin_macos_strip target)
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND ${CMAKE_STRIP} -x $<TARGET_FILE:${target}> VERBATIM)
endfunction()

# The extension: no start-up code of its own, since the platform's entry takes over. Links exactly
# what is listed, in this order.
function(kelvrin_extension_executable target)
  set_target_properties(${target} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${KELVRIN_EXTENSION_CONTENTS}/MacOS)
  target_link_options(${target} PRIVATE
    -fapplication-extension -nostdlib++ LINKER:-e,_NSExtensionMain
    LINKER:-rpath,@executable_path/../Frameworks
    LINKER:-rpath,@executable_path/../../../../Frameworks)
  target_link_libraries(${target} PRIVATE
    "-framework CryptoTokenKit" "-framework Cocoa" "-framework Foundation"
    "-framework CoreFoundation" "-framework Security" -lSystem -lobjc)
  kelvrin_macos_link(${target})
  kelvrin_macos_strip(${target})
endfunction()

# A library of the bundle, which is loaded by its path and links the libraries behind it.
function(kelvrin_bundled_library target)
  set_target_properties(${target} PROPERTIES
    SUFFIX .dylib
    BUILD_WITH_INSTALL_NAME_DIR ON
    INSTALL_NAME_DIR @rpath
    LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  target_link_libraries(${target} PRIVATE -nostdlib++ ${ARGN})
  kelvrin_macos_link(${target})
endfunction()

# One with code of its own: only the C++ library and libSystem.
function(kelvrin_library target)
  kelvrin_bundled_library(${target} -lc++ -lSystem)
  kelvrin_macos_strip(${target})
endfunction()

# One that re-exports the library that STUB describes. It has nothing to strip, and llvm-strip does
# not know its load command.
function(kelvrin_reexporting_library target stub)
  target_link_options(${target} PRIVATE LINKER:-reexport_library,${stub})
  kelvrin_bundled_library(${target} -lSystem)
endfunction()

# A program, which exports nothing that anybody could link. LIBRARIES are what it links, in order.
function(kelvrin_program target)
  cmake_parse_arguments(PROGRAM "" "" "LIBRARIES" ${ARGN})
  target_link_options(${target} PRIVATE -nostdlib++ LINKER:-exported_symbol,__mh_execute_header)
  target_link_libraries(${target} PRIVATE ${PROGRAM_LIBRARIES})
  kelvrin_macos_link(${target})
  kelvrin_macos_strip(${target})
endfunction()
