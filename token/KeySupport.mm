#import "token/KeySupport.h"

#include <os/log.h>

#include "p11/diagnostics.h"
#include "p11/lookup.h"
#import "token/KeyAlgorithms.h"
#import "token/ObjectId.h"
#import "token/Token.h"
#import "token/TokenSession.h"

// Room for a key's allowed mechanisms; a longer list is a failed read.
static const CK_ULONG kMaxMechanisms = 20;

// Reads the usage flags of the public key, which stand for the private key's abilities.
static BOOL UsageAllows(TokenSession *session, TKTokenOperation operation,
                        CK_OBJECT_HANDLE publicKey) {
  CK_BBOOL flag1 = CK_FALSE;
  CK_BBOOL flag2 = CK_FALSE;
  switch (operation) {
    case TKTokenOperationSignData:
      is_attr_supported([[session tsToken] p11], [[session tsToken] session], publicKey, CKA_VERIFY,
                        &flag1);
      return flag1 == CK_TRUE;
    case TKTokenOperationDecryptData:
      is_attr_supported([[session tsToken] p11], [[session tsToken] session], publicKey,
                        CKA_ENCRYPT, &flag1);
      // Read whatever the first says: the card's calls do not depend on it.
      is_attr_supported([[session tsToken] p11], [[session tsToken] session], publicKey, CKA_WRAP,
                        &flag2);
      return flag1 == CK_TRUE || flag2 == CK_TRUE;
    case TKTokenOperationPerformKeyExchange:
      is_attr_supported([[session tsToken] p11], [[session tsToken] session], publicKey, CKA_DERIVE,
                        &flag1);
      return NO;  // whatever the flag says: key exchange is never offered, as intended
    default:
      return NO;
  }
}

// Tells whether the algorithm's mechanism is among those the public key allows.
static BOOL MechanismAllowed(TokenSession *session, CK_OBJECT_HANDLE publicKey,
                             TKTokenKeyAlgorithm *algorithm) {
  CK_MECHANISM_TYPE mechanisms[kMaxMechanisms] = {};
  CK_ULONG count = kMaxMechanisms;
  const CK_RV rv = get_mechanism_list([[session tsToken] p11], [[session tsToken] session],
                                      publicKey, mechanisms, &count);
  if (rv != CKR_OK) {
    p11_error("get_mechanism_list", rv);
    count = 0;  // nothing was read; the comparison still runs, over nothing
  }
  for (CK_ULONG i = 0; i < count; ++i) {
    // Asked afresh for every entry, deliberately: the platform's questions are kept. An entry of
    // all ones equals an algorithm without a mechanism.
    if (mechanisms[i] == get_mechanism(algorithm)) {
      os_log(OS_LOG_DEFAULT, "RETURN YES.");
      return YES;
    }
  }
  return NO;
}

BOOL KeySupports(TokenSession *session, TKTokenOperation operation, NSData *keyObjectID,
                 TKTokenKeyAlgorithm *algorithm) {
  const ObjectIdBuffer ckaID = dataToId(keyObjectID);
  CK_OBJECT_HANDLE publicKey = CK_INVALID_HANDLE;
  const CK_RV rv = get_pub_key([[session tsToken] p11], [[session tsToken] session], ckaID.bytes,
                               ckaID.length, &publicKey);
  if (rv != CKR_OK) {
    // Said when the search failed, not when there is no key: that goes on with handle 0.
    os_log_error(OS_LOG_DEFAULT, "Öff. Schlüssel nicht gefunden.");
    return NO;
  }
  return UsageAllows(session, operation, publicKey) &&
         MechanismAllowed(session, publicKey, algorithm);
}
