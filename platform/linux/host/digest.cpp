#include "platform/linux/host/digest.h"

#include <cstdlib>

namespace host {

const char* hash_name(Hash hash) {
  switch (hash) {
    case Hash::kSha1:
      return "SHA1";
    case Hash::kSha224:
      return "SHA224";
    case Hash::kSha256:
      return "SHA256";
    case Hash::kSha384:
      return "SHA384";
    case Hash::kSha512:
      return "SHA512";
  }
  std::abort();
}

const EVP_MD* openssl_digest(Hash hash) {
  switch (hash) {
    case Hash::kSha1:
      return EVP_sha1();
    case Hash::kSha224:
      return EVP_sha224();
    case Hash::kSha256:
      return EVP_sha256();
    case Hash::kSha384:
      return EVP_sha384();
    case Hash::kSha512:
      return EVP_sha512();
  }
  std::abort();
}

size_t digest_size(Hash hash) { return static_cast<size_t>(EVP_MD_get_size(openssl_digest(hash))); }

Bytes digest(Hash hash, const Bytes& message) {
  Bytes result(digest_size(hash));
  if (EVP_Digest(message.data(), message.size(), result.data(), nullptr, openssl_digest(hash),
                 nullptr) != 1) {
    std::abort();  // only for want of memory
  }
  return result;
}

}  // namespace host
