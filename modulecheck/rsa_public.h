// What a public RSA key does to a block: enough to check what the private one did, and to make
// something for it to decrypt. Nothing here is secret, so nothing runs in constant time.
#pragma once

#include <optional>

#include "modulecheck/text.h"

namespace kelvrin::modulecheck {

struct RsaPublicKey {
  Bytes modulus;  // big-endian, as modules give it
  Bytes exponent;
};

// The modulus's size in bytes, without zeros at its front.
std::size_t ModulusSize(const RsaPublicKey& key);

// The block, as a big-endian number, to the power of the exponent, in as many bytes as the modulus
// has. Nothing when the key is no RSA key that anybody uses (modulus odd and of 512 to 16384 bits,
// exponent odd and of 64 bits at most) or the block is not smaller than the modulus.
std::optional<Bytes> ApplyPublicKey(const RsaPublicKey& key, std::span<const CK_BYTE> block);

// A message of 11 bytes less than the size at most, as PKCS#1 v1.5 lays it out for encryption in a
// block of this size. The padding is the same each time: the message is no secret.
Bytes EncryptionBlock(std::span<const CK_BYTE> message, std::size_t size);

// A SHA-256 digest as PKCS#1 v1.5 lays it out for a signature in a block of this size, at least 62.
Bytes SignatureBlock(std::span<const CK_BYTE> sha256, std::size_t size);

}  // namespace kelvrin::modulecheck
