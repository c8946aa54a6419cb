// The one digest in use of CommonCrypto, for machines without Apple's SDK.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define CC_SHA256_DIGEST_LENGTH 32

typedef uint32_t CC_LONG;

// Writes the SHA-256 digest of `len` bytes to `md`, which it returns.
extern unsigned char* CC_SHA256(const void* data, CC_LONG len, unsigned char* md);

#ifdef __cplusplus
}
#endif
