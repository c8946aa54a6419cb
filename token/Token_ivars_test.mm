// What the classes keep in each object.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#import <objc/runtime.h>
#include <stdlib.h>

#include <string>
#include <type_traits>
#include <vector>

#import "token/TSAuthOperation.h"
#import "token/Token.h"
#import "token/TokenSession.h"

namespace {

using testing::ElementsAre;

static_assert(std::is_same_v<decltype(initialized), CK_BBOOL>);

// The names of the instance variables that the class itself declares, in their order.
std::vector<std::string> Ivars(Class owner) {
  unsigned int count = 0;
  Ivar *ivars = class_copyIvarList(owner, &count);
  std::vector<std::string> names;
  for (unsigned int i = 0; i < count; ++i) names.emplace_back(ivar_getName(ivars[i]));
  free(ivars);
  return names;
}

TEST(IvarsTest, TokenKeepsTheDriverAndTheFourValuesOfTheBringUp) {
  EXPECT_THAT(Ivars([Token class]),
              ElementsAre("_driver", "_module", "_p11", "_slotID", "_session"));
}

TEST(IvarsTest, SessionKeepsTheTokenAlone) {
  EXPECT_THAT(Ivars([TokenSession class]), ElementsAre("_tsToken"));
}

TEST(IvarsTest, AuthenticationKeepsTheSessionAndTheConstraint) {
  EXPECT_THAT(Ivars([TSAuthOperation class]), ElementsAre("_session", "_authID"));
}

}  // namespace
