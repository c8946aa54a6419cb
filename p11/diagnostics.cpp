#include "p11/diagnostics.h"

#include <os/log.h>

// Logs a failed call at default type; CKR_OK as well, since the caller decides what failed.
void p11_warn(const char* what, CK_RV rv) {
  os_log(OS_LOG_DEFAULT, "PKCS11 function %s failed: rv = %s (0x%0x)", what, CKR2Str(rv),
         static_cast<unsigned int>(rv));
}

// Logs a failed call at error type, likewise whatever the result.
void p11_error(const char* what, CK_RV rv) {
  os_log_error(OS_LOG_DEFAULT, "PKCS11 function %s failed: rv = %s (0x%0x)", what, CKR2Str(rv),
               static_cast<unsigned int>(rv));
}
