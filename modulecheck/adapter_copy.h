// The adapter, and a copy of it in front of a module.
#pragma once

#include <string>

#include "modulecheck/files.h"

namespace kelvrin::modulecheck {

// The adapter's library: ../lib/NAME, ../adapter/NAME or NAME from the program's folder (as
// installed, as built on Linux, as built for macOS). Empty when none is there.
std::string FindAdapter(const std::string& program);

// Whether one of the lines of an adapter's configuration gives this key a value.
bool HasKey(const std::string& lines, const std::string& key);

struct AdapterCopy {
  std::string library;
  std::string configuration;
};

// Copies the library `adapter` into the folder and configures the copy for the module, an absolute
// path. A reader name that is not empty becomes the slot's, unless the further lines name one.
// `lines` is the text of the user's own file, which comes first, so that the adapter's messages
// count its lines. Throws Failure.
AdapterCopy CopyAdapter(TemporaryFolder& folder, const std::string& adapter,
                        const std::string& module, const std::string& reader_name,
                        const std::string& lines);

}  // namespace kelvrin::modulecheck
