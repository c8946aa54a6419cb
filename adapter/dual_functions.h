// The dual-function calls of which one half runs on a worker session.
#ifndef KELVRIN_ADAPTER_DUAL_FUNCTIONS_H_
#define KELVRIN_ADAPTER_DUAL_FUNCTIONS_H_

#include <p11-kit/pkcs11.h>

#include "adapter/key_operation.h"

namespace kelvrin::adapter {

// C_SignEncryptUpdate, C_DecryptVerifyUpdate and C_DecryptDigestUpdate, each served by its two
// halves: the one on the caller's session `session` of the module, the other in `operation`. What
// has no room, and a question for the size, feeds neither; a failure of one half ends the
// operation.
CK_RV SignEncryptUpdate(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                        KeyOperation& operation, CK_BYTE* part, CK_ULONG part_size,
                        CK_BYTE* encrypted, CK_ULONG* encrypted_size);
CK_RV DecryptVerifyUpdate(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                          KeyOperation& operation, CK_BYTE* encrypted, CK_ULONG encrypted_size,
                          CK_BYTE* part, CK_ULONG* part_size);
CK_RV DecryptDigestUpdate(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                          KeyOperation& operation, CK_BYTE* encrypted, CK_ULONG encrypted_size,
                          CK_BYTE* part, CK_ULONG* part_size);

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_DUAL_FUNCTIONS_H_
