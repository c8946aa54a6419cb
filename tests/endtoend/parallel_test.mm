// Two cards' tokens at work at once.
#include <gtest/gtest.h>

#include <thread>

#import "tests/endtoend/real_card.h"

namespace endtoend {
namespace {

// Signs again and again; counts the signatures that verify.
void SignOften(const RealCard *real, TokenSession *session, int rounds, int *verified) {
  @autoreleasepool {
    for (int i = 0; i < rounds; ++i) {
      if (SignsWithEcKey(*real, session, "round " + std::to_string(i))) ++*verified;
    }
  }
}

TEST(TwoCards, SignInParallel) {
  constexpr int kRounds = 50;
  const RealCard real;
  const Inserted one(real.bundle());
  const Inserted other(real.bundle());
  ASSERT_TRUE(Login(one.session(), real.card().pin()));
  int verified[2] = {};
  std::thread first(SignOften, &real, one.session(), kRounds, &verified[0]);
  std::thread second(SignOften, &real, other.session(), kRounds, &verified[1]);
  first.join();
  second.join();
  EXPECT_EQ(verified[0], kRounds);
  EXPECT_EQ(verified[1], kRounds);
}

}  // namespace
}  // namespace endtoend
