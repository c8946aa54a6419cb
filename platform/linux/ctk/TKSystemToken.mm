// A token that the host has published.
#import "platform/linux/ctk/TKSystem.h"

@implementation TKSystemToken

@synthesize tokenID = _tokenID;
@synthesize slotName = _slotName;
@synthesize items = _items;

- (instancetype)initWithTokenID:(NSString *)tokenID
                       slotName:(NSString *)slotName
                          items:(NSArray<TKTokenKeychainItem *> *)items
                        service:(id<TKKeyService>)service {
  self = [super init];
  if (self != nil) {
    _tokenID = [tokenID copy];
    _slotName = [slotName copy];
    _items = [items copy];
    _service = [service retain];
  }
  return self;
}

- (id<TKKeyService>)service {
  @synchronized(self) {
    return [[_service retain] autorelease];
  }
}

// Outside the lock: the service may wait for the token as it goes.
- (void)end {
  id<TKKeyService> service = nil;
  @synchronized(self) {
    service = _service;
    _service = nil;
  }
  [service release];
}

- (void)dealloc {
  [_tokenID release];
  [_slotName release];
  [_items release];
  [_service release];
  [super dealloc];
}

@end
