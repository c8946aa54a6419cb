# GNUstep base as Foundation, through clang and the GCC Objective-C runtime.
find_path(GNUSTEP_INCLUDE Foundation/Foundation.h PATHS /usr/include/GNUstep REQUIRED)
find_library(GNUSTEP_BASE gnustep-base REQUIRED)
if(NOT CMAKE_CROSSCOMPILING) # then the toolchain's file says it
  execute_process(COMMAND gcc -print-file-name=include
    OUTPUT_VARIABLE KELVRIN_GCC_INCLUDE OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()
find_library(KELVRIN_LIBOBJC objc PATHS ${KELVRIN_GCC_INCLUDE}/.. NO_CACHE REQUIRED)

add_library(foundation INTERFACE)
target_include_directories(foundation SYSTEM INTERFACE ${GNUSTEP_INCLUDE})
target_compile_options(foundation INTERFACE
  $<$<COMPILE_LANGUAGE:OBJCXX>:-fobjc-runtime=gcc;-fconstant-string-class=NSConstantString>
  $<$<COMPILE_LANGUAGE:OBJCXX>:-Werror=objc-property-implementation;-idirafter;${KELVRIN_GCC_INCLUDE}>)
target_compile_definitions(foundation INTERFACE $<$<COMPILE_LANGUAGE:OBJCXX>:_NATIVE_OBJC_EXCEPTIONS>)
target_link_libraries(foundation INTERFACE ${GNUSTEP_BASE} ${KELVRIN_LIBOBJC})
