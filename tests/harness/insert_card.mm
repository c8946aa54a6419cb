// Inserts a card into the extension's classes without the system: makes the driver, lets it create
// a token, and asks for all that the system asks for. One source for Apple's frameworks and for
// what stands in for them; what it prints is the same on both.
//   insert_card BUNDLE PIN-FILE CIPHERTEXT
// BUNDLE is an absolute path; CIPHERTEXT is kPlaintext, encrypted for the card's RSA key by PKCS#1.
// A line that begins with "Apple:" tells what Apple's classes did, any other what ours did. Exits 0
// when all of ours was right, 1 when not, 2 after wrong usage, 3 when Apple's classes refused what
// the rest needs.
#import <CryptoTokenKit/CryptoTokenKit.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#import "tests/harness/MainBundle.h"
#import "token/CardItems.h"
#import "token/TSAuthOperation.h"
#import "token/Token.h"
#import "token/TokenDriver.h"
#import "token/TokenSession.h"

// An algorithm that a session is asked about: Apple's own class cannot be made by a program, and
// the extension sends it nothing else.
@interface TargetAlgorithm : NSObject {
  NSString *_target;
}
- (instancetype)initWithTarget:(SecKeyAlgorithm)target;
- (BOOL)isAlgorithm:(SecKeyAlgorithm)algorithm;
- (BOOL)supportsAlgorithm:(SecKeyAlgorithm)algorithm;
@end

@implementation TargetAlgorithm

- (instancetype)initWithTarget:(SecKeyAlgorithm)target {
  self = [super init];
  if (self != nil) _target = [(NSString *)target retain];
  return self;
}

- (BOOL)isAlgorithm:(SecKeyAlgorithm)algorithm {
  return [_target isEqual:(NSString *)algorithm];
}

- (BOOL)supportsAlgorithm:(SecKeyAlgorithm)algorithm {
  return [self isAlgorithm:algorithm];
}

- (void)dealloc {
  [_target release];
  [super dealloc];
}

@end

