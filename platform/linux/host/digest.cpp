#include "platform/linux/host/digest.h"

#include <cstdlib>

namespace host {
namespace {

struct HashFunction {
  const char* name;
  const EVP_MD* (*digest)();
};

// In the order of Hash.
constexpr HashFunction kFunctions[] = {{"SHA1", EVP_sha1},
                                       {"SHA224", EVP_sha224},
                                       {"SHA256", EVP_sha256},
                                       {"SHA384", EVP_sha384},
                                       {"SHA512", EVP_sha512}};

}  // namespace

const char* HashName(Hash hash) { return kFunctions[static_cast<size_t>(hash)].name; }

const EVP_MD* OpensslDigest(Hash hash) { return kFunctions[static_cast<size_t>(hash)].digest(); }

size_t DigestSize(Hash hash) { return static_cast<size_t>(EVP_MD_get_size(OpensslDigest(hash))); }

Bytes Digest(Hash hash, const Bytes& message) {
  Bytes result(DigestSize(hash));
  if (EVP_Digest(message.data(), message.size(), result.data(), nullptr, OpensslDigest(hash),
                 nullptr) != 1) {
    std::abort();  // only for want of memory
  }
  return result;
}

}  // namespace host
