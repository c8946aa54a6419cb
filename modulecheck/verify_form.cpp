// Without OpenSSL.
#include "encoding/certificate.h"
#include "encoding/ecdsa_signature.h"
#include "modulecheck/verify.h"

namespace kelvrin::modulecheck {

bool IsRsaSignature(ByteView /*certificate*/, ByteView block, ByteView signature) {
  return signature.size() == block.size();
}

bool IsEcdsaSignature(ByteView /*certificate*/, ByteView /*digest*/, ByteView signature) {
  return encoding::IsDerSignature(signature);
}

std::optional<Bytes> Encrypt(ByteView /*certificate*/, ByteView /*message*/) {
  return std::nullopt;
}

// The key itself is another party whose point lies on the curve.
std::optional<Peer> MakePeer(ByteView certificate) {
  const auto facts = encoding::ReadCertificate(certificate);
  if (!facts || facts->ec_point.empty()) return std::nullopt;
  return Peer{facts->ec_point, {}};
}

}  // namespace kelvrin::modulecheck
