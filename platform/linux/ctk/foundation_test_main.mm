// The main function of tests that use Foundation: each test has an autorelease pool of its own,
// from before its fixture is made until after it is gone.
#import <Foundation/Foundation.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

namespace {

class PoolAroundEachTest : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo &) override { pool_ = [[NSAutoreleasePool alloc] init]; }
  void OnTestEnd(const testing::TestInfo &) override { [pool_ drain]; }

  NSAutoreleasePool *pool_ = nil;
};

}  // namespace
int main(int argc, char **argv) {
  setenv("LC_ALL", "C.UTF-8", 1);  // before Foundation settles what C strings are encoded in
  @autoreleasepool {
    // GNUstep deadlocks when its first run loop is made while another thread sends a message there.
    [NSRunLoop currentRunLoop];
    testing::InitGoogleMock(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new PoolAroundEachTest);
    return RUN_ALL_TESTS();
  }
}
