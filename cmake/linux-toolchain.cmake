# clang 19 for every language, by full path: a bare name does not resolve for Objective-C++.
find_program(KELVRIN_CLANG clang-19 REQUIRED)
find_program(KELVRIN_CLANGXX clang++-19 REQUIRED)
set(CMAKE_C_COMPILER ${KELVRIN_CLANG})
set(CMAKE_CXX_COMPILER ${KELVRIN_CLANGXX})
set(CMAKE_OBJC_COMPILER ${KELVRIN_CLANG})
set(CMAKE_OBJCXX_COMPILER ${KELVRIN_CLANGXX})
# It links in a third of the time that Debian's usual linker takes.
add_link_options(-fuse-ld=lld)
