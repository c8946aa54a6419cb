// The public half of what the probes do, by the certificate's key. Where OpenSSL is at hand it
// computes (verify_openssl.cpp); elsewhere only the form is judged (verify_form.cpp), so that a
// wrong signature of the right length passes there.
#pragma once

#include <optional>

#include "encoding/bytes.h"

namespace kelvrin::modulecheck {

using encoding::Bytes;
using encoding::ByteView;

// Whether a raw RSA signature is one of this block, which is as long as the modulus.
bool IsRsaSignature(ByteView certificate, ByteView block, ByteView signature);

// Whether a DER signature is the EC key's one of this digest.
bool IsEcdsaSignature(ByteView certificate, ByteView digest, ByteView signature);

// A message that was encrypted for the RSA key with PKCS#1 v1.5; nothing where that cannot be done.
std::optional<Bytes> Encrypt(ByteView certificate, ByteView message);

// Another party for a key agreement.
struct Peer {
  Bytes point;   // its public key, 04 X Y
  Bytes secret;  // what is agreed on with it; empty where that is not known
};
// Nothing when the certificate has no EC key.
std::optional<Peer> MakePeer(ByteView certificate);

}  // namespace kelvrin::modulecheck
