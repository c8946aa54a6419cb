// Readers, and whether a card is in them.
#pragma once

#import <CryptoTokenKit/TKBase.h>

#pragma clang assume_nonnull begin

typedef NS_ENUM(NSInteger, TKSmartCardSlotState) {
  TKSmartCardSlotStateMissing = 0,
  TKSmartCardSlotStateEmpty = 1,
  TKSmartCardSlotStateProbing = 2,
  TKSmartCardSlotStateMuteCard = 3,
  TKSmartCardSlotStateValidCard = 4,
};

@interface TKSmartCardSlot : NSObject
TK_INSTANCE_VARIABLES(NSString *_name; TKSmartCardSlotState _state;)
// Observable; changes come on a private thread.
@property (readonly) TKSmartCardSlotState state;
@property (readonly) NSString *name;
@end

@interface TKSmartCardSlotManager : NSObject
TK_INSTANCE_VARIABLES(NSArray *_slots;)
// Nil unless the program has the entitlement com.apple.security.smartcard.
@property (class, readonly, nullable) TKSmartCardSlotManager *defaultManager;
// Observable; changes come on a private thread.
@property (readonly) NSArray<NSString *> *slotNames;
// Nil when there is no reader of that name.
- (nullable TKSmartCardSlot *)slotNamed:(NSString *)name;
@end

#pragma clang assume_nonnull end
