// Key agreement.
#include <array>

#include "p11/operations.h"
#include "tools/curves.h"
#include "tools/private_keys.h"
#include "tools/probes.h"

namespace kelvrin::modulecheck {

Judgement ProbeDerivation(Module& module) {
  const ProbeSession session(module);
  const std::optional<Key> key = FindPrivateKey(module, session.handle(), CKK_EC, CKA_DERIVE);
  const Curve* const curve = key ? FindCurve(key->ec_params) : nullptr;
  if (curve == nullptr) {
    return NotConcerned("no EC key of a certificate, on a curve known here, can derive");
  }
  if (!Offers(module, CKM_ECDH1_DERIVE)) {
    return NotConcerned("the slot does not offer CKM_ECDH1_DERIVE");
  }
  for (int round = 0; round < 2; ++round) {
    std::array<CK_BYTE, 2 * kResultSize> secret = {};
    CK_ULONG size = 0;
    const CK_RV result =
        derive_key(module.p11(), session.handle(), key->handle, CKM_ECDH1_DERIVE,
                   curve->generator.data(), curve->generator.size(), secret.data(), &size);
    if (result != CKR_OK) return Unmet("C_DeriveKey", result, "or reading the secret");
    const std::optional<Bytes> expected = Abscissa(*curve, key->ec_point);
    const bool has_size = size == curve->size;
    if (!has_size ||
        (expected && !std::equal(expected->begin(), expected->end(), secret.begin()))) {
      return Unmet("C_DeriveKey", result, "the secret is wrong");
    }
  }
  return Met();
}

}  // namespace kelvrin::modulecheck
