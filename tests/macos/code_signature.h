// The signature of a binary that nobody has signed: hashes of its pages, without an identity.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/macos/findings.h"
#include "tests/macos/macho_file.h"

namespace kelvrin::macos {

// The part of a signature that says what is signed.
struct CodeDirectory {
  uint32_t flags = 0;
  std::string identifier;
  uint64_t code_limit = 0;  // bytes of the slice that are hashed
  uint8_t hash_type = 0;
  uint32_t page_size = 0;  // bytes
  uint64_t executable_begin = 0, executable_size = 0, executable_flags = 0;
  std::vector<std::string> page_hashes;
};

struct CodeSignature {
  uint32_t begin = 0;  // where it begins in the slice
  std::vector<uint32_t> blob_types;
  CodeDirectory directory;
};

// Reads a slice's. Throws std::runtime_error when there is none, or when it is damaged.
CodeSignature ReadCodeSignature(const Slice& slice);

// Each slice ends in an ad-hoc signature: one directory without a certificate, named like the file,
// over everything before it and with the SHA-256 of each page.
Findings CheckCodeSignature(const MachOFile& file);

}  // namespace kelvrin::macos
