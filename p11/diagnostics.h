// Names PKCS#11 results and mechanisms, and writes the one line format for failed calls.
#pragma once

#include <p11-kit/pkcs11.h>
#include <stddef.h>

// Bytes that mech_to_str takes its destination to have, whatever the caller's buffer is.
constexpr size_t kMechanismNameLimit = 1024;

// Logs a failed call at default type, when that type is enabled.
//   what  the function's name or a short text, shown in the place of a function's name. A stock
//         system hides it, and the result's name, as private data.
//   rv    the result; its low 32 bits are shown in hexadecimal.
void p11_warn(const char* what, CK_RV rv);

// Logs the same line at error type, when that type is enabled.
void p11_error(const char* what, CK_RV rv);

// Returns the standard's name of a result, or "unknown PKCS11 error". The text is static.
const char* CKR2Str(CK_RV rv);

// Copies the standard's name of a mechanism, or "Unknown", into a buffer.
//   mechanism  the mechanism type, matched exactly.
//   name       receives the NUL-terminated name; 27 bytes hold the longest there is.
// Returns the length of the name in bytes.
size_t mech_to_str(CK_MECHANISM_TYPE mechanism, char* name);
