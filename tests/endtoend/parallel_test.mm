// Two cards' tokens at work at once.
#include <gtest/gtest.h>

#include <thread>

#import "tests/endtoend/real_card.h"
#import "token/Token.h"
#import "token/TokenSession.h"

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
  RealCard real;
  Token *tokens[] = {real.Insert(), real.Insert()};
  TokenSession *sessions[] = {MakeSession(tokens[0]), MakeSession(tokens[1])};
  ASSERT_TRUE(Login(sessions[0], real.card().pin()));
  int verified[2] = {};
  std::thread first(SignOften, &real, sessions[0], kRounds, &verified[0]);
  std::thread second(SignOften, &real, sessions[1], kRounds, &verified[1]);
  first.join();
  second.join();
  EXPECT_EQ(verified[0], kRounds);
  EXPECT_EQ(verified[1], kRounds);
  for (TokenSession *session : sessions) [session release];
  for (Token *token : tokens) [token release];
}

}  // namespace
}  // namespace endtoend
