#import "bench/extension.h"

#include <chrono>
#include <stdexcept>

#import "platform/linux/ctk/MainBundle.h"
#import "tests/endtoend/real_card.h"
#import "token/Token.h"
#import "token/TokenDriver.h"
#import "token/TokenSession.h"

namespace kelvrin::bench {
namespace {

using Clock = std::chrono::steady_clock;

// What the system has at hand when a card is inserted.
TokenDriver *Driver() {
  static TokenDriver *const driver = [[TokenDriver alloc] init];
  return driver;
}

TKSmartCard *SmartCard() {
  static TKSmartCard *const card = [[TKSmartCard alloc] init];
  return card;
}

Token *MakeToken() {
  NSError *error = nil;
  return (Token *)[Driver() tokenDriver:Driver()
                createTokenForSmartCard:SmartCard()
                                    AID:nil
                                  error:&error];
}

}  // namespace

Extension::Extension(const std::filesystem::path &bundle) {
  @autoreleasepool {
    if (TKSetMainBundle([NSString stringWithUTF8String:bundle.c_str()]) == nil) {
      throw std::runtime_error("there is no bundle " + bundle.string());
    }
    token_ = [MakeToken() retain];
  }
  if (token_ != nil) session_ = endtoend::MakeSession(token_);
  if (session_ != nil) return;
  [token_ release];
  throw std::runtime_error("the card of " + bundle.string() + " cannot be used");
}

Extension::~Extension() {
  @autoreleasepool {
    [session_ release];
    [token_ release];
  }
}

void Extension::LogIn(const std::string &pin) {
  @autoreleasepool {
    if (!endtoend::Login(session_, pin)) throw std::runtime_error("the card refuses the PIN");
  }
}

SigningRequest MakeRequest(const std::vector<std::uint8_t> &data, NSData *key,
                           SecKeyAlgorithm algorithm) {
  @autoreleasepool {
    return {[endtoend::DataOf(data) retain], key, [endtoend::Algorithm(algorithm) retain]};
  }
}

NSData *Sign(TokenSession *session, const SigningRequest &request) {
  NSError *error = nil;
  return [session tokenSession:session
                      signData:request.data
                      usingKey:request.key
                     algorithm:request.algorithm
                         error:&error];
}

double SecondsOfSetup(NSUInteger items) {
  const auto start = Clock::now();
  std::chrono::duration<double> taken{-1};
  @autoreleasepool {
    Token *token = MakeToken();
    const auto end = Clock::now();
    if ([[[token keychainContents] items] count] == items) taken = end - start;
  }
  return taken.count();
}

}  // namespace kelvrin::bench
