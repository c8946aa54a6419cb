// What applications see of tokens and readers come and go.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

#import "platform/linux/ctk/ctk_fixture.h"
#import "platform/linux/ctk/testing/change_notes.h"
#import "platform/linux/ctk/testing/published_token.h"

using ::testing::ElementsAre;

namespace {

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
  ChangeNotes *notes = ChangesOf(watcher, @"tokenIDs");
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
}

TEST(TokenWatcher, MayGoWhileTokensChange) {
  std::atomic<bool> ending = false;
  std::thread changes([&ending] {
    @autoreleasepool {
      TKSystemToken *token = [[[TKSystemToken alloc]
          initWithTokenID:@"a:1"
                 slotName:@"Reader"
                    items:@[]
                  service:[[[WordService alloc] init] autorelease]] autorelease];
      while (!ending) {
        TKSystemAddToken(token);
        TKSystemRemoveToken(@"a:1");
      }
    }
  });
  for (int i = 0; i < 1000; ++i) {
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
  ChangeNotes *notes = ChangesOf(manager, @"slotNames");
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
  ChangeNotes *notes = ChangesOf(slot, @"state");
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
