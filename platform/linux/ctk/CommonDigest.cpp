// CommonCrypto's one digest in use, by OpenSSL.
#include <CommonCrypto/CommonDigest.h>
#include <openssl/sha.h>

unsigned char* CC_SHA256(const void* data, CC_LONG len, unsigned char* md) {
  return SHA256(static_cast<const unsigned char*>(data), len, md);
}
