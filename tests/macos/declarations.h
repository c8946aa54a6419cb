// What our headers of Apple's frameworks declare, read from an object file: a probe is made from
// the headers' own text and compiled for macOS, and its metadata are the declarations.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tests/macos/findings.h"
#include "tests/macos/header_compiler.h"
#include "tests/macos/objc_metadata.h"

namespace kelvrin::macos {

// Returns Objective-C for the probe to include. Per class of the headers:
//   an implementation, for the superclass and the protocols;
//   a protocol NAMEDeclarations with the text between @interface and @end, since protocols alone
//   keep the types of what nobody implements, and the names of classes in them; a protocol
//   NAMEUnavailable with what is declared to be unavailable, if something is.
// And a use of each protocol, without which the compiler leaves it out.
std::string ProbeText(const HeaderFolders& folders);

// How the probe is compiled and linked.
struct ProbeSettings {
  HeaderCompiler compiler;
  std::filesystem::path probe;  // declarations_probe.mm
  std::string linker_option;    // one more, or none
};

// Compiles the probe for arm64 into a library in `folder`; its path. Throws std::runtime_error with
// what the compiler says when it does not compile, and when there is no SDK.
std::filesystem::path CompileProbe(const HeaderFolders& folders, const ProbeSettings& settings,
                                   const std::filesystem::path& folder);

// Returns what the probe's metadata say about the headers: its classes, with the lines of the
// protocols that were made from them ("unavailable" before what is), and the headers' protocols.
std::vector<Metadata> Declarations(const Slice& probe);

// Looks for names that a macOS newer than the oldest supported one has brought.
Findings CheckNothingNewer(const HeaderFolders& folders);

}  // namespace kelvrin::macos
