#import "tests/endtoend/real_card.h"

#include <fstream>

#import "platform/linux/ctk/MainBundle.h"
#import "platform/linux/ctk/TKHostInterface.h"
#include "tests/product/product_files.h"
#import "token/Token.h"
#import "token/TokenDriver.h"
#import "token/TokenSession.h"

namespace endtoend {
namespace {

// Copies the built bundle beside the card.
std::filesystem::path CopyBundle(const kelvrin::SoftHsmCard &card) {
  const std::filesystem::path bundle = card.directory() / "KelvrinToken.appex";
  product::CopyBundle(bundle);
  return bundle;
}

NSData *ObjectID(unsigned char kind, unsigned char ckaID) {
  const unsigned char bytes[] = {kind, ckaID};
  return [[NSData alloc] initWithBytes:bytes length:sizeof(bytes)];
}

}  // namespace

NSData *RsaKey() {
  static NSData *const key = ObjectID(2, 1);
  return key;
}

NSData *EcKey() {
  static NSData *const key = ObjectID(2, 2);
  return key;
}

TKTokenKeyAlgorithm *Algorithm(SecKeyAlgorithm algorithm) {
  NSArray *algorithms = [NSArray arrayWithObject:(NSString *)algorithm];
  return [[[TKTokenKeyAlgorithm alloc] initWithAlgorithms:algorithms] autorelease];
}

Bytes BytesOf(NSData *data) {
  const auto *bytes = static_cast<const uint8_t *>([data bytes]);
  return Bytes(bytes, bytes + [data length]);
}

NSData *DataOf(const Bytes &bytes) {
  return [NSData dataWithBytes:bytes.data() length:bytes.size()];
}

RealCard::RealCard(const kelvrin::CardOptions &options, const std::string &adapter_lines)
    : card_(options), bundle_(CopyBundle(card_)) {
  std::ofstream(bundle_ / "Contents/Resources/libpkcs11qarn_Lindel_PCSC.conf", std::ios::app)
      << adapter_lines;
  TKSetMainBundle([NSString stringWithUTF8String:bundle_.c_str()]);
}

RealCard::~RealCard() { TKSetMainBundle(nil); }

Token *RealCard::Insert() {
  TokenDriver *driver = [[TokenDriver alloc] init];
  TKSmartCard *smartCard = [[TKSmartCard alloc] init];
  Token *token = nil;
  @autoreleasepool {
    NSError *error = nil;
    token = [(Token *)[driver tokenDriver:driver
                  createTokenForSmartCard:smartCard
                                      AID:nil
                                    error:&error] retain];
  }
  [smartCard release];
  [driver release];
  return token;
}

TokenSession *MakeSession(Token *token) {
  TokenSession *session = nil;
  @autoreleasepool {
    NSError *error = nil;
    session = [(TokenSession *)[token token:token createSessionWithError:&error] retain];
  }
  return session;
}

BOOL Supports(TokenSession *session, TKTokenOperation operation, NSData *key,
              SecKeyAlgorithm algorithm) {
  return [session tokenSession:session
             supportsOperation:operation
                      usingKey:key
                     algorithm:Algorithm(algorithm)];
}

BOOL Login(TokenSession *session, const std::string &pin) {
  NSError *error = nil;
  TKTokenAuthOperation *operation = [session tokenSession:session
                                    beginAuthForOperation:TKTokenOperationSignData
                                               constraint:@"PIN"
                                                    error:&error];
  [(TKTokenSmartCardPINAuthOperation *)operation
      setPIN:[NSString stringWithUTF8String:pin.c_str()]];
  return [operation finishWithError:&error];
}

NSData *Sign(TokenSession *session, const Bytes &data, NSData *key, SecKeyAlgorithm algorithm,
             NSError **error) {
  return [session tokenSession:session
                      signData:DataOf(data)
                      usingKey:key
                     algorithm:Algorithm(algorithm)
                         error:error];
}

NSData *Decrypt(TokenSession *session, const Bytes &data, NSData *key, SecKeyAlgorithm algorithm,
                NSError **error) {
  return [session tokenSession:session
                   decryptData:DataOf(data)
                      usingKey:key
                     algorithm:Algorithm(algorithm)
                         error:error];
}

bool SignsWithEcKey(const RealCard &real, TokenSession *session, const std::string &message) {
  NSError *error = nil;
  const Bytes digest = Sha256(message);
  NSData *signature =
      Sign(session, digest, EcKey(), kSecKeyAlgorithmECDSASignatureDigestX962, &error);
  return signature != nil && Verifies(real.card().File("ec.pub.pem"), digest, BytesOf(signature));
}

}  // namespace endtoend
