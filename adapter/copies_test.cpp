// Copies of the library under two names in one folder, over one module, in one process.
#include <gtest/gtest.h>

#include <string>

#include "adapter/testing/copies_fixture.h"
#include "adapter/testing/entries.h"

namespace kelvrin::adapter {
namespace {

std::string ReaderName(const Card& card) {
  CK_SLOT_INFO info = {};
  EXPECT_EQ(card.p11->C_GetSlotInfo(card.slot, &info), CKR_OK);
  const std::string name(std::begin(info.slotDescription), std::end(info.slotDescription));
  return name.substr(0, name.find_last_not_of(' ') + 1);
}

class TwoCopiesTest : public CopiesTest {
 protected:
  Card first_{Load("libFirst", "reader-name = Reader A\n")};
  Card second_{Load("libSecond", "reader-name = Reader B\n")};
};

TEST_F(TwoCopiesTest, EachReadsItsOwnConfiguration) {
  ASSERT_NE(first_.p11, second_.p11);
  BringUp(&first_);
  BringUp(&second_);
  EXPECT_EQ(ReaderName(first_), "Reader A");
  EXPECT_EQ(ReaderName(second_), "Reader B");
}

TEST_F(TwoCopiesTest, TheLastOneFinalisesTheModule) {
  BringUp(&first_);
  BringUp(&second_);
  EXPECT_EQ(watch_.initialised, 1);
  EXPECT_EQ(first_.p11->C_Finalize(nullptr), CKR_OK);
  EXPECT_EQ(watch_.finalised, 0);
  EXPECT_EQ(second_.p11->C_Finalize(nullptr), CKR_OK);
  EXPECT_EQ(watch_.finalised, 1);
}

TEST_F(TwoCopiesTest, FinalisingTheFirstLeavesTheSecondItsSessionAndLogin) {
  BringUp(&first_);
  BringUp(&second_);
  ASSERT_TRUE(Signs(first_));
  EXPECT_EQ(first_.p11->C_Finalize(nullptr), CKR_OK);
  EXPECT_TRUE(Signs(second_));
  EXPECT_TRUE(EntriesThatDoNotSayNotInitialised(first_.p11).empty());
}

TEST_F(TwoCopiesTest, FinalisingTheSecondLeavesTheFirstItsSessionAndLogin) {
  BringUp(&first_);
  BringUp(&second_);
  ASSERT_TRUE(Signs(second_));
  EXPECT_EQ(second_.p11->C_Finalize(nullptr), CKR_OK);
  EXPECT_TRUE(Signs(first_));
}

TEST_F(TwoCopiesTest, FinalisingClosesOwnSessionsAndWorkers) {
  BringUp(&first_);
  BringUp(&second_);
  ASSERT_EQ(first_.SignInit(CKM_ECDSA, first_.Find(CKO_PRIVATE_KEY, 2)), CKR_OK);  // a worker
  EXPECT_EQ(watch_.sessions, 3);
  EXPECT_EQ(first_.p11->C_Finalize(nullptr), CKR_OK);
  EXPECT_EQ(watch_.sessions, 1);
}

TEST_F(TwoCopiesTest, ClosingAllSessionsClosesOwnOnly) {
  BringUp(&first_);
  BringUp(&second_);
  EXPECT_EQ(first_.p11->C_CloseAllSessions(first_.slot), CKR_OK);
  CK_SESSION_INFO info = {};
  EXPECT_EQ(first_.p11->C_GetSessionInfo(first_.session, &info), CKR_SESSION_HANDLE_INVALID);
  EXPECT_TRUE(Signs(second_));
}

TEST_F(TwoCopiesTest, TheSecondComesAndGoesWhileTheFirstWorks) {
  BringUp(&first_);
  for (int round = 0; round < 3; ++round) {
    BringUp(&second_);
    EXPECT_EQ(second_.p11->C_Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
    EXPECT_TRUE(Signs(second_));
    EXPECT_TRUE(Signs(first_));
    EXPECT_EQ(second_.p11->C_Finalize(nullptr), CKR_OK);
    EXPECT_EQ(second_.p11->C_Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);
  }
  EXPECT_TRUE(Signs(first_));
  EXPECT_EQ(watch_.initialised, 1);
  EXPECT_EQ(watch_.finalised, 0);
}

TEST_F(TwoCopiesTest, BothComeUpAgainAfterBothWereFinalised) {
  for (int round = 0; round < 3; ++round) {
    BringUp(&first_);
    BringUp(&second_);
    EXPECT_TRUE(Signs(first_));
    EXPECT_TRUE(Signs(second_));
    EXPECT_EQ((round % 2 == 0 ? first_ : second_).p11->C_Finalize(nullptr), CKR_OK);
    EXPECT_EQ((round % 2 == 0 ? second_ : first_).p11->C_Finalize(nullptr), CKR_OK);
    EXPECT_EQ(watch_.initialised, round + 1);
    EXPECT_EQ(watch_.finalised, round + 1);
  }
}

TEST_F(TwoCopiesTest, CopyThatFailsToComeUpDoesNotCount) {
  BringUp(&first_);
  Card broken(Load("libBroken", "no-such-key = 1\n"));
  testing::internal::CaptureStderr();
  EXPECT_EQ(broken.p11->C_Initialize(nullptr), CKR_GENERAL_ERROR);
  testing::internal::GetCapturedStderr();
  EXPECT_TRUE(Signs(first_));
  EXPECT_EQ(first_.p11->C_Finalize(nullptr), CKR_OK);
  EXPECT_EQ(watch_.finalised, 1);
}

TEST_F(TwoCopiesTest, ModuleThatSomebodyElseInitialisedIsNeverFinalised) {
  ASSERT_EQ(softhsm_->C_Initialize(nullptr), CKR_OK);
  BringUp(&first_);
  BringUp(&second_);
  EXPECT_TRUE(Signs(first_));
  EXPECT_EQ(first_.p11->C_Finalize(nullptr), CKR_OK);
  EXPECT_TRUE(Signs(second_));
  EXPECT_EQ(second_.p11->C_Finalize(nullptr), CKR_OK);
  EXPECT_EQ(watch_.finalised, 0);
  EXPECT_EQ(softhsm_->C_Finalize(nullptr), CKR_OK);
}

TEST_F(TwoCopiesTest, ModuleThatSomebodyElseFinalisedComesUpAgainForBoth) {
  BringUp(&first_);
  BringUp(&second_);
  ASSERT_EQ(softhsm_->C_Finalize(nullptr), CKR_OK);
  BringUp(&first_);
  EXPECT_TRUE(Signs(first_));
  // The second's session is gone, and its handle is the first's new one.
  EXPECT_TRUE(EntriesThatDoNotSayNotInitialised(second_.p11).empty());
  BringUp(&second_);
  EXPECT_TRUE(Signs(second_));
  EXPECT_TRUE(Signs(first_));
  EXPECT_EQ(watch_.initialised, 2);
  EXPECT_EQ(first_.p11->C_Finalize(nullptr), CKR_OK);
  EXPECT_TRUE(Signs(second_));
  EXPECT_EQ(second_.p11->C_Finalize(nullptr), CKR_OK);
  EXPECT_EQ(watch_.finalised, 1);
}

TEST_F(TwoCopiesTest, CopyThatLostTheModuleTakesNobodysPlaceWhenItFinalises) {
  BringUp(&first_);
  BringUp(&second_);
  ASSERT_EQ(softhsm_->C_Finalize(nullptr), CKR_OK);
  BringUp(&first_);
  EXPECT_EQ(second_.p11->C_Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);
  EXPECT_TRUE(Signs(first_));
  EXPECT_EQ(watch_.finalised, 0);
}

TEST_F(TwoCopiesTest, ThirdCopyThatIsLoadedLaterJoins) {
  BringUp(&first_);
  BringUp(&second_);
  Card third(Load("libThird"));
  BringUp(&third);
  EXPECT_EQ(watch_.initialised, 1);
  EXPECT_EQ(first_.p11->C_Finalize(nullptr), CKR_OK);
  EXPECT_EQ(second_.p11->C_Finalize(nullptr), CKR_OK);
  EXPECT_TRUE(Signs(third));
  EXPECT_EQ(watch_.finalised, 0);
  EXPECT_EQ(third.p11->C_Finalize(nullptr), CKR_OK);
  EXPECT_EQ(watch_.finalised, 1);
}

TEST_F(TwoCopiesTest, CopyBehindACopyWorks) {
  const auto outer = folder_.path() / "libOuter.dylib";
  std::filesystem::copy_file(KELVRIN_ADAPTER_LIBRARY, outer);
  folder_.Write("libOuter.conf", "module = libSecond.dylib\n");
  Card card(LoadLibrary(outer));
  BringUp(&card);
  EXPECT_TRUE(Signs(card));
  EXPECT_EQ(card.p11->C_Finalize(nullptr), CKR_OK);
  EXPECT_EQ(watch_.finalised, 1);
}

TEST_F(TwoCopiesTest, CopyBehindACopyThatSomebodyFinalisedComesUpAgain) {
  const auto outer = folder_.path() / "libOuter.dylib";
  std::filesystem::copy_file(KELVRIN_ADAPTER_LIBRARY, outer);
  folder_.Write("libOuter.conf", "module = libSecond.dylib\n");
  Card card(LoadLibrary(outer));
  BringUp(&card);
  ASSERT_EQ(second_.p11->C_Finalize(nullptr), CKR_OK);
  BringUp(&card);
  EXPECT_TRUE(Signs(card));
  EXPECT_EQ(card.p11->C_Finalize(nullptr), CKR_OK);
  EXPECT_EQ(watch_.finalised, 2);
}

}  // namespace
}  // namespace kelvrin::adapter
