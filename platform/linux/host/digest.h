// The hash functions that key algorithms name.
#pragma once

#include <openssl/evp.h>

#include <cstddef>

#include "platform/linux/host/result.h"

namespace host {

enum class Hash { kSha1, kSha224, kSha256, kSha384, kSha512 };

inline constexpr Hash kHashes[] = {Hash::kSha1, Hash::kSha224, Hash::kSha256, Hash::kSha384,
                                   Hash::kSha512};

// As in the names of the key algorithm constants: "SHA256".
const char* HashName(Hash hash);

// OpenSSL's object for it, which lives as long as the process.
const EVP_MD* OpensslDigest(Hash hash);

// Length of a digest in bytes.
size_t DigestSize(Hash hash);

Bytes Digest(Hash hash, const Bytes& message);

}  // namespace host
