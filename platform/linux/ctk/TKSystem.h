// What the host, which plays the system, publishes to applications: readers, and the tokens of the
// cards in them.
//
// Changes are made by one thread at a time, never by the main one: observers of TKTokenWatcher,
// TKSmartCardSlotManager and TKSmartCardSlot are told on it before the function returns. What was
// published may be asked for on any thread.
#pragma once

#import <CryptoTokenKit/CryptoTokenKit.h>

#pragma clang assume_nonnull begin

// Whoever reaches the keys of one token. Called on any thread, several at once; it keeps the calls
// apart where the token wants it, and may wait for the card and for the PIN.
@protocol TKKeyService <NSObject>
- (BOOL)supportsOperation:(SecKeyOperationType)operation
                 usingKey:(TKTokenKeychainKey *)key
                algorithm:(NSString *)algorithm;
// Signs or decrypts.
- (nullable NSData *)performOperation:(SecKeyOperationType)operation
                                 data:(NSData *)data
                             usingKey:(TKTokenKeychainKey *)key
                            algorithm:(NSString *)algorithm
                                error:(NSError **)error;
@end

// A token that applications see until it is removed.
@interface TKSystemToken : NSObject {
  NSString *_tokenID;
  NSString *_slotName;
  NSArray<TKTokenKeychainItem *> *_items;
  id<TKKeyService> _service;
}
// `tokenID`: <class-id>:<instance ID>.
- (instancetype)initWithTokenID:(NSString *)tokenID
                       slotName:(NSString *)slotName
                          items:(NSArray<TKTokenKeychainItem *> *)items
                        service:(id<TKKeyService>)service;
@property (readonly) NSString *tokenID;
@property (readonly) NSString *slotName;
@property (readonly) NSArray<TKTokenKeychainItem *> *items;
// Nil once the token is gone.
- (nullable id<TKKeyService>)service;
// Lets go of the service; TKSystemRemoveToken does it.
- (void)end;
@end

// Makes a token visible.
void TKSystemAddToken(TKSystemToken *token);
// Ends a token: its items are no longer found, and operations on its keys fail from now on. Those
// that run end as its service ends them, which is released with the last.
void TKSystemRemoveToken(NSString *tokenID);
// All of them, in the order of their insertion.
NSArray<TKSystemToken *> *TKSystemTokens();

// Whether the program has the entitlement to see readers; it has at the start.
void TKSystemAllowReaders(BOOL allowed);
// Makes an empty reader visible.
void TKSystemAddReader(NSString *name);
void TKSystemSetReaderState(NSString *name, TKSmartCardSlotState state);
// Removes a reader, whose slot is missing from now on.
void TKSystemRemoveReader(NSString *name);

#pragma clang assume_nonnull end
