// Work on other threads, and who gets its results.
#import "app/system/main_thread.h"

#import <Foundation/Foundation.h>
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>

namespace kelvrin::app {
namespace {

// Turns the run loop until a condition holds.
void Await(const std::function<bool()> &holds) {
  NSDate *limit = [NSDate dateWithTimeIntervalSinceNow:60];
  while (!holds() && [limit timeIntervalSinceNow] > 0) {
    @autoreleasepool {
      [[NSRunLoop currentRunLoop] runMode:NSDefaultRunLoopMode
                               beforeDate:[NSDate dateWithTimeIntervalSinceNow:0.01]];
    }
  }
  ASSERT_TRUE(holds());
}

TEST(MainThreadTest, ComputesOnAnotherAndAnswersOnThisOne) {
  bool answered = false;
  const TaskPointer task = Compute<bool>([] { return [NSThread isMainThread] == NO; },
                                         [&](bool was_other) {
                                           EXPECT_TRUE(was_other);
                                           answered = [NSThread isMainThread] != NO;
                                         });
  Await([&] { return answered; });
}

// Work in turns, of which the first waits for whoever holds `busy_`.
class TurnsTest : public testing::Test {
 protected:
  TurnsTest() { busy_.lock(); }
  TaskPointer Begin(int number) {
    const auto work = [this, number] {
      begun_ += number;
      if (number == 1) const std::lock_guard wait(busy_);
      return number;
    };
    return Compute<int>(work, [this](int answer) { answers_ += answer; }, &turn_);
  }

  pthread_mutex_t turn_ = PTHREAD_MUTEX_INITIALIZER;
  std::mutex busy_;
  std::atomic<int> begun_ = 0;
  int answers_ = 0;
};

TEST_F(TurnsTest, WorkThatNobodyWantsWhenItsTurnComesIsLeftUndone) {
  const TaskPointer first = Begin(1);
  Await([this] { return begun_ == 1; });
  Begin(10).reset();
  const TaskPointer third = Begin(100);
  busy_.unlock();
  Await([this] { return answers_ == 101; });
  EXPECT_EQ(begun_, 101);
}

TEST_F(TurnsTest, WhoeverLetsGoOfWorkThatHasBegunGetsNoAnswer) {
  TaskPointer first = Begin(1);
  Await([this] { return begun_ == 1; });
  first.reset();
  const TaskPointer second = Begin(10);
  busy_.unlock();
  Await([this] { return answers_ != 0; });
  EXPECT_EQ(answers_, 10);
}

}  // namespace
}  // namespace kelvrin::app
