// Reading attributes of a token's objects, with the answers that the extension can use.
#pragma once

#include <p11-kit/pkcs11.h>

#include <span>

#include "adapter/objects/token_objects.h"

namespace kelvrin::adapter {

// C_GetAttributeValue for a caller's session. Differs from the module's own answer, each as its
// rule says, in this:
//  - a virtual public key's attributes come from its certificate;
//  - CKA_ALLOWED_MECHANISMS of a public key is the module's list when that has 1 to 20 entries,
//    completed by what the adapter serves with them, and otherwise what its key type can do and the
//    slot offers;
//  - an EC public key neither encrypts nor wraps, and derives when the slot does;
//  - the label of a certificate or a public key is ASCII, and has at most 127 bytes, as many as the
//    extension has room for;
//  - an object that has another handle by now is read under that;
//  - after a failed read a length is 0, not -1.
// A length of more than the room there was, or -1, is never handed on with CKR_OK: it counts as a
// failed read.
CK_RV GetAttributes(TokenObjects& objects, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                    std::span<CK_ATTRIBUTE> attributes);

}  // namespace kelvrin::adapter
