// X.509 certificates, as far as the adapter and modulecheck need them.
#pragma once

#include <p11-kit/pkcs11.h>

#include <optional>

#include "encoding/bytes.h"

namespace kelvrin::encoding {

struct CertificateFacts {
  bool is_ca = false;  // basicConstraints says so
  // keyUsage has keyCertSign and none of digitalSignature, nonRepudiation, keyEncipherment,
  // dataEncipherment and keyAgreement.
  bool signs_certificates_only = false;
  Bytes subject;  // DER names
  Bytes issuer;
  std::optional<CK_KEY_TYPE> key_type;  // CKK_RSA or CKK_EC; nothing for other kinds of key
  Bytes modulus;                        // RSA, big-endian, without leading zeros
  Bytes public_exponent;
  Bytes ec_parameters;  // EC: DER of the curve's object identifier
  Bytes ec_point;       // EC: raw 04 X Y
};

// Reads a DER certificate of at most 1 MiB; nothing when the bytes are anything else, another form
// of BER or a certificate with something behind it for instance.
//
// Nothing is computed: a point is not looked for on its curve, and a compressed one is not
// expanded, so that such a key has no type and the token's public key object has to give the point.
// Only curves that CurveSize knows have a type.
std::optional<CertificateFacts> ReadCertificate(ByteView der);

}  // namespace kelvrin::encoding
