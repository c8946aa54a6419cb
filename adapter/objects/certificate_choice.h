// Which of a token's certificates are shown, and in which order.
#pragma once

#include <p11-kit/pkcs11.h>

#include <set>

#include "adapter/config/rules.h"
#include "adapter/objects/search.h"
#include "encoding/bytes.h"

namespace kelvrin::adapter {

// The longest certificate that the extension takes, in bytes.
inline constexpr CK_ULONG kMaxCertificate = 4096;

// Whether a certificate is surely an authority's: its category says so, or it is a CA's that signs
// nothing but certificates or has issued another one of `all`. `all` are certificates of the token.
bool IsAuthority(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                 CK_OBJECT_HANDLE certificate, const Handles& all);

// Puts certificates that the module found, in its order, into the shape that the extension expects:
// those longer than kMaxCertificate are left out, those of authorities that have no key are left
// out, those whose key is seen come first, each as its rule says. `keys`: the CKA_IDs of the public
// and private keys that the module shows. Before the login private keys are hidden, and not every
// token has public key objects: a certificate whose key is not seen may have one all the same.
Handles ArrangeCertificates(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                            const Rules& rules, const std::set<encoding::Bytes>& keys,
                            const Handles& found);

}  // namespace kelvrin::adapter
