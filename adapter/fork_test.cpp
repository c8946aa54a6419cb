// The library in the child of a fork.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "adapter/testing/copies_fixture.h"
#include "adapter/testing/entries.h"

namespace kelvrin::adapter {
namespace {

// A child that hangs is ended.
constexpr unsigned kMaxSeconds = 60;

// Runs `body`, which may use the test's macros, in a child; whether that ended well.
template <typename Body>
bool GoesWellInChild(const Body& body) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(kMaxSeconds);
    body();
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void ExpectTheListIsFresh(CK_FUNCTION_LIST* p11) {
  EXPECT_EQ(EntriesThatDoNotSayNotInitialised(p11), std::vector<std::string>());
}

class ForkTest : public CopiesTest {
 protected:
  // What a child can do with a copy: it finds nothing, initialises and signs.
  void ExpectFreshStart(CK_FUNCTION_LIST* p11) const {
    ExpectTheListIsFresh(p11);
    Card card(p11);
    BringUp(&card);
    EXPECT_TRUE(Signs(card));
    EXPECT_EQ(p11->C_Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
  }

  Card card_{Load("libX")};
};

TEST_F(ForkTest, ChildFindsNothingInitialised) {
  BringUp(&card_);
  EXPECT_TRUE(GoesWellInChild([&] {
    ExpectTheListIsFresh(card_.p11);
    EXPECT_EQ(card_.SignInit(CKM_ECDSA, 1), CKR_CRYPTOKI_NOT_INITIALIZED);
    CK_FUNCTION_LIST* list = nullptr;
    EXPECT_EQ(card_.p11->C_GetFunctionList(&list), CKR_OK);
    EXPECT_EQ(list, card_.p11);
  }));
  EXPECT_TRUE(Signs(card_));
}

TEST_F(ForkTest, ChildThatOnlyLooksLeavesTheModuleAlone) {
  BringUp(&card_);
  EXPECT_TRUE(GoesWellInChild([&] {
    watch_.behind = nullptr;  // any call would crash
    ExpectTheListIsFresh(card_.p11);
  }));
}

TEST_F(ForkTest, ChildInitialisesAndSignsAndTheParentGoesOn) {
  BringUp(&card_);
  ASSERT_TRUE(Signs(card_));
  EXPECT_TRUE(GoesWellInChild([&] { ExpectFreshStart(card_.p11); }));
  EXPECT_TRUE(Signs(card_));
}

TEST_F(ForkTest, ChildOfAParentThatNeverInitialisedFinalisesWhatItInitialised) {
  EXPECT_TRUE(GoesWellInChild([&] {
    ExpectFreshStart(card_.p11);
    EXPECT_EQ(card_.p11->C_Finalize(nullptr), CKR_OK);
    EXPECT_EQ(watch_.finalised, 1);
  }));
  ExpectTheListIsFresh(card_.p11);
}

TEST_F(ForkTest, GrandchildStartsAfreshToo) {
  BringUp(&card_);
  EXPECT_TRUE(GoesWellInChild([&] {
    ExpectFreshStart(card_.p11);
    EXPECT_TRUE(GoesWellInChild([&] { ExpectFreshStart(card_.p11); }));
    ExpectTheListIsFresh(Load("libLater"));
  }));
  EXPECT_TRUE(
      GoesWellInChild([&] { EXPECT_TRUE(GoesWellInChild([&] { ExpectFreshStart(card_.p11); })); }));
  EXPECT_TRUE(Signs(card_));
}

std::atomic<bool> is_signing = false;
std::atomic<bool> may_go_on = false;

TEST_F(ForkTest, ForkWhileAnotherThreadIsInTheModuleWaitsForNobody) {
  BringUp(&card_);
  watch_.on_sign = [] {
    is_signing = true;
    is_signing.notify_all();
    may_go_on.wait(false);
  };
  std::thread signer([&] { EXPECT_TRUE(Signs(card_)); });
  is_signing.wait(false);
  EXPECT_TRUE(GoesWellInChild([&] {
    watch_.on_sign = nullptr;
    ExpectFreshStart(card_.p11);
  }));
  may_go_on = true;
  may_go_on.notify_all();
  signer.join();
  EXPECT_TRUE(Signs(card_));
}

TEST_F(ForkTest, ForksWhileAnotherThreadSignsAreSafeForBoth) {
  BringUp(&card_);
  std::atomic<bool> is_done = false;
  std::thread signer([&] {
    while (!is_done) EXPECT_TRUE(Signs(card_));
  });
  for (int round = 0; round < 20; ++round) {
    EXPECT_TRUE(GoesWellInChild([&] { ExpectTheListIsFresh(card_.p11); }));
  }
  is_done = true;
  signer.join();
}

CK_FUNCTION_LIST* forking_list = nullptr;
std::atomic<bool> went_well = false;

TEST_F(ForkTest, ModuleThatForksInTheMidstOfACallFindsNothingInitialisedInTheChild) {
  BringUp(&card_);
  forking_list = card_.p11;
  watch_.on_sign = [] { went_well = GoesWellInChild([] { ExpectTheListIsFresh(forking_list); }); };
  EXPECT_TRUE(Signs(card_));
  EXPECT_TRUE(went_well);
}

TEST_F(ForkTest, CopiesCountTogetherInTheChildToo) {
  Card other(Load("libY"));
  BringUp(&card_);
  BringUp(&other);
  EXPECT_TRUE(GoesWellInChild([&] {
    ExpectTheListIsFresh(card_.p11);
    ExpectTheListIsFresh(other.p11);
    BringUp(&other);
    BringUp(&card_);
    EXPECT_EQ(watch_.initialised, 2);  // the parent's, and one here
    EXPECT_EQ(other.p11->C_Finalize(nullptr), CKR_OK);
    EXPECT_TRUE(Signs(card_));
    EXPECT_EQ(card_.p11->C_Finalize(nullptr), CKR_OK);
    EXPECT_EQ(watch_.finalised, 0);  // the module had been up already
  }));
  EXPECT_TRUE(Signs(card_));
  EXPECT_TRUE(Signs(other));
  EXPECT_EQ(watch_.initialised, 1);
}

}  // namespace
}  // namespace kelvrin::adapter
