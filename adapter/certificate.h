// The facts of an X.509 certificate that the adapter needs.
#ifndef KELVRIN_ADAPTER_CERTIFICATE_H_
#define KELVRIN_ADAPTER_CERTIFICATE_H_

#include <p11-kit/pkcs11.h>

#include <optional>

#include "adapter/elliptic_curve.h"

namespace kelvrin::adapter {

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

// Reads a DER certificate of at most 1 MiB; nothing when the bytes are anything else, also when
// something follows the certificate.
std::optional<CertificateFacts> ReadCertificate(ByteView der);

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_CERTIFICATE_H_
