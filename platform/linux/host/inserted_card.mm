#import "platform/linux/host/inserted_card.h"

#import <CryptoTokenKit/CryptoTokenKit.h>

#import "platform/linux/ctk/TKHostInterface.h"
#import "platform/linux/host/foundation.h"

namespace host {
namespace {

Error TokenNotFound(const std::string &description) {
  return {ToText(TKErrorDomain), TKErrorCodeTokenNotFound, description};
}

}  // namespace

InsertedCard::InsertedCard(Object driver) : driver_(std::move(driver)) { MakeToken(); }

void InsertedCard::MakeToken() {
  @autoreleasepool {
    TKSmartCardTokenDriver *driver = (TKSmartCardTokenDriver *)driver_.get();
    id<TKSmartCardTokenDriverDelegate> delegate =
        (id<TKSmartCardTokenDriverDelegate>)[driver delegate];
    SEL create = @selector(tokenDriver:createTokenForSmartCard:AID:error:);
    if (![delegate respondsToSelector:create]) {
      error_ = TokenNotFound("the driver does not make tokens for smart cards");
      return;
    }
    TKSmartCard *card = [[[TKSmartCard alloc] init] autorelease];
    NSError *error = nil;
    TKToken *token = [delegate tokenDriver:driver
                   createTokenForSmartCard:card
                                       AID:nil
                                     error:&error];
    token_ = Retained(token);
    if ([token instanceID] != nil) return;
    driver_gave_error_ = error != nil;
    error_ = ErrorOrDefault(error, token == nil
                                       ? "the driver made no token for the card and gave no error"
                                       : "the driver returned a token that it never set up");
  }
}

std::string InsertedCard::instance_id() const {
  @autoreleasepool {
    return ToText([(TKToken *)token_.get() instanceID]);
  }
}

Result<Client> InsertedCard::OpenClient() {
  @autoreleasepool {
    TKToken *token = (TKToken *)token_.get();
    if (token == nil || error_) return TokenNotFound("there is no token to open a session of");
    const std::lock_guard lock(*token_lock_);
    if (![[token delegate] respondsToSelector:@selector(token:createSessionWithError:)]) {
      return TokenNotFound("the token does not create sessions");
    }
    NSError *error = nil;
    TKTokenSession *session = [[token delegate] token:token createSessionWithError:&error];
    if (session == nil) {
      return ErrorOrDefault(error, "the token created no session and gave no error");
    }
    return Client(Retained(session), token_lock_);
  }
}

void InsertedCard::Remove() {
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
