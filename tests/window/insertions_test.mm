// What a card that comes and goes leaves behind.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#import "tests/window/window_on_desk.h"

// Declared in debug builds alone, and there in all.
extern "C" BOOL GSDebugAllocationActive(BOOL active);
extern "C" int GSDebugAllocationCount(Class counted);
extern "C" int GSDebugAllocationTotal(Class counted);

namespace window {
namespace {

using kelvrin::app::State;
using testing::IsEmpty;

// The classes whose objects come and go with a reader, a card or a trial.
constexpr const char *kClasses[] = {
    // The extension's.
    "Token", "TokenSession", "TSAuthOperation",
    // The application's.
    "FunctionCall", "Alarm", "ProcessRunner",
    // Those of what stands in for the system.
    "KeyService", "TKPublicKey", "TKSmartCardSlot", "TKSystemToken", "TKTokenKey",
    "TKTokenKeychainCertificate", "TKTokenKeychainContents", "TKTokenKeychainKey",
    "TKTokenWatcherTokenInfo"};

Class ClassOf(const char *name) { return NSClassFromString([NSString stringWithUTF8String:name]); }

// A number of each class.
std::map<std::string, int> OfEachClass(int (*number)(Class)) {
  std::map<std::string, int> numbers;
  for (const char *name : kClasses) numbers[name] = number(ClassOf(name));
  return numbers;
}

// The classes that have more objects now.
std::vector<std::string> ClassesWithMoreThan(const std::map<std::string, int> &before) {
  std::vector<std::string> classes;
  for (const auto &[name, count] : OfEachClass(GSDebugAllocationCount)) {
    if (count > before.at(name)) classes.push_back(name);
  }
  return classes;
}

class InsertionsTest : public WindowOnDesk {
 protected:
  void InsertAndRemoveCard() {
    desk().desktop().InsertCard(kReader);
    AwaitState(State::kReady);
    desk().desktop().RemoveCard(kReader);
    AwaitState(State::kNoCard);
  }
  // All that a reader and its card give rise to.
  void UseReaderAndCard() {
    desk().desktop().InsertCard(kReader);
    AwaitState(State::kReady);
    for (const char *name : {"Erika Mustermann RSA", "Erika Mustermann EC"}) {
      SelectCertificate(name);
      TryAndAwait();
    }
    desk().desktop().RemoveReader(kReader);
    AwaitState(State::kNoReader);
    desk().desktop().AddReader(kReader);
    AwaitState(State::kNoCard);
  }
  // As whenever the person comes back to the window.
  void AskForRegistration() {
    [(id)application_ applicationDidBecomeActive:nil];
    Await([] { return GSDebugAllocationCount(ClassOf("ProcessRunner")) == 0; });
  }
};

TEST_F(InsertionsTest, AHundredInsertionsAndRemovalsLeaveNoObjectOfOurs) {
  [[window() window] orderOut:nil];  // drawing takes the sanitizers longest
  desk().desktop().AddReader(kReader);
  AwaitState(State::kNoCard);
  GSDebugAllocationActive(YES);
  UseReaderAndCard();
  InsertAndRemoveCard();
  const auto before = OfEachClass(GSDebugAllocationCount);
  const auto made_before = OfEachClass(GSDebugAllocationTotal);
  for (int i = 0; i < 4; ++i) {
    AskForRegistration();
    UseReaderAndCard();
    for (int j = 0; j < 24; ++j) InsertAndRemoveCard();
  }
  // A thread may still be at its end, and an alarm has some seconds to go.
  Await([&] { return ClassesWithMoreThan(before).empty(); });
  EXPECT_THAT(ClassesWithMoreThan(before), IsEmpty());
  // What is not made cannot be left.
  for (const auto &[name, made] : OfEachClass(GSDebugAllocationTotal)) {
    EXPECT_GE(made - made_before.at(name), 4) << name;
  }
  GSDebugAllocationActive(NO);
}

}  // namespace
}  // namespace window
