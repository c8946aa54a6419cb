// Which files the bundle holds, and what is in those that the build copies or writes.
#pragma once

#include "tests/macos/bundle.h"
#include "tests/macos/findings.h"

namespace kelvrin::macos {

// Exactly the files that belong there, in folders that are not empty; none is a link. The programs
// may be run by their owner, and nothing else but modules.
Findings CheckFileList(const Bundle& bundle);

// Copies equal what they are copies of: under the two resource names the built adapter, or the
// modules that take its place; the texts and the guide of the source folder.
Findings CheckCopiedFiles(const Bundle& bundle, const std::filesystem::path& source);

// The lines of both adapters' configurations, apart from comments and empty ones: the module, which
// is pkcs11-module.dylib until one is chosen, the reader's name, and the lines that were
// configured.
Findings CheckAdapterConfigurations(const Bundle& bundle);

}  // namespace kelvrin::macos
