// Driver, token and session, and the smart card that is only passed on.
#import <CryptoTokenKit/CryptoTokenKit.h>

#include <atomic>

#import "platform/linux/ctk/TKHostInterface.h"

NSString *const TKErrorDomain = @"CryptoTokenKit";

static std::atomic<bool> failNextToken = false;
static std::atomic<bool> failNextSession = false;

// Returns the object when its class conforms to the protocol of that name, else nil: nothing else
// sets a delegate. Asked by name, since this runtime keeps one protocol object an image, and they
// do not compare.
static id OwnDelegate(id object, NSString *protocolName) {
  Protocol *protocol = NSProtocolFromString(protocolName);
  return protocol != nil && [object conformsToProtocol:protocol] ? object : nil;
}

@implementation TKSmartCard
@end

@implementation TKTokenDriver

- (instancetype)init {
  self = [super init];
  if (self != nil) _delegate = OwnDelegate(self, @"TKTokenDriverDelegate");
  return self;
}

- (id<TKTokenDriverDelegate>)delegate {
  return _delegate;
}

- (void)setDelegate:(id<TKTokenDriverDelegate>)delegate {
  _delegate = delegate;
}

@end

@implementation TKSmartCardTokenDriver
@end

// A token may be used, and released, though its initialiser never ran: an extension can hand out
// such a token after a failed set-up. Everything then is nil.
@implementation TKToken

@synthesize tokenDriver = _tokenDriver;
@synthesize keychainContents = _keychainContents;

- (instancetype)initWithTokenDriver:(TKTokenDriver *)tokenDriver instanceID:(NSString *)instanceID {
  if (failNextToken.exchange(false)) {
    [self release];
    return nil;
  }
  self = [super init];
  if (self != nil) {
    _tokenDriver = [tokenDriver retain];
    _instanceID = [instanceID copy];
    _delegate = OwnDelegate(self, @"TKTokenDelegate");
    _keychainContents = [[TKTokenKeychainContents alloc] initForToken];
  }
  return self;
}

- (id<TKTokenDelegate>)delegate {
  return _delegate;
}

- (void)setDelegate:(id<TKTokenDelegate>)delegate {
  _delegate = delegate;
}

- (void)dealloc {
  [_keychainContents release];
  [_instanceID release];
  [_tokenDriver release];
  [super dealloc];
}

@end

@implementation TKToken (Host)

+ (void)failNextInitialisation {
  failNextToken = true;
}

- (NSString *)instanceID {
  return _instanceID;
}

@end

@implementation TKSmartCardToken

@synthesize AID = _AID;

- (instancetype)initWithSmartCard:(TKSmartCard *)smartCard
                              AID:(NSData *)AID
                       instanceID:(NSString *)instanceID
                      tokenDriver:(TKSmartCardTokenDriver *)tokenDriver {
  (void)smartCard;  // never used: the extension reaches the card its own way
  self = [super initWithTokenDriver:tokenDriver instanceID:instanceID];
  if (self != nil) _AID = [AID copy];
  return self;
}

- (void)dealloc {
  [_AID release];
  [super dealloc];
}

@end

@implementation TKTokenSession

@synthesize token = _token;

- (instancetype)initWithToken:(TKToken *)token {
  if (failNextSession.exchange(false)) {
    [self release];
    return nil;
  }
  self = [super init];
  if (self != nil) {
    _token = [token retain];
    _delegate = OwnDelegate(self, @"TKTokenSessionDelegate");
  }
  return self;
}

- (id<TKTokenSessionDelegate>)delegate {
  return _delegate;
}

- (void)setDelegate:(id<TKTokenSessionDelegate>)delegate {
  _delegate = delegate;
}

- (void)dealloc {
  [_token release];
  [super dealloc];
}

@end

@implementation TKTokenSession (Host)

+ (void)failNextInitialisation {
  failNextSession = true;
}

@end

@implementation TKSmartCardTokenSession

- (instancetype)initWithToken:(TKToken *)token {
  return [super initWithToken:token];
}

@end
