#import "app/system/PresenceObserver.h"

#include <utility>

#import "app/strings.h"

using kelvrin::app::Presence;
using kelvrin::app::SlotState;
using kelvrin::app::ToText;

static SlotState StateOf(TKSmartCardSlot *slot) {
  switch ([slot state]) {
    case TKSmartCardSlotStateValidCard:
      return SlotState::kCard;
    case TKSmartCardSlotStateMuteCard:
      return SlotState::kMute;
    case TKSmartCardSlotStateProbing:
      return SlotState::kProbing;
    default:
      return SlotState::kEmpty;
  }
}

@implementation PresenceObserver

- (instancetype)init {
  self = [super init];
  if (self == nil) return nil;
  _watcher = [[TKTokenWatcher alloc] init];
  _manager = [[TKSmartCardSlotManager defaultManager] retain];
  _slots = [[NSMutableDictionary alloc] init];
  [_watcher addObserver:self forKeyPath:@"tokenIDs" options:0 context:nullptr];
  [_manager addObserver:self forKeyPath:@"slotNames" options:0 context:nullptr];
  [self followSlots];
  return self;
}

- (void)setChanged:(std::function<void()>)changed {
  _changed = std::move(changed);
}

// Observes the readers that have come, and no longer those that have gone. One that is back under
// its name is another slot.
- (void)followSlots {
  NSArray *names = [_manager slotNames];
  NSArray *known = [_slots allKeys];
  for (NSUInteger i = 0; i < [known count]; ++i) {
    NSString *name = [known objectAtIndex:i];
    TKSmartCardSlot *slot = [_slots objectForKey:name];
    if ([names containsObject:name] && [slot state] != TKSmartCardSlotStateMissing) continue;
    [slot removeObserver:self forKeyPath:@"state"];
    [_slots removeObjectForKey:name];
  }
  for (NSUInteger i = 0; i < [names count]; ++i) {
    NSString *name = [names objectAtIndex:i];
    TKSmartCardSlot *slot = [_slots objectForKey:name] == nil ? [_manager slotNamed:name] : nil;
    if (slot == nil) continue;
    [_slots setObject:slot forKey:name];
    [slot addObserver:self forKeyPath:@"state" options:0 context:nullptr];
  }
}

// Comes on a thread of the system's.
- (void)observeValueForKeyPath:(NSString *)keyPath
                      ofObject:(id)object
                        change:(NSDictionary *)change
                       context:(void *)context {
  (void)keyPath;
  (void)object;
  (void)change;
  (void)context;
  [self performSelectorOnMainThread:@selector(change) withObject:nil waitUntilDone:NO];
}

- (void)change {
  if (_watcher == nil) return;
  [self followSlots];
  const std::function<void()> changed = _changed;
  if (changed) changed();
}

// The reader that a token is in, where the system tells: it does since macOS 12.
- (NSString *)readerOfToken:(NSString *)tokenID {
  if (![_watcher respondsToSelector:@selector(tokenInfoForTokenID:)]) return nil;
  return [[_watcher tokenInfoForTokenID:tokenID] slotName];
}

- (void)readPresence:(Presence *)presence {
  presence->shows_readers = _manager != nil;
  NSArray *names = [_manager slotNames];
  for (NSUInteger i = 0; i < [names count]; ++i) {
    TKSmartCardSlot *slot = [_slots objectForKey:[names objectAtIndex:i]];
    presence->readers.push_back({ToText([names objectAtIndex:i]), StateOf(slot)});
  }
  NSArray *tokens = [_watcher tokenIDs];
  for (NSUInteger i = 0; i < [tokens count]; ++i) {
    NSString *token = [tokens objectAtIndex:i];
    presence->tokens.push_back({ToText(token), ToText([self readerOfToken:token])});
  }
}

- (void)stop {
  _changed = nullptr;
  NSArray *slots = [_slots allValues];
  for (NSUInteger i = 0; i < [slots count]; ++i) {
    [[slots objectAtIndex:i] removeObserver:self forKeyPath:@"state"];
  }
  [_slots removeAllObjects];
  [_manager removeObserver:self forKeyPath:@"slotNames"];
  [_watcher removeObserver:self forKeyPath:@"tokenIDs"];
  [_manager release];
  _manager = nil;
  [_watcher release];
  _watcher = nil;
}

- (void)dealloc {
  [_slots release];
  [super dealloc];
}

@end
