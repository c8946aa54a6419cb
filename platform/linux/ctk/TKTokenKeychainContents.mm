#import <CryptoTokenKit/TKTokenKeychain.h>

#import "platform/linux/ctk/TKHostInterface.h"

@implementation TKTokenKeychainContents

- (void)fillWithItems:(NSArray<TKTokenKeychainItem *> *)items {
  NSArray *copy = [items copy];
  @synchronized(self) {
    [_items release];
    _items = copy;
  }
}

- (NSArray<TKTokenKeychainItem *> *)items {
  @synchronized(self) {
    return [[_items retain] autorelease];
  }
}

// The first item of the class that has the ID; nil with an error when there is none.
- (id)itemOfClass:(Class)itemClass objectID:(TKTokenObjectID)objectID error:(NSError **)error {
  for (TKTokenKeychainItem *item in [self items]) {
    if ([item isKindOfClass:itemClass] && [[item objectID] isEqual:objectID]) return item;
  }
  if (error != nullptr) {
    *error = [NSError errorWithDomain:TKErrorDomain code:TKErrorCodeObjectNotFound userInfo:nil];
  }
  return nil;
}

- (TKTokenKeychainKey *)keyForObjectID:(TKTokenObjectID)objectID error:(NSError **)error {
  return [self itemOfClass:[TKTokenKeychainKey class] objectID:objectID error:error];
}

- (TKTokenKeychainCertificate *)certificateForObjectID:(TKTokenObjectID)objectID
                                                 error:(NSError **)error {
  return [self itemOfClass:[TKTokenKeychainCertificate class] objectID:objectID error:error];
}

- (void)dealloc {
  [_items release];
  [super dealloc];
}

@end

@implementation TKTokenKeychainContents (Host)

- (instancetype)initForToken {
  self = [super init];
  if (self != nil) _items = [[NSArray alloc] init];
  return self;
}

- (NSArray<TKTokenObjectID> *)duplicateObjectIDs {
  NSMutableSet *seen = [NSMutableSet set];
  NSMutableArray *duplicates = [NSMutableArray array];
  for (TKTokenKeychainItem *item in [self items]) {
    TKTokenObjectID objectID = [item objectID];
    if (objectID == nil) continue;
    if ([seen containsObject:objectID] && ![duplicates containsObject:objectID]) {
      [duplicates addObject:objectID];
    }
    [seen addObject:objectID];
  }
  return duplicates;
}

@end
