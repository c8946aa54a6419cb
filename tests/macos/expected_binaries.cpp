#include "tests/macos/expected_binaries.h"

#include <llvm/BinaryFormat/MachO.h>

#include <initializer_list>
#include <stdexcept>
#include <string_view>

namespace kelvrin::macos {
namespace {

// The known libraries of these names, in this order.
std::vector<Library> Known(std::initializer_list<std::string_view> names) {
  std::vector<Library> libraries;
  for (const std::string_view name : names) {
    for (const Library& library : KnownLibraries()) {
      if (ShortName(library.install_name) == name) libraries.push_back(library);
    }
  }
  return libraries;
}

}  // namespace

std::string ShortName(const std::string& install_name) {
  return std::filesystem::path(install_name).filename();
}

const std::vector<Library>& KnownLibraries() {
  static const std::string frameworks = "/System/Library/Frameworks/";
  static const std::vector<Library> libraries = {
      {frameworks + "AppKit.framework/Versions/C/AppKit", "45.0.0"},
      {frameworks + "Cocoa.framework/Versions/A/Cocoa", "1.0.0"},
      {frameworks + "CoreFoundation.framework/Versions/A/CoreFoundation", "150.0.0"},
      {frameworks + "CryptoTokenKit.framework/Versions/A/CryptoTokenKit", "1.0.0"},
      {frameworks + "Foundation.framework/Versions/C/Foundation", "300.0.0"},
      {frameworks + "Security.framework/Versions/A/Security", "1.0.0"},
      {"/usr/lib/libSystem.B.dylib", "1.0.0"},
      {"/usr/lib/libc++.1.dylib", "1.0.0"},
      {"/usr/lib/libobjc.A.dylib", "1.0.0"},
  };
  return libraries;
}

std::vector<Binary> ExpectedBinaries(const std::filesystem::path& build) {
  const auto application = build / "KelvrinToken.app/Contents";
  const auto extension = application / "PlugIns/KelvrinToken.appex/Contents";
  const std::vector<std::string> header = {"__mh_execute_header"};
  const std::vector<Library> cxx = Known({"libc++.1.dylib", "libSystem.B.dylib"});
  return {
      {.name = "extension",
       .path = extension / "MacOS/KelvrinToken",
       .file_type = llvm::MachO::MH_EXECUTE,
       .entry = "_NSExtensionMain",
       .entry_is_imported = true,
       .run_paths = {"@executable_path/../Frameworks", "@executable_path/../../../../Frameworks"},
       .libraries = Known({"CryptoTokenKit", "Cocoa", "Foundation", "CoreFoundation", "Security",
                           "libSystem.B.dylib", "libobjc.A.dylib"}),
       .exports = header},
      {.name = "application",
       .path = application / "MacOS/KelvrinToken",
       .file_type = llvm::MachO::MH_EXECUTE,
       .entry = "_main",
       .libraries = Known(
           {"AppKit", "Foundation", "CoreFoundation", "libSystem.B.dylib", "libobjc.A.dylib"}),
       .exports = header},
      {.name = "adapter",
       .path = build / "bin/libkelvrin_adapter.dylib",
       .file_type = llvm::MachO::MH_DYLIB,
       .install_name = "@rpath/libkelvrin_adapter.dylib",
       .libraries = cxx,
       .exports = {"_C_GetFunctionList", "_kelvrin_adapter_shared_3"},
       .has_initialisers = true,
       .has_cxx_runtime = true},
      {.name = "modulecheck",
       .path = build / "bin/modulecheck",
       .file_type = llvm::MachO::MH_EXECUTE,
       .entry = "_main",
       .libraries = cxx,
       .exports = header,
       .has_initialisers = true,
       .has_cxx_runtime = true},
  };
}

Binary ExpectedBinary(const std::filesystem::path& build, const std::string& name) {
  for (const Binary& binary : ExpectedBinaries(build)) {
    if (binary.name != name) continue;
    if (!std::filesystem::exists(binary.path)) {
      throw std::runtime_error(binary.path.string() + " is missing: run ./dev macos first");
    }
    return binary;
  }
  throw std::runtime_error("no binary has the name " + name);
}

}  // namespace kelvrin::macos
