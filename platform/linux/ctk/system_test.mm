// What applications see of tokens and readers come and go.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

#import "platform/linux/ctk/ctk_fixture.h"
#import "platform/linux/ctk/published_token.h"

using ::testing::ElementsAre;

// Notes the values of a property as they change, and refuses to be told on the main thread.
@interface ChangeNotes : NSObject {
  NSMutableArray *_values;
  NSObject *_object;
  NSString *_name;
}
- (instancetype)initWithObject:(NSObject *)object name:(NSString *)name;
- (void)stop;
- (std::vector<std::string>)values;
@end

@implementation ChangeNotes

- (instancetype)initWithObject:(NSObject *)object name:(NSString *)name {
  self = [super init];
  _values = [[NSMutableArray alloc] init];
  _object = [object retain];
  _name = [name retain];
  [object addObserver:self forKeyPath:name options:NSKeyValueObservingOptionNew context:nullptr];
  return self;
}

- (void)observeValueForKeyPath:(NSString *)path
                      ofObject:(id)object
                        change:(NSDictionary *)change
                       context:(void *)context {
  (void)context;
  EXPECT_FALSE([NSThread isMainThread]);
  id value = [change objectForKey:NSKeyValueChangeNewKey];
  EXPECT_TRUE([value isEqual:[object valueForKey:path]]);
  if ([value isKindOfClass:[NSArray class]]) value = [value componentsJoinedByString:@", "];
  [_values addObject:[value description]];
}

- (void)stop {
  [_object removeObserver:self forKeyPath:_name];
}

- (std::vector<std::string>)values {
  std::vector<std::string> texts;
  for (NSString *value in _values) texts.push_back(TextOf(value));
  return texts;
}

- (void)dealloc {
  [_values release];
  [_object release];
  [_name release];
  [super dealloc];
}

@end

namespace {

// Notes that live as long as the pool.
ChangeNotes *NotesOf(NSObject *object, NSString *name) {
  return [[[ChangeNotes alloc] initWithObject:object name:name] autorelease];
}

TEST(TokenWatcher, KnowsTheTokensThatWereThereBefore) {
  TKTokenWatcher *early = [[[TKTokenWatcher alloc] init] autorelease];
  EXPECT_EQ([[early tokenIDs] count], 0U);
  const PublishedToken token(@"a:1", @[]);
  TKTokenWatcher *late = [[[TKTokenWatcher alloc] init] autorelease];
  EXPECT_TRUE([[early tokenIDs] isEqual:@[ @"a:1" ]]);
  EXPECT_TRUE([[late tokenIDs] isEqual:@[ @"a:1" ]]);
}

TEST(TokenWatcher, TellsObserversOfEachChangeOffTheMainThread) {
  TKTokenWatcher *watcher = [[[TKTokenWatcher alloc] init] autorelease];
  ChangeNotes *notes = NotesOf(watcher, @"tokenIDs");
  PublishedToken one(@"a:1", @[]);
  PublishedToken other(@"b:2:3", @[]);
  one.Remove();
  [notes stop];
  other.Remove();
  EXPECT_THAT([notes values], ElementsAre("a:1", "a:1, b:2:3", "b:2:3"));
  EXPECT_EQ([[watcher tokenIDs] count], 0U);
}

TEST(TokenWatcher, TellsWhereATokenIs) {
  TKTokenWatcher *watcher = [[[TKTokenWatcher alloc] init] autorelease];
  EXPECT_EQ([watcher tokenInfoForTokenID:@"a:1"], nil);
  const PublishedToken token(@"a:1", @[]);
  TKTokenWatcherTokenInfo *info = [watcher tokenInfoForTokenID:@"a:1"];
  EXPECT_EQ(TextOf([info tokenID]), "a:1");
  EXPECT_EQ(TextOf([info slotName]), "Reader");
  EXPECT_EQ(TextOf([info driverName]), "a");
}

TEST(TokenWatcher, MayGoWhileTokensChange) {
  std::atomic<bool> ending = false;
  std::thread changes([&ending] {
    while (!ending) const PublishedToken token(@"a:1", @[]);
  });
  for (int i = 0; i < 200; ++i) {
    @autoreleasepool {
      TKTokenWatcher *watcher = [[TKTokenWatcher alloc] init];
      EXPECT_LE([[watcher tokenIDs] count], 1U);
      [watcher release];
    }
  }
  ending = true;
  changes.join();
}

TEST(SlotManager, IsNoneWithoutTheEntitlement) {
  TKSystemAllowReaders(NO);
  EXPECT_EQ([TKSmartCardSlotManager defaultManager], nil);
  TKSystemAllowReaders(YES);
  EXPECT_NE([TKSmartCardSlotManager defaultManager], nil);
}

TEST(SlotManager, TellsObserversOfReaders) {
  TKSmartCardSlotManager *manager = [TKSmartCardSlotManager defaultManager];
  EXPECT_EQ([[manager slotNames] count], 0U);
  EXPECT_EQ([manager slotNamed:@"one"], nil);
  ChangeNotes *notes = NotesOf(manager, @"slotNames");
  OnAnotherThread([] {
    TKSystemAddReader(@"one");
    TKSystemAddReader(@"other");
    TKSystemRemoveReader(@"one");
    TKSystemRemoveReader(@"other");
  });
  [notes stop];
  EXPECT_THAT([notes values], ElementsAre("one", "one, other", "other", ""));
}

TEST(SlotManager, TellsObserversOfASlotUntilItIsMissing) {
  OnAnotherThread([] { TKSystemAddReader(@"one"); });
  TKSmartCardSlot *slot = [[TKSmartCardSlotManager defaultManager] slotNamed:@"one"];
  EXPECT_EQ([slot state], TKSmartCardSlotStateEmpty);
  EXPECT_EQ(TextOf([slot name]), "one");
  ChangeNotes *notes = NotesOf(slot, @"state");
  OnAnotherThread([] {
    TKSystemSetReaderState(@"one", TKSmartCardSlotStateProbing);
    TKSystemSetReaderState(@"one", TKSmartCardSlotStateValidCard);
    TKSystemRemoveReader(@"one");
  });
  [notes stop];
  EXPECT_THAT([notes values], ElementsAre("2", "4", "0"));
  EXPECT_EQ([slot state], TKSmartCardSlotStateMissing);
}

}  // namespace
