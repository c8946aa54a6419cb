// An extension's executable for tests: one key, the PIN 1234, and much ado on standard output.
#import <CryptoTokenKit/CryptoTokenKit.h>
#include <os/log.h>
#include <stdio.h>
#include <unistd.h>

#import "platform/linux/ctk/TKHostInterface.h"

#pragma clang diagnostic ignored "-Wunused-parameter"

// Both ways that lines reach descriptor 1.
static void MakeNoise(const char *text) {
  printf("noise: %s\n", text);
  fflush(stdout);
  const ssize_t written = write(STDOUT_FILENO, "noise\n", 6);
  (void)written;
}

__attribute__((constructor)) static void OnLoad() { MakeNoise("loaded"); }

static void Fail(NSError **error, NSInteger code, NSString *text) {
  if (error == nullptr) return;
  *error = [NSError errorWithDomain:TKErrorDomain
                               code:code
                           userInfo:@{NSLocalizedDescriptionKey : text}];
}

@interface NotADriver : NSObject
@end
@implementation NotADriver
@end

@interface NoisyToken : TKSmartCardToken <TKTokenDelegate> {
 @public
  BOOL _loggedIn;
}
@end

@interface NoisySession : TKSmartCardTokenSession <TKTokenSessionDelegate>
@end

@interface NoisyAuthentication : TKTokenSmartCardPINAuthOperation {
 @public
  NoisyToken *_noisyToken;
}
@end

@implementation NoisyAuthentication

- (BOOL)finishWithError:(NSError **)error {
  _noisyToken->_loggedIn = [[self PIN] isEqual:@"1234"];
  if (_noisyToken->_loggedIn == NO) {
    os_log_error(OS_LOG_DEFAULT, "C_Login: 0xa0");
    os_log_error(OS_LOG_DEFAULT, "PIN kann NICHT verifiziert werden.");
    Fail(error, TKErrorCodeAuthenticationFailed, @"Das ist die falsche PIN für die Karte.");
  }
  return _noisyToken->_loggedIn;
}

@end

@implementation NoisyToken

- (TKTokenSession *)token:(TKToken *)token createSessionWithError:(NSError **)error {
  MakeNoise("session");
  return [[[NoisySession alloc] initWithToken:token] autorelease];
}

@end

@implementation NoisySession

- (BOOL)tokenSession:(TKTokenSession *)session
    supportsOperation:(TKTokenOperation)operation
             usingKey:(TKTokenObjectID)keyObjectID
            algorithm:(TKTokenKeyAlgorithm *)algorithm {
  if (operation == TKTokenOperationSignData &&
      [[[algorithm algorithms] lastObject] hasPrefix:@"algid:encrypt"]) {
    MakeNoise("asked to sign with algid:encrypt");
  }
  return operation == TKTokenOperationSignData &&
         ([algorithm isAlgorithm:kSecKeyAlgorithmRSASignatureRaw] ||
          [algorithm isAlgorithm:kSecKeyAlgorithmECDSASignatureDigestX962]);
}

// A signature is the data backwards.
- (NSData *)tokenSession:(TKTokenSession *)session
                signData:(NSData *)dataToSign
                usingKey:(TKTokenObjectID)keyObjectID
               algorithm:(TKTokenKeyAlgorithm *)algorithm
                   error:(NSError **)error {
  MakeNoise("sign");
  if (((NoisyToken *)[session token])->_loggedIn == NO) {
    Fail(error, TKErrorCodeAuthenticationNeeded, @"PIN");
    return nil;
  }
  os_log(OS_LOG_DEFAULT, "signed %s", "quietly");
  NSMutableData *reversed = [NSMutableData data];
  const auto *bytes = static_cast<const uint8_t *>([dataToSign bytes]);
  for (NSUInteger i = [dataToSign length]; i-- > 0;) [reversed appendBytes:bytes + i length:1];
  return reversed;
}

- (TKTokenAuthOperation *)tokenSession:(TKTokenSession *)session
                 beginAuthForOperation:(TKTokenOperation)operation
                            constraint:(TKTokenOperationConstraint)constraint
                                 error:(NSError **)error {
  NoisyAuthentication *authentication = [[[NoisyAuthentication alloc] init] autorelease];
  authentication->_noisyToken = (NoisyToken *)[session token];
  return authentication;
}

@end

// Makes tokens named after the main bundle, with one key.
@interface NoisyDriver : TKSmartCardTokenDriver <TKSmartCardTokenDriverDelegate>
- (NSArray *)items;
- (TKSmartCardToken *)tokenForCard:(TKSmartCard *)smartCard error:(NSError **)error;
@end

@implementation NoisyDriver

- (TKTokenKeychainKey *)key {
  TKTokenKeychainKey *key = [[[TKTokenKeychainKey alloc]
      initWithCertificate:nullptr
                 objectID:[NSData dataWithBytes:"\2\xAB" length:2]] autorelease];
  [key setLabel:@"Schlüssel\x1b[31m"];
  [key setKeyType:@"42"];
  [key setKeySizeInBits:2048];
  [key setCanSign:YES];
  [key setConstraints:@{@(TKTokenOperationSignData) : @"PIN"}];
  return key;
}

- (NSArray *)items {
  return [NSArray arrayWithObject:[self key]];
}

- (TKSmartCardToken *)tokenDriver:(TKSmartCardTokenDriver *)driver
          createTokenForSmartCard:(TKSmartCard *)smartCard
                              AID:(NSData *)AID
                            error:(NSError **)error {
  return [self tokenForCard:smartCard error:error];
}

- (TKSmartCardToken *)tokenForCard:(TKSmartCard *)smartCard error:(NSError **)error {
  MakeNoise("token");
  os_log(OS_LOG_DEFAULT, "a line, %s", "private part");
  os_log_error(OS_LOG_DEFAULT, "an error line, %s", "private part");
  NoisyToken *token = [[[NoisyToken alloc] initWithSmartCard:smartCard
                                                         AID:nil
                                                  instanceID:[[NSBundle mainBundle] bundlePath]
                                                 tokenDriver:self] autorelease];
  [[token keychainContents] fillWithItems:[self items]];
  return token;
}

@end

// Publishes its key twice.
@interface DuplicateDriver : NoisyDriver
@end
@implementation DuplicateDriver
- (NSArray *)items {
  return [NSArray arrayWithObjects:[self key], [self key], nil];
}
@end

// Returns a token that it never initialises, and logs why.
@interface BareDriver : NoisyDriver
@end
@implementation BareDriver
- (TKSmartCardToken *)tokenForCard:(TKSmartCard *)smartCard error:(NSError **)error {
  os_log(OS_LOG_DEFAULT, "trying");
  os_log_error(OS_LOG_DEFAULT, "no reader, %s", "private part");
  printf("noise that is not flushed\n");
  return [[NoisyToken alloc] autorelease];
}
@end

// The same without a word.
@interface SilentDriver : NoisyDriver
@end
@implementation SilentDriver
- (TKSmartCardToken *)tokenForCard:(TKSmartCard *)smartCard error:(NSError **)error {
  return [[NoisyToken alloc] autorelease];
}
@end

// Makes no token, says why, and logs a detail.
@interface FailingDriver : NoisyDriver
@end
@implementation FailingDriver
- (TKSmartCardToken *)tokenForCard:(TKSmartCard *)smartCard error:(NSError **)error {
  os_log_error(OS_LOG_DEFAULT, "a detail");
  Fail(error, TKErrorCodeCorruptedData, @"the card is broken");
  return nil;
}
@end
