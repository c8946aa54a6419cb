// Certificates read without a library, for systems that have none.
#include "adapter/certificate.h"
#include "adapter/certificate_walk.h"

namespace kelvrin::adapter {

std::optional<CertificateFacts> ReadCertificate(ByteView der) { return WalkCertificate(der); }

}  // namespace kelvrin::adapter
