// What an operation with a private key depends on.
#pragma once

#include <p11-kit/pkcs11.h>

#include <cstddef>
#include <vector>

namespace kelvrin::adapter {

// The longest modulus that is believed, in bytes.
inline constexpr std::size_t kMaxModulus = 4096;

// What the module does not tell is 0 or false.
struct KeyFacts {
  std::size_t size = 0;        // bytes of the modulus or of a coordinate
  bool wants_login = false;    // a login of its own for each operation
  bool lacks_raw_rsa = false;  // CKM_RSA_X_509 cannot be used, but CKM_RSA_PKCS can
};

// Reads the facts of a private key. `is_rsa`: of an RSA key, otherwise of an EC key. `offered`: the
// slot's mechanisms.
KeyFacts ReadKeyFacts(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                      CK_OBJECT_HANDLE key, bool is_rsa,
                      const std::vector<CK_MECHANISM_TYPE>& offered);

// The key's own CKA_ALLOWED_MECHANISMS, when it has 1 to 20 entries, as many as the extension has
// room for; otherwise an empty list.
std::vector<CK_MECHANISM_TYPE> ReadAllowedMechanisms(const CK_FUNCTION_LIST& inner,
                                                     CK_SESSION_HANDLE session,
                                                     CK_OBJECT_HANDLE key);

}  // namespace kelvrin::adapter
