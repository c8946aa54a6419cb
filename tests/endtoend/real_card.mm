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

Token *MakeToken() {
  // What the system has at hand when a card is inserted.
  static TokenDriver *const driver = [[TokenDriver alloc] init];
  static TKSmartCard *const smartCard = [[TKSmartCard alloc] init];
  NSError *error = nil;
  return (Token *)[driver tokenDriver:driver
              createTokenForSmartCard:smartCard
                                  AID:nil
                                error:&error];
}

RealCard::RealCard(const kelvrin::CardOptions &options, const std::string &adapter_lines)
    : card_(options), bundle_(CopyBundle(card_)) {
  std::ofstream(bundle_ / "Contents/Resources/libpkcs11qarn_Lindel_PCSC.conf", std::ios::app)
      << adapter_lines;
}

RealCard::~RealCard() { TKSetMainBundle(nil); }

Inserted::Inserted(const std::filesystem::path &bundle) {
  @autoreleasepool {
    TKSetMainBundle(host::ToString(bundle));
    token_ = [MakeToken() retain];
    NSError *error = nil;
    session_ = [(TokenSession *)[token_ token:token_ createSessionWithError:&error] retain];
  }
}

Inserted::~Inserted() {
  @autoreleasepool {
    [session_ release];
    [token_ release];
  }
}

void Inserted::Remove() {
  [token_ release];
  token_ = nil;
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
  [(TKTokenSmartCardPINAuthOperation *)operation setPIN:host::ToString(pin)];
  return [operation finishWithError:&error];
}

NSData *Sign(TokenSession *session, const Bytes &data, NSData *key, SecKeyAlgorithm algorithm,
             NSError **error) {
  return [session tokenSession:session
                      signData:ToData(data)
                      usingKey:key
                     algorithm:Algorithm(algorithm)
                         error:error];
}

NSData *Decrypt(TokenSession *session, const Bytes &data, NSData *key, SecKeyAlgorithm algorithm,
                NSError **error) {
  return [session tokenSession:session
                   decryptData:ToData(data)
                      usingKey:key
                     algorithm:Algorithm(algorithm)
                         error:error];
}

bool SignsWithEcKey(const RealCard &real, TokenSession *session, const std::string &message) {
  NSError *error = nil;
  const Bytes bytes = host::testing::BytesOf(message);
  NSData *signature = Sign(session, host::Digest(host::Hash::kSha256, bytes), EcKey(),
                           kSecKeyAlgorithmECDSASignatureDigestX962, &error);
  return signature != nil &&
         real.PublicKey("ec").Verifies(host::Hash::kSha256, bytes, ToBytes(signature));
}

}  // namespace endtoend
