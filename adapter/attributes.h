// Reading attributes of a token's objects, with the answers that the extension can use.
#ifndef KELVRIN_ADAPTER_ATTRIBUTES_H_
#define KELVRIN_ADAPTER_ATTRIBUTES_H_

#include <p11-kit/pkcs11.h>

#include <span>

#include "adapter/token_objects.h"

namespace kelvrin::adapter {

// C_GetAttributeValue for a caller's session. Differs from the module's own answer, each as its
// rule says, in this:
//  - a virtual public key's attributes come from its certificate;
//  - CKA_ALLOWED_MECHANISMS of a public key is the module's list when that has 1 to 20 entries,
//    completed by what the adapter serves with them, and otherwise what its key type can do and the
//    slot offers;
//  - an EC public key neither encrypts nor wraps, and derives when the slot does;
//  - the label of a certificate or a public key is ASCII;
//  - an object that has another handle by now is read under that;
//  - after a failed read a length is 0, not -1.
// A length of more than the room there was, or -1, is never handed on with CKR_OK: it counts as a
// failed read. The same goes for the attributes of a template that is an attribute's value, where
// the caller's own pointers are never replaced.
CK_RV GetAttributes(TokenObjects& objects, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                    std::span<CK_ATTRIBUTE> attributes);

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_ATTRIBUTES_H_
