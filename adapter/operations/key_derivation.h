// Key agreement for a caller that leaves the derived object's attributes to the module.
#pragma once

#include <p11-kit/pkcs11.h>

namespace kelvrin::adapter {

// C_DeriveKey with an empty template: derives a session secret whose CKA_VALUE can be read, as long
// as a coordinate of the other party's point. An ECDH point is handed over raw whichever form it
// comes in, and in a DER OCTET STRING when the module refuses that. `key` gets the new object; the
// caller of this function destroys it in time.
CK_RV DeriveReadableKey(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                        const CK_MECHANISM& mechanism, CK_OBJECT_HANDLE base_key,
                        CK_OBJECT_HANDLE* key);

// Destroys an object that DeriveReadableKey made. The handle may stand for something else by now:
// what is not a session's secret key, or does not say so, is left alone.
void DestroyDerivedKey(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                       CK_OBJECT_HANDLE key);

}  // namespace kelvrin::adapter
