// RSA padding as the platform does it for keys that offer the raw operation alone.
#pragma once

#include <cstddef>

#include "platform/linux/host/bytes.h"
#include "platform/linux/host/digest.h"
#include "platform/linux/host/result.h"

namespace host {

// The DER encoding of the DigestInfo of a digest.
Bytes digest_info(Hash hash, const Bytes& digest);

// EMSA-PKCS1-v1_5: 00 01 FF... 00 message, `block_size` bytes long. Fails when the message leaves
// no room for eight bytes of padding.
Result<Bytes> pad_pkcs1(const Bytes& message, size_t block_size);

// Bits that a key needs for PSS with the hash and a salt of its length.
size_t pss_minimum_key_bits(Hash hash);

// EMSA-PSS of a digest for a modulus of `key_bits` bits, as long as the modulus; MGF1 with the same
// hash and a fresh salt of the digest's length.
Result<Bytes> pad_pss(Hash hash, const Bytes& digest, size_t key_bits);

// The message in a decrypted block of the modulus's length: EME-PKCS1-v1_5, EME-OAEP with an empty
// label and MGF1 with the same hash.
Result<Bytes> unpad_pkcs1(const Bytes& block);
Result<Bytes> unpad_oaep(Hash hash, const Bytes& block);

}  // namespace host
