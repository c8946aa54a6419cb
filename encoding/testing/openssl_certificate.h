// Certificates as OpenSSL reads them: what ReadCertificate is held against.
#pragma once

#include "encoding/certificate.h"

namespace kelvrin::encoding {

// The same facts as ReadCertificate's. OpenSSL expands compressed points and finds out which points
// do not lie on their curve.
std::optional<CertificateFacts> ReadCertificateWithOpenssl(ByteView der);

}  // namespace kelvrin::encoding
