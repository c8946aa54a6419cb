// What a card that comes and goes leaves behind.
#include <gtest/gtest.h>

#include <map>

#import "tests/window/window_on_desk.h"

// Declared in debug builds alone, and there in all.
extern "C" BOOL GSDebugAllocationActive(BOOL active);
extern "C" int GSDebugAllocationCount(Class counted);

namespace window {
namespace {

using kelvrin::app::State;

// The classes of ours whose objects come and go with a card.
std::map<std::string, int> CountObjects() {
  std::map<std::string, int> counts;
  for (const char *name :
       {"Token", "TokenSession", "TSAuthOperation", "TKSystemToken", "TKTokenKeychainCertificate",
        "TKTokenKeychainKey", "FunctionCall", "Alarm", "ProcessRunner"}) {
    counts[name] = GSDebugAllocationCount(NSClassFromString([NSString stringWithUTF8String:name]));
  }
  return counts;
}

class InsertionsTest : public WindowOnDesk {};

TEST_F(InsertionsTest, AHundredInsertionsAndRemovalsLeaveNoObjectOfOurs) {
  GSDebugAllocationActive(YES);
  [[window() window] orderOut:nil];  // drawing takes the sanitizers longest
  InsertCard();
  const auto cycle = [this] {
    desk().desktop().RemoveCard(kReader);
    AwaitState(State::kNoCard);
    desk().desktop().InsertCard(kReader);
    AwaitState(State::kReady);
  };
  cycle();
  TryAndAwait();
  EXPECT_EQ(CountObjects().at("Token"), 1);
  desk().desktop().RemoveCard(kReader);
  AwaitState(State::kNoCard);
  desk().desktop().Settle();
  const auto before = CountObjects();
  desk().desktop().InsertCard(kReader);
  AwaitState(State::kReady);
  for (int i = 0; i < 100; ++i) cycle();
  desk().desktop().RemoveCard(kReader);
  AwaitState(State::kNoCard);
  desk().desktop().Settle();
  EXPECT_EQ(CountObjects(), before);
  GSDebugAllocationActive(NO);
}

}  // namespace
}  // namespace window
