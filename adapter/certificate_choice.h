// Which of a token's certificates are shown, and in which order.
#ifndef KELVRIN_ADAPTER_CERTIFICATE_CHOICE_H_
#define KELVRIN_ADAPTER_CERTIFICATE_CHOICE_H_

#include <p11-kit/pkcs11.h>

#include <set>
#include <vector>

#include "adapter/bytes.h"
#include "adapter/rules.h"
#include "adapter/search.h"

namespace kelvrin::adapter {

// What is known of the token's keys when its certificates are listed.
struct KeysSeen {
  std::set<Bytes> ids;  // CKA_IDs of the public and private keys that the module shows
  // Whether every key would have been seen: the user is logged in, or the token has public key
  // objects beside its certificates.
  bool all = false;
};

// The longest certificate that the extension takes, in bytes.
inline constexpr CK_ULONG kMaxCertificate = 4096;

// Puts certificates that the module found, in its order, into the shape that the extension expects:
// those longer than kMaxCertificate are left out, those that have no key are left out, those that
// have one come first, each as its rule says.
//
// A certificate has a key when a key of its CKA_ID is seen. When none is and every key would have
// been seen, it has none. Otherwise - private keys are hidden before the login, and not every token
// has public key objects - it counts as one with a key unless it has no CKA_ID, its category says
// that it is an authority's or somebody else's, or it is a CA's that signs nothing but certificates
// or has issued another one on the token.
Handles ArrangeCertificates(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                            const Rules& rules, const KeysSeen& keys, const Handles& found);

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_CERTIFICATE_CHOICE_H_
