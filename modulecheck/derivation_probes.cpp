// Key agreement.
#include <algorithm>
#include <array>
#include <span>

#include "p11/operations.h"
#include "modulecheck/curves.h"
#include "modulecheck/private_keys.h"
#include "modulecheck/probes.h"

namespace kelvrin::modulecheck {

Judgement ProbeDerivation(Module& module) {
  const ProbeSession session(module);
  const std::optional<Key> key = FindPrivateKey(module, session.handle(), CKK_EC, CKA_DERIVE);
  if (!key) return NotConcerned("no EC key of a certificate can derive");
  const Curve* const curve = FindCurve(key->ec_params);
  if (curve == nullptr) return NotConcerned("the key's curve is not known here");
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
    // Without the public point there is only the size to judge by.
    const Bytes right = Abscissa(*curve, key->ec_point).value_or(Bytes());
    const auto made = std::span(secret).first(std::min<std::size_t>(size, secret.size()));
    const bool is_right = right.empty() ? size == curve->size : std::ranges::equal(made, right);
    if (!is_right) return Unmet("C_DeriveKey", result, "the secret is wrong");
  }
  return Met();
}

}  // namespace kelvrin::modulecheck
