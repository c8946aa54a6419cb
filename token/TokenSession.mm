#import "token/TokenSession.h"

#include <os/log.h>
#include <stdint.h>

#include "p11/bringup.h"
#include "p11/diagnostics.h"
#include "p11/lookup.h"
#include "p11/operations.h"
#import "token/KeyAlgorithms.h"
#import "token/KeySupport.h"
#import "token/ObjectId.h"
#import "token/OperationLock.h"
#import "token/Reinitialisation.h"
#import "token/SessionErrors.h"
#import "token/TSAuthOperation.h"
#import "token/Token.h"

// What a card operation wrote. Never cleared before: only the bytes written are handed on.
struct CardResult {
  CK_BYTE bytes[kResultSize];
  CK_ULONG length;
};

// Lengths are logged as 32-bit integers.
static int32_t LogLength(NSUInteger length) { return static_cast<int32_t>(length); }

// Writes the error of a failed operation, without a test of the pointer: the platform passes one.
static void Fail(NSError **error, TKErrorCode code, NSString *description) {
  *error = SessionError(code, description);  // NOLINT(clang-analyzer-*): as said above
}

// Tests the login and finds the private key. Returns whether the operation can go on; otherwise
// the error is written. As everywhere, the token is asked for twice at each step, for its list and
// for its session, so that each step sees what it holds by then.
static BOOL FindPrivateKey(TokenSession *session, NSData *keyObjectID, CK_OBJECT_HANDLE *key,
                           NSError **error) {
  CK_BBOOL loginRequired;  // always written; a failed test leaves it set
  login_required([[session tsToken] p11], [[session tsToken] session], &loginRequired);
  if (loginRequired) {
    Fail(error, TKErrorCodeAuthenticationNeeded, @"Authentifizierung erforderlich.");
    return NO;
  }
  const ObjectIdBuffer ckaID = dataToId(keyObjectID);
  const CK_RV rv = get_priv_key([[session tsToken] p11], [[session tsToken] session], ckaID.bytes,
                                ckaID.length, key);
  if (rv != CKR_OK) {
    p11_error("get_priv_key", rv);
    Fail(error, TKErrorCodeObjectNotFound, @"Privater Schlüssel nicht gefunden.");
    return NO;
  }
  return YES;
}

// Makes the card's result into data; nil with the error written when that fails.
static NSData *ResultData(const CardResult &result, NSString *failure, NSError **error) {
  NSData *data = [NSData dataWithBytes:result.bytes length:result.length];
  if (data == nil) Fail(error, TKErrorCodeCorruptedData, failure);
  return data;
}

// The session argument of the methods is never read: each session is its own delegate.
@implementation TokenSession

- (instancetype)initWithToken:(TKToken *)token {
  self = [super initWithToken:token];
  if (self != nil) _tsToken = [(Token *)token retain];
  return self;
}

@synthesize tsToken = _tsToken;

// Answers the constraint "PIN", whatever the operation, with the operation that logs in.
- (TKTokenAuthOperation *)tokenSession:(TKTokenSession *)session
                 beginAuthForOperation:(TKTokenOperation)operation
                            constraint:(TKTokenOperationConstraint)constraint
                                 error:(NSError **)error {
  (void)session;
  (void)operation;
  if ([constraint isEqual:@"PIN"]) {
    return [[[TSAuthOperation alloc] initWithSession:self authID:constraint] autorelease];
  }
  os_log_error(OS_LOG_DEFAULT, "Constraint ungültig: %@", constraint);
  if (error != nullptr) {
    NSString *text = [[NSBundle mainBundle] localizedStringForKey:@"WRONG_CONSTR"
                                                            value:@""
                                                            table:nil];
    *error = SessionError(TKErrorCodeBadParameter, text);
  }
  return nil;
}

// Answers from the card, bringing the module up again first where that is needed.
- (BOOL)tokenSession:(TKTokenSession *)session
    supportsOperation:(TKTokenOperation)operation
             usingKey:(TKTokenObjectID)keyObjectID
            algorithm:(TKTokenKeyAlgorithm *)algorithm {
  (void)session;
  os_log(OS_LOG_DEFAULT, "(BOOL) TKTokenKeyAlgorithm %s", algo_to_str(algorithm));
  if (!__atomic_load_n(&initialized, __ATOMIC_RELAXED) && !Reinitialise(self)) return NO;
  return KeySupports(self, operation, keyObjectID, algorithm);
}

