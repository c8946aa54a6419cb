#import "token/KeyCapabilities.h"

#include <os/log.h>

#include "p11/lookup.h"

// The private key's capabilities are read from the public key, deliberately: the public object can
// be read before the PIN is known.
void AddCapabilities(TKTokenKeychainKey *key, CK_FUNCTION_LIST *p11, CK_SESSION_HANDLE session,
                     CK_OBJECT_HANDLE publicKey, KeyFlags *flags) {
  NSMutableDictionary *constraints = [NSMutableDictionary dictionary];

  is_attr_supported(p11, session, publicKey, CKA_VERIFY, &flags->sign);
  if (flags->sign == CK_TRUE) {
    [key setCanSign:YES];
    [constraints setObject:@"PIN" forKey:@(TKTokenOperationSignData)];
    os_log(OS_LOG_DEFAULT, "keySign YES.");
  } else {
    [key setCanSign:NO];
    os_log(OS_LOG_DEFAULT, "keySign NO.");
  }

  is_attr_supported(p11, session, publicKey, CKA_ENCRYPT, &flags->encrypt);
  // Read whatever the first says: the card's calls do not depend on it.
  is_attr_supported(p11, session, publicKey, CKA_WRAP, &flags->wrap);
  if (flags->encrypt == CK_TRUE || flags->wrap == CK_TRUE) {
    [key setCanDecrypt:YES];
    [constraints setObject:@"PIN" forKey:@(TKTokenOperationDecryptData)];
    os_log(OS_LOG_DEFAULT, "keyDecipher YES.");
  } else {
    [key setCanDecrypt:NO];
    os_log(OS_LOG_DEFAULT, "keyDecipher NO.");
  }

  is_attr_supported(p11, session, publicKey, CKA_DERIVE, &flags->derive);
  if (flags->derive == CK_TRUE) {
    [key setCanPerformKeyExchange:YES];
    [constraints setObject:@"PIN" forKey:@(TKTokenOperationPerformKeyExchange)];
    os_log(OS_LOG_DEFAULT, "keyAgreement YES.");
  } else {
    [key setCanPerformKeyExchange:NO];
    os_log(OS_LOG_DEFAULT, "keyAgreement NO.");
  }

  [key setConstraints:constraints];
}
