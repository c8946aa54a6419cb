#include "platform/linux/host/inserted_card.h"

#import <CryptoTokenKit/CryptoTokenKit.h>

#import "platform/linux/ctk/TKHostInterface.h"
#import "platform/linux/host/foundation.h"

namespace host {
namespace {

Error token_not_found(const std::string &description) {
  return {to_text(TKErrorDomain), TKErrorCodeTokenNotFound, description};
}

}  // namespace

InsertedCard::InsertedCard(Object driver) : driver_(std::move(driver)) { make_token(); }

void InsertedCard::make_token() {
  @autoreleasepool {
    TKSmartCardTokenDriver *driver = (TKSmartCardTokenDriver *)driver_.get();
    id<TKSmartCardTokenDriverDelegate> delegate =
        (id<TKSmartCardTokenDriverDelegate>)[driver delegate];
    SEL create = @selector(tokenDriver:createTokenForSmartCard:AID:error:);
    if (![delegate respondsToSelector:create]) {
      error_ = token_not_found("the driver does not make tokens for smart cards");
      return;
    }
    TKSmartCard *card = [[[TKSmartCard alloc] init] autorelease];
    NSError *error = nil;
    TKToken *token = [delegate tokenDriver:driver
                   createTokenForSmartCard:card
                                       AID:nil
                                     error:&error];
    token_ = retained(token);
    const bool ready = token != nil && [token instanceID] != nil;
    driver_gave_error_ = !ready && error != nil;
    if (token == nil) {
      error_ = error_or_default(error, "the driver made no token for the card and gave no error");
    } else if (ready) {
      set_up_ = SetUp::kReady;
    } else {
      set_up_ = SetUp::kUninitialised;
      error_ = error_or_default(error, "the driver returned a token that it never set up");
    }
  }
}

std::string InsertedCard::instance_id() const {
  @autoreleasepool {
    return to_text([(TKToken *)token_.get() instanceID]);
  }
}

Result<Client> InsertedCard::open_client() {
  @autoreleasepool {
    TKToken *token = (TKToken *)token_.get();
    if (token == nil || set_up_ != SetUp::kReady) {
      return token_not_found("there is no token to open a session of");
    }
    const std::lock_guard lock(*token_lock_);
    if (![[token delegate] respondsToSelector:@selector(token:createSessionWithError:)]) {
      return token_not_found("the token does not create sessions");
    }
    NSError *error = nil;
    TKTokenSession *session = [[token delegate] token:token createSessionWithError:&error];
    if (session == nil) {
      return error_or_default(error, "the token created no session and gave no error");
    }
    return Client(retained(session), token_lock_);
  }
}

void InsertedCard::remove() {
  if (token_ == nullptr) return;
  @autoreleasepool {
    TKTokenDriver *driver = (TKTokenDriver *)driver_.get();
    const std::lock_guard lock(*token_lock_);
    if ([[driver delegate] respondsToSelector:@selector(tokenDriver:terminateToken:)]) {
      [[driver delegate] tokenDriver:driver terminateToken:(TKToken *)token_.get()];
    }
  }
  token_.reset();
}

}  // namespace host