// Signs; the signature is returned exactly as the card made it.
- (NSData *)tokenSession:(TKTokenSession *)session
                signData:(NSData *)dataToSign
                usingKey:(TKTokenObjectID)keyObjectID
               algorithm:(TKTokenKeyAlgorithm *)algorithm
                   error:(NSError **)error {
  (void)session;
  os_log(OS_LOG_DEFAULT, "Signieren...");
  os_log(OS_LOG_DEFAULT, "dataToSign len %d", LogLength([dataToSign length]));
  os_log(OS_LOG_DEFAULT, "dataToSign bytes  %{public}@", [self asHex:dataToSign]);
  CardResult result;
  {
    OperationLock lock;
    CK_OBJECT_HANDLE key;
    if (!FindPrivateKey(self, keyObjectID, &key, error)) return nil;
    const CK_MECHANISM_TYPE mechanism = get_mechanism(algorithm);
    os_log(OS_LOG_DEFAULT, "(SIGN) TKTokenKeyAlgorithm %s", algo_to_str(algorithm));
    char name[1024] = {};
    mech_to_str(mechanism, name);  // with the log off, too
    os_log(OS_LOG_DEFAULT, "Mechanism %{public}s (0x%X)\n", name, static_cast<uint32_t>(mechanism));
    result.length = sizeof(result.bytes);
    const CK_RV rv = sign([[self tsToken] p11], [[self tsToken] session], key, mechanism,
                          static_cast<const CK_BYTE *>([dataToSign bytes]), [dataToSign length],
                          result.bytes, &result.length);
    if (rv != CKR_OK) {
      p11_error("sign", rv);
      Fail(error, TKErrorCodeCorruptedData, @"Fehler beim Signieren.");
      return nil;
    }
  }
  os_log(OS_LOG_DEFAULT, "sigLen %d", LogLength(result.length));
  NSData *signature = ResultData(result, @"Fehler bei der Konvertierung der Signatur.", error);
  if (signature == nil) return nil;
  os_log(OS_LOG_DEFAULT, "Signaturerstellung war erfolgreich.");
  os_log(OS_LOG_DEFAULT, "signature len %d", LogLength([signature length]));
  os_log(OS_LOG_DEFAULT, "signature bytes  %{public}@", [self asHex:signature]);
  return signature;
}

// Decrypts; neither ciphertext nor plaintext reaches the log.
- (NSData *)tokenSession:(TKTokenSession *)session
             decryptData:(NSData *)ciphertext
                usingKey:(TKTokenObjectID)keyObjectID
               algorithm:(TKTokenKeyAlgorithm *)algorithm
                   error:(NSError **)error {
  (void)session;
  os_log(OS_LOG_DEFAULT, "Entschlüsseln...");
  os_log(OS_LOG_DEFAULT, "ciphertext len %d", LogLength([ciphertext length]));
  CardResult result;
  {
    OperationLock lock;
    CK_OBJECT_HANDLE key;
    if (!FindPrivateKey(self, keyObjectID, &key, error)) return nil;
    const CK_MECHANISM_TYPE mechanism = get_mechanism(algorithm);
    result.length = sizeof(result.bytes);
    const CK_RV rv = decrypt([[self tsToken] p11], [[self tsToken] session], key, mechanism,
                             static_cast<const CK_BYTE *>([ciphertext bytes]), [ciphertext length],
                             result.bytes, &result.length);
    if (rv != CKR_OK) {
      p11_error("decrypt", rv);
      Fail(error, TKErrorCodeCorruptedData, @"Fehler beim Entschlüsseln.");
      return nil;
    }
  }
  NSData *plaintext =
      ResultData(result, @"Fehler bei der Konvertierung der entschlüsselten Daten.", error);
  if (plaintext == nil) return nil;
  os_log(OS_LOG_DEFAULT, "Entschlüsselung war erfolgreich.");
  return plaintext;
}

// Agrees on a secret, returned at the length the card gives: the parameters are never read.
- (NSData *)tokenSession:(TKTokenSession *)session
    performKeyExchangeWithPublicKey:(NSData *)otherPartyPublicKeyData
                           usingKey:(TKTokenObjectID)objectID
                          algorithm:(TKTokenKeyAlgorithm *)algorithm
                         parameters:(TKTokenKeyExchangeParameters *)parameters
                              error:(NSError **)error {
  (void)session;
  (void)parameters;
  os_log(OS_LOG_DEFAULT, "DeriveKey...");
  os_log(OS_LOG_DEFAULT, "otherPartyPublicKeyData len %d",
         LogLength([otherPartyPublicKeyData length]));
  CardResult result;
  {
    OperationLock lock;
    CK_OBJECT_HANDLE key;
    if (!FindPrivateKey(self, objectID, &key, error)) return nil;
    const CK_MECHANISM_TYPE mechanism = get_mechanism(algorithm);
    // Taken for 1024 bytes by mech_to_str; no name has more than 26 characters.
    char name[100] = {};
    mech_to_str(mechanism, name);  // with the log off, too
    os_log(OS_LOG_DEFAULT, "DeriveKey mechanism %s", name);
    result.length = sizeof(result.bytes);
    const CK_RV rv = derive_key([[self tsToken] p11], [[self tsToken] session], key, mechanism,
                                static_cast<const CK_BYTE *>([otherPartyPublicKeyData bytes]),
                                [otherPartyPublicKeyData length], result.bytes, &result.length);
    if (rv != CKR_OK) {
      p11_error("derive_key", rv);
      Fail(error, TKErrorCodeCorruptedData, @"Fehler beim DeriveKey.");
      return nil;
    }
  }
  NSData *secret =
      ResultData(result, @"Fehler bei der Konvertierung der abgeleiteten Daten.", error);
  if (secret == nil) return nil;
  os_log(OS_LOG_DEFAULT, "DeriveKey war erfolgreich.");
  return secret;
}

- (NSString *)asHex:(NSData *)data {
  NSMutableString *text = [NSMutableString stringWithCapacity:[data length] * 2];
  const uint8_t *bytes = static_cast<const uint8_t *>([data bytes]);
  for (NSUInteger i = 0; i < [data length]; ++i) {
    [text appendFormat:@"%02X", static_cast<unsigned int>(bytes[i])];
  }
  return text;
}

// Written out, as in TSAuthOperation, to stand before dealloc: a synthesized one would come last.
- (Token *)tsToken {
  return [[_tsToken retain] autorelease];
}

// Neither logs out nor closes the card's session, which all sessions of the token share.
- (void)dealloc {
  [_tsToken release];
  [super dealloc];
}

@end
