// Our reading of a certificate beside OpenSSL's.
#pragma once

#include <string>

#include "encoding/certificate.h"

namespace kelvrin::encoding {

// The same facts as ReadCertificate's, as OpenSSL reads them. It expands compressed points and
// finds out which points do not lie on their curve.
std::optional<CertificateFacts> ReadCertificateWithOpenssl(ByteView der);

struct Comparison {
  std::string difference;  // what they read differently, in words; empty when nothing
  bool has_key = false;    // both take the bytes for a certificate, ours with a key that is read
};

// Bytes that one of them refuses are no difference: neither reads all that the other does.
Comparison CompareWithOpenssl(const Bytes& der);

}  // namespace kelvrin::encoding
