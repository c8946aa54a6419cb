// Certificates read by walking through their DER, where no library is there to do it.
#ifndef KELVRIN_ADAPTER_CERTIFICATE_WALK_H_
#define KELVRIN_ADAPTER_CERTIFICATE_WALK_H_

#include <optional>

#include "adapter/certificate.h"

namespace kelvrin::adapter {

// What ReadCertificate promises, with these limits, since nothing is computed here:
//
// - A point is not looked for on its curve, and a compressed one is not expanded: that key has no
//   type, and the token's own public key object has to give the point.
// - Only curves that CurveSize knows have a type.
// - DER is what counts: a certificate in another form of BER is none.
std::optional<CertificateFacts> WalkCertificate(ByteView der);

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_CERTIFICATE_WALK_H_
