#import "token/Reinitialisation.h"

#include <os/log.h>

#include "p11/bringup.h"
#include "p11/loader.h"
#import "token/BundleResources.h"
#import "token/Token.h"
#import "token/TokenSession.h"

BOOL Reinitialise(TokenSession *tokenSession) {
  os_log(OS_LOG_DEFAULT, "Token ist NICHT initialisiert, Initialisierung starten...");
  void *module = [[tokenSession tsToken] module];
  CK_FUNCTION_LIST *p11 = [[tokenSession tsToken] p11];
  CK_SLOT_ID slotID = [[tokenSession tsToken] slotID];
  CK_SESSION_HANDLE session = [[tokenSession tsToken] session];
  // Another module than the one that the set-up loads, deliberately. It counts only for a token
  // that holds none.
  NSString *path = ModulePath(@"libpkcs11qarn_Vumo_PCSC");
  NSDictionary *configuration = Configuration();
  const CK_RV rv =
      init([path UTF8String], &module, &p11, &slotID, &session, ReaderName(configuration));
  // init turns "already initialised" into success itself; the second test is a safeguard.
  if (rv == CKR_OK || rv == CKR_CRYPTOKI_ALREADY_INITIALIZED) {
    [[tokenSession tsToken] setModule:module];
    [[tokenSession tsToken] setP11:p11];
    [[tokenSession tsToken] setSlotID:slotID];
    [[tokenSession tsToken] setSession:session];
    __atomic_store_n(&initialized, CK_TRUE, __ATOMIC_RELAXED);
    return YES;
  }

  os_log_error(OS_LOG_DEFAULT, "Fehler beim Initialisieren.");
  if (p11 != nullptr) {
    p11->C_Finalize(nullptr);
    os_log(OS_LOG_DEFAULT, "(end) C_Finalize aufgerufen.");
  }
  if (module != nullptr) {
    // The token's handle and not the one that init returned, deliberately: a module loaded just now
    // stays loaded. The token's properties stay too, though a handle of its own is gone now.
    C_UnloadModule([[tokenSession tsToken] module]);
    os_log(OS_LOG_DEFAULT, "(end) C_UnloadModule aufgerufen.");
  }
  return NO;
}