namespace {

constexpr char kPlaintext[] = "For the card's owner alone.";
constexpr char kMessage[] = "A message that only the card's owner can have signed.";
constexpr size_t kDigestSize = 32;
// What PKCS#1 v1.5 signs of the message: its SHA-256 digest behind the algorithm's name.
constexpr unsigned char kDigestInfo[] = {
    0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04,
    0x02, 0x01, 0x05, 0x00, 0x04, 0x20, 0x3c, 0xbd, 0xae, 0xfe, 0x4b, 0x33, 0x7f,
    0xbb, 0x4a, 0xcb, 0x01, 0x92, 0x1e, 0xd3, 0xc8, 0x23, 0x11, 0x18, 0x5c, 0xf3,
    0x66, 0x3f, 0x1b, 0x74, 0xc8, 0x60, 0x9d, 0x44, 0x6d, 0xeb, 0xdf, 0x0d};

FILE *out = nullptr;  // our own lines; descriptor 1 is left to the access layer's
bool right = true;    // whether all of ours was

// Prints what is to be so, and whether it is.
void Check(const char *what, bool holds) {
  fprintf(out, "%s: %s\n", what, holds ? "yes" : "NO");
  if (!holds) right = false;
}

// Ends the program, for want of something that Apple's classes had to give.
[[noreturn]] void Refused(const char *what) {
  fprintf(out, "Apple: refused %s\n", what);
  exit(right ? 3 : 1);
}

const char *YesNo(BOOL value) { return value ? "yes" : "no"; }

// An object ID of the card that make-card makes: kind 1 for a certificate and 2 for a key, CKA_ID 1
// for RSA and 2 for EC.
NSData *ObjectID(unsigned char kind, unsigned char ckaID) {
  const unsigned char bytes[] = {kind, ckaID};
  return [NSData dataWithBytes:bytes length:sizeof(bytes)];
}

NSData *TextData(const char *text) { return [NSData dataWithBytes:text length:strlen(text)]; }

TKTokenKeyAlgorithm *Algorithm(SecKeyAlgorithm target) {
  return (TKTokenKeyAlgorithm *)[[[TargetAlgorithm alloc] initWithTarget:target] autorelease];
}

// --- what the token publishes --------------------------------------------------------------------

// The operations for which a key's constraints ask for the PIN.
void PrintConstraints(TKTokenKeychainKey *key) {
  const struct {
    TKTokenOperation operation;
    const char *name;
  } rows[] = {{TKTokenOperationSignData, "sign"},
              {TKTokenOperationDecryptData, "decrypt"},
              {TKTokenOperationPerformKeyExchange, "exchange"}};
  fputs("  PIN for:", out);
  for (const auto &row : rows) {
    id constraint = [[key constraints] objectForKey:[NSNumber numberWithInteger:row.operation]];
    if ([constraint isEqual:@"PIN"]) fprintf(out, " %s", row.name);
  }
  fputs("\n", out);
}

// The item of an object ID; nil when there is none.
id Item(NSArray *items, unsigned char kind, unsigned char ckaID) {
  for (NSUInteger i = 0; i < [items count]; ++i) {
    id item = [items objectAtIndex:i];
    if ([[item objectID] isEqual:ObjectID(kind, ckaID)]) return item;
  }
  return nil;
}

void PrintCertificate(TKTokenKeychainCertificate *certificate) {
  Check("a certificate", [certificate isKindOfClass:[TKTokenKeychainCertificate class]] != NO);
  fprintf(out, "Apple:   label %s\n", [[certificate label] UTF8String]);
}

void PrintKey(TKTokenKeychainKey *key) {
  Check("its key", [key isKindOfClass:[TKTokenKeychainKey class]] != NO);
  fprintf(out, "Apple:   label %s\n", [[key label] UTF8String]);
  fprintf(out, "  signs: %s, decrypts: %s, exchanges keys: %s\n", YesNo([key canSign]),
          YesNo([key canDecrypt]), YesNo([key canPerformKeyExchange]));
  PrintConstraints(key);
  fprintf(out, "Apple:   type %s, %ld bits, hash of %lu bytes\n", [[key keyType] UTF8String],
          (long)[key keySizeInBits], (unsigned long)[[key publicKeyHash] length]);
}

// Returns the token's items: those of its keychain contents, or as read from the card once more,
// should Apple's class keep none for a process that is no extension.
NSArray *PrintItems(Token *token) {
  NSArray *items = [[token keychainContents] items];
  fprintf(out, "Apple: items in the keychain contents: %lu\n", (unsigned long)[items count]);
  if ([items count] == 0) items = [CopyCardItems([token p11], [token session]) autorelease];
  for (unsigned char ckaID = 1; ckaID <= 2; ++ckaID) {  // the card has them in any order
    PrintCertificate(Item(items, 1, ckaID));
    PrintKey(Item(items, 2, ckaID));
  }
  return items;
}

// --- what a session does -------------------------------------------------------------------------

void PrintSupport(TokenSession *session) {
  const struct {
    const char *name;
    TKTokenOperation operation;
    unsigned char ckaID;
    SecKeyAlgorithm algorithm;
  } rows[] = {
      {"RSA sign raw", TKTokenOperationSignData, 1, kSecKeyAlgorithmRSASignatureRaw},
      {"RSA sign PKCS1v15 SHA256", TKTokenOperationSignData, 1,
       kSecKeyAlgorithmRSASignatureDigestPKCS1v15SHA256},
      {"RSA decrypt raw", TKTokenOperationDecryptData, 1, kSecKeyAlgorithmRSAEncryptionRaw},
      {"RSA decrypt PKCS1", TKTokenOperationDecryptData, 1, kSecKeyAlgorithmRSAEncryptionPKCS1},
      {"RSA decrypt OAEP", TKTokenOperationDecryptData, 1, kSecKeyAlgorithmRSAEncryptionOAEPSHA256},
      {"EC sign digest", TKTokenOperationSignData, 2, kSecKeyAlgorithmECDSASignatureDigestX962},
      {"EC sign message", TKTokenOperationSignData, 2,
       kSecKeyAlgorithmECDSASignatureMessageX962SHA256},
      {"EC exchange", TKTokenOperationPerformKeyExchange, 2,
       kSecKeyAlgorithmECDHKeyExchangeStandardX963SHA1}};
  for (const auto &row : rows) {
    const BOOL supported = [session tokenSession:session
                               supportsOperation:row.operation
                                        usingKey:ObjectID(2, row.ckaID)
                                       algorithm:Algorithm(row.algorithm)];
    fprintf(out, "supports %s: %s\n", row.name, YesNo(supported));
  }
}

// Returns a signature, or nil with a line that says why there is none.
NSData *Sign(TokenSession *session, NSData *data, unsigned char ckaID, SecKeyAlgorithm algorithm) {
  NSError *error = nil;
  NSData *signature = [session tokenSession:session
                                   signData:data
                                   usingKey:ObjectID(2, ckaID)
                                  algorithm:Algorithm(algorithm)
                                      error:&error];
  if (signature == nil) {
    fprintf(out, "not signed: %s %ld %s\n", [[error domain] UTF8String], (long)[error code],
            [[error localizedDescription] UTF8String]);
  }
  return signature;
}

// Whether an operation that asks for the PIN takes this one; nil stands for none.
bool TakesPin(TokenSession *session, NSString *pin) {
  NSError *error = nil;
  auto *operation =
      (TKTokenSmartCardPINAuthOperation *)[session tokenSession:session
                                          beginAuthForOperation:TKTokenOperationSignData
                                                     constraint:@"PIN"
                                                          error:&error];
  [operation setPIN:pin];
  return [operation finishWithError:&error] != NO;
}

void LogIn(TokenSession *session, NSString *pin) {
  NSError *error = nil;
  Check("a foreign constraint is refused", [session tokenSession:session
                                               beginAuthForOperation:TKTokenOperationSignData
                                                          constraint:@"none of ours"
                                                               error:&error] == nil &&
                                               [error code] == TKErrorCodeBadParameter);
  Check("no PIN is refused", !TakesPin(session, nil));
  Check("a wrong PIN is refused", !TakesPin(session, @"000000"));
  Check("the PIN is taken", TakesPin(session, pin));
}

// The public key of the certificate that belongs to one of the card's keys.
SecKeyRef PublicKey(NSArray *items, unsigned char ckaID) {
  TKTokenKeychainCertificate *item = Item(items, 1, ckaID);
  SecCertificateRef certificate =
      item == nil ? nullptr
                  : SecCertificateCreateWithData(kCFAllocatorDefault, (CFDataRef)[item data]);
  if (certificate == nullptr) Refused("a certificate");
  SecKeyRef key = SecCertificateCopyKey(certificate);
  CFRelease(certificate);
  if (key == nullptr) Refused("a public key");
  return (SecKeyRef)[(id)key autorelease];
}

bool Verifies(SecKeyRef key, SecKeyAlgorithm algorithm, const char *message, NSData *signature) {
  return signature != nil && SecKeyVerifySignature(key, algorithm, (CFDataRef)TextData(message),
                                                   (CFDataRef)signature, nullptr) != 0;
}

void SignWithRsa(TokenSession *session, NSArray *items) {
  unsigned char block[256];  // 00 01 FF ... FF 00 DigestInfo
  const size_t start = sizeof(block) - sizeof(kDigestInfo);
  memset(block, 0xff, sizeof(block));
  block[0] = block[start - 1] = 0;
  block[1] = 1;
  memcpy(block + start, kDigestInfo, sizeof(kDigestInfo));
  NSData *signature = Sign(session, [NSData dataWithBytes:block length:sizeof(block)], 1,
                           kSecKeyAlgorithmRSASignatureRaw);
  const SecKeyAlgorithm algorithm = kSecKeyAlgorithmRSASignatureMessagePKCS1v15SHA256;
  Check("the RSA signature verifies",
        Verifies(PublicKey(items, 1), algorithm, kMessage, signature));
  Check("not for another message", !Verifies(PublicKey(items, 1), algorithm, "another", signature));
}

void SignWithEc(TokenSession *session, NSArray *items) {
  NSData *digest = [NSData dataWithBytes:kDigestInfo + sizeof(kDigestInfo) - kDigestSize
                                  length:kDigestSize];
  NSData *signature = Sign(session, digest, 2, kSecKeyAlgorithmECDSASignatureDigestX962);
  const SecKeyAlgorithm algorithm = kSecKeyAlgorithmECDSASignatureMessageX962SHA256;
  Check("the EC signature verifies", Verifies(PublicKey(items, 2), algorithm, kMessage, signature));
  Check("not for another message", !Verifies(PublicKey(items, 2), algorithm, "another", signature));
}

void Decrypt(TokenSession *session, NSData *ciphertext) {
  NSError *error = nil;
  NSData *plaintext = [session tokenSession:session
                                decryptData:ciphertext
                                   usingKey:ObjectID(2, 1)
                                  algorithm:Algorithm(kSecKeyAlgorithmRSAEncryptionPKCS1)
                                      error:&error];
  Check("the plaintext is the message", [plaintext isEqual:TextData(kPlaintext)] != NO);
}

// --- cards ---------------------------------------------------------------------------------------

// Has a new driver make a token for a card; the caller owns the token, and the pool the other two.
Token *Insert() {
  TokenDriver *driver = [[[TokenDriver alloc] init] autorelease];
  if (driver == nil) Refused("a driver");
  fprintf(out, "Apple: the driver is its own delegate: %s\n", YesNo([driver delegate] == driver));
  // Its class is looked for by name, to go without one where a program may have none.
  id card = [[[NSClassFromString(@"TKSmartCard") alloc] init] autorelease];
  NSError *error = nil;
  TKSmartCardToken *token = [driver tokenDriver:driver
                        createTokenForSmartCard:card
                                            AID:nil
                                          error:&error];
  return (Token *)[token retain];
}

void UseCard(NSString *pin, NSData *ciphertext) {
  Token *token = Insert();
  if (token == nil) Refused("a token");
  Check("the token is set up", initialized && [token p11] != nullptr);
  if (!right) exit(1);
  fprintf(out, "Apple: the token is its own delegate: %s\n", YesNo([token delegate] == token));
  NSArray *items = PrintItems(token);
  NSError *error = nil;
  auto *session = (TokenSession *)[token token:token createSessionWithError:&error];
  if (session == nil) Refused("a session");
  fprintf(out, "Apple: the session is its own delegate: %s\n",
          YesNo([session delegate] == session));
  fprintf(out, "Apple: the session has its token: %s\n", YesNo([session token] == token));
  PrintSupport(session);
  Check("without the PIN nothing is signed",
        Sign(session, TextData(kMessage), 2, kSecKeyAlgorithmECDSASignatureDigestX962) == nil);
  LogIn(session, pin);
  SignWithRsa(session, items);
  SignWithEc(session, items);
  Decrypt(session, ciphertext);
  [token release];
}

// Inserts a card whose set-up fails, since the module behind the adapter cannot be started.
void FailToUseCard() {
  setenv("SOFTHSM2_CONF", "/nonexistent", 1);
  Token *token = Insert();
  Check("the token is not set up", !initialized && [token p11] == nullptr);
  fprintf(out, "Apple: a token all the same: %s\n", YesNo(token != nil));
  [token release];
}

NSString *FirstLine(NSString *path) {
  NSString *text = [NSString stringWithContentsOfFile:path
                                             encoding:NSUTF8StringEncoding
                                                error:nullptr];
  return [[text componentsSeparatedByString:@"\n"] objectAtIndex:0];
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 4) {
    fputs("usage: insert_card BUNDLE PIN-FILE CIPHERTEXT\n", stderr);
    return 2;
  }
  out = fdopen(dup(1), "w");
  setbuf(out, nullptr);  // so that a crash takes no line with it
  dup2(2, 1);
  @autoreleasepool {
    if (!StandInBundle([NSString stringWithUTF8String:argv[1]])) {
      fprintf(stderr, "insert_card: %s is not the main bundle\n", argv[1]);
      return 2;
    }
    NSString *pin = FirstLine([NSString stringWithUTF8String:argv[2]]);
    NSData *ciphertext = [NSData dataWithContentsOfFile:[NSString stringWithUTF8String:argv[3]]];
    fputs("== a card\n", out);
    @autoreleasepool {
      UseCard(pin, ciphertext);
    }
    fprintf(out, "Apple: the token has gone, and has ended its module: %s\n", YesNo(!initialized));
    fputs("== a card whose set-up fails\n", out);
    @autoreleasepool {
      FailToUseCard();
    }
    fputs("== the end\n", out);
  }
  return right ? 0 : 1;
}
