#include "platform/linux/host/ecdsa_signature.h"

#include <openssl/ecdsa.h>

#include <cstdlib>
#include <memory>

namespace host {
namespace {

using Signature = std::unique_ptr<ECDSA_SIG, decltype(&ECDSA_SIG_free)>;

// Null when the bytes are no DER signature.
Signature parse(const Bytes& der) {
  const unsigned char* position = der.data();
  Signature signature(d2i_ECDSA_SIG(nullptr, &position, static_cast<long>(der.size())),
                      ECDSA_SIG_free);
  if (signature == nullptr) return signature;
  // What reads well but is written otherwise is no DER; so is what has anything behind it.
  unsigned char* again = nullptr;
  const int size = i2d_ECDSA_SIG(signature.get(), &again);
  const bool same = size >= 0 && Bytes(again, again + size) == der;
  OPENSSL_free(again);
  const auto positive = [](const BIGNUM* number) {
    return BN_is_zero(number) == 0 && BN_is_negative(number) == 0;
  };
  if (!same || !positive(ECDSA_SIG_get0_r(signature.get())) ||
      !positive(ECDSA_SIG_get0_s(signature.get()))) {
    signature.reset();
  }
  return signature;
}

}  // namespace

bool is_der_ecdsa_signature(const Bytes& signature) { return parse(signature) != nullptr; }

Result<Bytes> der_to_rfc4754(const Bytes& signature, size_t field_size) {
  const Signature parsed = parse(signature);
  Bytes result(2 * field_size);
  const int size = static_cast<int>(field_size);
  if (parsed == nullptr || BN_bn2binpad(ECDSA_SIG_get0_r(parsed.get()), result.data(), size) < 0 ||
      BN_bn2binpad(ECDSA_SIG_get0_s(parsed.get()), result.data() + field_size, size) < 0) {
    return Error{kOsStatusDomain, kDecodeStatus,
                 "the token's signature is no DER sequence of two integers"};
  }
  return result;
}

}  // namespace host
