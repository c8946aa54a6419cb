// The readers that the host has published.
#import <CryptoTokenKit/TKSmartCardSlot.h>

#include <atomic>

#import "platform/linux/ctk/TKSystem.h"

static std::atomic<bool> allowed = true;

@interface TKSmartCardSlot (System)
- (instancetype)initWithName:(NSString *)name;
- (void)changeState:(TKSmartCardSlotState)state;
@end

@interface TKSmartCardSlotManager (System)
+ (TKSmartCardSlotManager *)sharedManager;
- (NSArray<TKSmartCardSlot *> *)slots;
- (void)replaceSlots:(NSArray<TKSmartCardSlot *> *)slots;
@end

@implementation TKSmartCardSlot

@synthesize name = _name;

- (instancetype)initWithName:(NSString *)name {
  self = [super init];
  if (self != nil) {
    _name = [name copy];
    _state = TKSmartCardSlotStateEmpty;
  }
  return self;
}

- (TKSmartCardSlotState)state {
  @synchronized(self) {
    return _state;
  }
}

// Named so that key-value observation leaves the telling to it.
- (void)changeState:(TKSmartCardSlotState)state {
  [self willChangeValueForKey:@"state"];
  @synchronized(self) {
    _state = state;
  }
  [self didChangeValueForKey:@"state"];
}

- (void)dealloc {
  [_name release];
  [super dealloc];
}

@end

@implementation TKSmartCardSlotManager

// Of the whole process; never freed.
+ (TKSmartCardSlotManager *)sharedManager {
  static TKSmartCardSlotManager *const manager = [[self alloc] init];
  return manager;
}

+ (TKSmartCardSlotManager *)defaultManager {
  return allowed ? [self sharedManager] : nil;
}

- (instancetype)init {
  self = [super init];
  if (self != nil) _slots = [[NSArray alloc] init];
  return self;
}

- (NSArray<TKSmartCardSlot *> *)slots {
  @synchronized(self) {
    return [[_slots retain] autorelease];
  }
}

- (NSArray<NSString *> *)slotNames {
  return [[self slots] valueForKey:@"name"];
}

- (void)replaceSlots:(NSArray<TKSmartCardSlot *> *)slots {
  NSArray *copy = [slots copy];
  [self willChangeValueForKey:@"slotNames"];
  @synchronized(self) {
    [_slots release];
    _slots = copy;
  }
  [self didChangeValueForKey:@"slotNames"];
}

- (TKSmartCardSlot *)slotNamed:(NSString *)name {
  for (TKSmartCardSlot *slot in [self slots]) {
    if ([[slot name] isEqual:name]) return slot;
  }
  return nil;
}

@end

void TKSystemAllowReaders(BOOL now) { allowed = now != NO; }

void TKSystemAddReader(NSString *name) {
  @autoreleasepool {
    TKSmartCardSlotManager *manager = [TKSmartCardSlotManager sharedManager];
    TKSmartCardSlot *slot = [[[TKSmartCardSlot alloc] initWithName:name] autorelease];
    [manager replaceSlots:[[manager slots] arrayByAddingObject:slot]];
  }
}

void TKSystemSetReaderState(NSString *name, TKSmartCardSlotState state) {
  @autoreleasepool {
    [[[TKSmartCardSlotManager sharedManager] slotNamed:name] changeState:state];
  }
}

void TKSystemRemoveReader(NSString *name) {
  @autoreleasepool {
    TKSmartCardSlotManager *manager = [TKSmartCardSlotManager sharedManager];
    TKSmartCardSlot *slot = [manager slotNamed:name];
    NSMutableArray *rest = [NSMutableArray arrayWithArray:[manager slots]];
    [rest removeObject:slot];
    [slot changeState:TKSmartCardSlotStateMissing];
    [manager replaceSlots:rest];
  }
}
