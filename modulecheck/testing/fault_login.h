// The faulty module's logins, and its keys that want one for each operation.
#pragma once

#include <p11-kit/pkcs11.h>

namespace kelvrin::fault {

// C_Login.
CK_RV Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_BYTE* pin, CK_ULONG size);

// What C_SignInit or C_DecryptInit answers where the module behind gave this result. With the fault
// context-login an operation that begins waits for its login.
CK_RV Begun(CK_SESSION_HANDLE session, CK_RV result);

// What C_Sign or C_Decrypt answers where the module behind gave this result, of this size: an
// operation that still waits for its login fails, and is over.
CK_RV Ended(CK_SESSION_HANDLE session, CK_ULONG* size, CK_RV result);

}  // namespace kelvrin::fault
