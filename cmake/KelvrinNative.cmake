# What a build on a Mac takes from that Mac: the packages of Homebrew and Apple's SDK.
include_guard()

# The SDK that the bundle is built with elsewhere, and that what it says of itself is meant for.
set(KELVRIN_SDK_VERSION 14.5)

# kelvrin_missing(WHAT BREW DEBIAN): ends the configuration for want of a package, by its names there.
function(kelvrin_missing what brew debian)
  message(FATAL_ERROR "${what} is missing; on a Mac: brew install ${brew}, on Debian: "
                      "apt-get install ${debian}")
endfunction()

# Warns when Xcode has another SDK. A newer one is likely to do; but nobody has tried.
function(kelvrin_check_native_sdk)
  execute_process(COMMAND xcrun --sdk macosx --show-sdk-version
    OUTPUT_VARIABLE version OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(WARNING "xcrun does not say which macOS SDK there is; the sources are made for "
                    "${KELVRIN_SDK_VERSION}")
  elseif(NOT version VERSION_EQUAL KELVRIN_SDK_VERSION)
    message(WARNING "The macOS SDK is ${version}; the sources are made for ${KELVRIN_SDK_VERSION}, "
                    "which Xcode 15.4 has. If the build fails, take that one")
  endif()
endfunction()
