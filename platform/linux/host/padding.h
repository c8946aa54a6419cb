// RSA padding as the platform does it for keys that offer the raw operation alone.
#pragma once

#include <cstddef>

#include "platform/linux/host/digest.h"
#include "platform/linux/host/result.h"

namespace host {

// The DER encoding of the DigestInfo of a digest.
Bytes DigestInfo(Hash hash, const Bytes& digest);

// EMSA-PKCS1-v1_5: 00 01 FF... 00 message, `block_size` bytes long. Fails when the message leaves
// no room for eight bytes of padding.
Result<Bytes> PadPkcs1(const Bytes& message, size_t block_size);

// Bits that a key needs for PSS with the hash and a salt of its length.
size_t PssMinimumKeyBits(Hash hash);

// EMSA-PSS of a digest for a modulus of `key_bits` bits, as long as the modulus; MGF1 with the same
// hash and a fresh salt of the digest's length.
Result<Bytes> PadPss(Hash hash, const Bytes& digest, size_t key_bits);

// The message in a decrypted block of the modulus's length: EME-PKCS1-v1_5, EME-OAEP with an empty
// label and MGF1 with the same hash.
Result<Bytes> UnpadPkcs1(const Bytes& block);
Result<Bytes> UnpadOaep(Hash hash, const Bytes& block);

// A block in the word order of the platform's own arithmetic: least significant byte first.
Bytes ToWords(const Bytes& block);

// Back again, padded with zeros to `block_size` bytes. Fails when the number is longer.
Result<Bytes> FromWords(const Bytes& words, size_t block_size);

}  // namespace host
