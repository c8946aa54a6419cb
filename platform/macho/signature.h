// The signature of a slice, as far as macOS looks at it when it maps a page: the pages' hashes.
#pragma once
#include "platform/macho/slice.h"

namespace macho {

// Throws LoadError when the bytes of a page are not those that were signed. What has no signature
// passes: macOS wants one of arm64 alone.
void VerifySignature(const Slice& slice, const std::string& path);

}  // namespace macho
