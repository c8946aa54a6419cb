// The files that the tests of the loader load.
#pragma once
#include <string>

#include "platform/macho/loader.h"

namespace macho::testing {

// Where the macOS build has left a file of this folder.
inline std::string TestFile(const std::string& name) {
  return std::string(KELVRIN_MACHO_FILES) + "/" + name;
}

// A function that an image exports.
template <typename F>
F* Function(const Image& image, const std::string& name) {
  return reinterpret_cast<F*>(image.Export("_" + name));
}

// Why a file cannot be loaded; empty when it can. Apart, since Objective-C++ cannot catch C++
// exceptions here.
std::string WhyNot(const std::string& path);

}  // namespace macho::testing
