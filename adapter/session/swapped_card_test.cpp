// When a token's life is over: another card in its reader, and sessions that the module has lost.
#include <functional>

#include "adapter/testing/loaded_library.h"
#include "adapter/testing/two_cards_fixture.h"

namespace kelvrin::adapter {
namespace {

using testing::ElementsAre;

class SwappedCardTest : public TwoCardsTest {
 protected:
  // Puts the second card in place of the first.
  void Swap() {
    module.Pull(second);
    second.slot = first.slot;
    module.Insert(second);
  }
  void SwapBack() { module.Insert(first); }
};

TEST_F(SwappedCardTest, CardSwappedInTheSameReaderEndsTheLife) {
  SetUpAndWork(extension, first);
  Swap();
  CK_OBJECT_HANDLE key = 0;
  EXPECT_EQ(extension.FindKey(2, &key), CKR_SESSION_HANDLE_INVALID);
  ExpectAbsent(extension, first.pin);
  SwapBack();
  ExpectAbsent(extension, first.pin);
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  ExpectToWork(extension, first);
}

TEST_F(SwappedCardTest, ResultThatSaysThatTheTokenIsGoneEndsTheLife) {
  CK_SESSION_INFO info = {};
  for (const CK_RV gone :
       {CKR_TOKEN_NOT_PRESENT, CKR_DEVICE_REMOVED, CKR_TOKEN_NOT_RECOGNIZED,
        CKR_SESSION_HANDLE_INVALID, CKR_SESSION_CLOSED, CKR_CRYPTOKI_NOT_INITIALIZED}) {
    SetUpAndWork(extension, first);
    module.FailNext("C_GetSessionInfo", CKR_DEVICE_ERROR);
    EXPECT_EQ(extension.p11->C_GetSessionInfo(extension.session, &info), CKR_DEVICE_ERROR);
    EXPECT_TRUE(extension.SignsWith(KeyOf(first))) << "no word of the token";
    module.FailNext("C_GetSessionInfo", gone);
    EXPECT_EQ(extension.p11->C_GetSessionInfo(extension.session, &info), gone);
    ExpectAbsent(extension, first.pin);
    extension.Remove();
  }
}

// A look at the slot shows it, however the module's sessions fare.
TEST_F(SwappedCardTest, LookAtTheSlotThatShowsAnotherTokenOrNoneEndsTheLife) {
  module.keeps_sessions = true;
  CK_TOKEN_INFO info = {};
  CK_ULONG count = 0;
  const auto look_at_slots = [&](Extension& token) {
    EXPECT_EQ(token.p11->C_GetSlotList(CK_FALSE, nullptr, &count), CKR_OK);
  };
  const std::vector<std::function<void(Extension&)>> looks = {
      [&](Extension& token) {
        module.Pull(first);
        look_at_slots(token);
      },
      [&](Extension& token) {
        Swap();
        EXPECT_EQ(token.p11->C_GetTokenInfo(token.slot, &info), CKR_OK);
      },
      [&](Extension& token) {
        Swap();
        look_at_slots(token);
      }};
  for (std::size_t i = 0; i < looks.size(); ++i) {
    SCOPED_TRACE("look " + std::to_string(i));
    Extension token(Adapter("", "lib" + std::to_string(i)));
    SetUpAndWork(token, first);
    looks[i](token);
    ExpectAbsent(token, first.pin);
    SwapBack();
    ExpectAbsent(token, first.pin);
  }
  EXPECT_EQ(second.tries, 3);
}

TEST_F(SwappedCardTest, SlotListThatStillShowsTheTokenEndsNothing) {
  Extension other(Adapter("token-serial = 2\n", "libY"));
  SetUpAndWork(other, second);
  CK_ULONG count = 0;
  EXPECT_EQ(other.p11->C_GetSlotList(CK_FALSE, nullptr, &count), CKR_OK);
  // The choice stops at the first card now, and does not look at the second.
  LoadLibrary(folder / "libY.dylib");
  EXPECT_EQ(other.p11->C_Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
  EXPECT_TRUE(other.SignsWith(KeyOf(second)));
}

TEST_F(SwappedCardTest, ModuleThatKeepsSessionsIsLookedAtOnceItWasSeen) {
  module.keeps_sessions = true;
  SetUpAndWork(extension, first);
  module.ForgetCalls();
  EXPECT_TRUE(extension.SignsWith(KeyOf(first)));
  EXPECT_EQ(module.Count("C_GetTokenInfo"), 0U);
  Swap();
  CK_TOKEN_INFO info = {};
  EXPECT_EQ(extension.p11->C_GetTokenInfo(extension.slot, &info), CKR_OK);

  Extension next(library);
  SetUpAndWork(next, second);
  module.ForgetCalls();
  CK_SESSION_INFO session = {};
  EXPECT_EQ(next.p11->C_GetSessionInfo(next.session, &session), CKR_OK);
  EXPECT_THAT(module.Calls(), ElementsAre("C_GetTokenInfo", "C_GetSessionInfo"));
  SwapBack();
  EXPECT_EQ(next.p11->C_GetSessionInfo(next.session, &session), CKR_TOKEN_NOT_PRESENT);
  ExpectAbsent(next, second.pin);
  EXPECT_EQ(first.tries, 3);
}

TEST_F(SwappedCardTest, ModuleThatEndsSessionsIsNotLookedAt) {
  SetUpAndWork(extension, first);
  Swap();
  CK_TOKEN_INFO info = {};
  EXPECT_EQ(extension.p11->C_GetTokenInfo(extension.slot, &info), CKR_OK);
  Extension next(library);
  SetUpAndWork(next, second);
  module.ForgetCalls();
  EXPECT_TRUE(next.SignsWith(KeyOf(second)));
  EXPECT_EQ(module.Count("C_GetTokenInfo"), 0U);
}

// A card that was swapped between two calls of the set-up: its PIN and its keys stay its own.
TEST_F(SwappedCardTest, CardSwappedDuringTheSetUpSeesNoPinOfTheOther) {
  bool is_swapped = false;
  module.before = [&](std::string_view function) {
    if (function == "C_OpenSession" && !std::exchange(is_swapped, true)) Swap();
    return CK_RV{CKR_OK};
  };
  EXPECT_NE(extension.SetUp(), CKR_OK);
  EXPECT_EQ(module.sessions.size(), 0U);
  EXPECT_EQ(second.tries, 3);
}

// Its worker's handle may be another session's by now, and nothing is asked of it any more.
TEST_F(SwappedCardTest, EndedLifeLeavesOnlyItsSessionsToBeClosed) {
  SetUpAndWork(extension, first);
  Swap();
  CK_TOKEN_INFO info = {};
  EXPECT_EQ(extension.p11->C_GetTokenInfo(extension.slot, &info), CKR_OK);
  module.ForgetCalls();
  EXPECT_EQ(extension.p11->C_GetTokenInfo(extension.slot, &info), CKR_OK);
  EXPECT_EQ(extension.p11->C_Finalize(nullptr), CKR_OK);
  EXPECT_THAT(module.Calls(),
              ElementsAre("C_GetTokenInfo", "C_Logout", "C_CloseSession", "C_Finalize"));
}

TEST_F(SwappedCardTest, HandleGivenOutAgainAsAWorkerDropsTheWorkersOfThatSlot) {
  SetUpAndWork(extension, first);
  const CK_SESSION_HANDLE worker = module.next_session - 1;
  ASSERT_NE(worker, extension.session);
  module.EndSession(worker);
  module.next_session = worker;
  Extension two(library);
  ASSERT_EQ(two.SetUp(), CKR_OK);
  ASSERT_TRUE(module.sessions.contains(worker));
  module.next_session = worker + 10;
  module.ForgetCalls();
  EXPECT_TRUE(extension.SignsWith(KeyOf(first)));
  EXPECT_EQ(module.Count("C_OpenSession"), 1U);
  EXPECT_TRUE(module.sessions.contains(worker + 10));
  EXPECT_EQ(extension.p11->C_CloseSession(extension.session), CKR_OK);
  EXPECT_TRUE(module.sessions.contains(worker)) << "another session by now";
}

TEST_F(SwappedCardTest, HandleGivenOutAgainToACallerEndsTheLifeThatHadIt) {
  Extension two(library);
  Extension three(library);
  const CK_SESSION_HANDLE inner = module.next_session;
  SetUpAndWork(extension, first);
  ASSERT_EQ(two.SetUp(), CKR_OK);
  module.Pull(first);
  module.Insert(first);
  module.next_session = inner;
  ASSERT_EQ(three.SetUp(), CKR_OK);
  ASSERT_NE(three.session, extension.session);
  CK_SESSION_INFO info = {};
  EXPECT_EQ(two.p11->C_GetSessionInfo(two.session, &info), CKR_TOKEN_NOT_PRESENT);
  ExpectToWork(three, first);
}

TEST_F(SwappedCardTest, HandleGivenOutAgainAsAWorkerEndsTheSessionThatHadIt) {
  const auto configured = Adapter("token-serial = 2\n", "libY");
  Extension lost(configured);
  Extension other(configured);
  const CK_SESSION_HANDLE inner = module.next_session;
  SetUpAndWork(lost, second);
  module.Pull(second);
  module.Insert(second);
  ASSERT_EQ(other.SetUp(), CKR_OK);
  ASSERT_EQ(other.LogIn(second.pin), CKR_OK);
  module.next_session = inner;
  EXPECT_FALSE(other.SignsWith(KeyOf(second))) << "one life with the session that is lost";
  EXPECT_FALSE(module.sessions.contains(inner)) << "closed again at once";
  module.next_session = inner + 10;
  CK_SESSION_INFO info = {};
  EXPECT_EQ(lost.p11->C_GetSessionInfo(lost.session, &info), CKR_TOKEN_NOT_PRESENT);
  ASSERT_EQ(other.BringUp(), CKR_OK);
  EXPECT_TRUE(other.SignsWith(KeyOf(second)));
  module.ForgetCalls();
  EXPECT_EQ(other.p11->C_Finalize(nullptr), CKR_OK);
  EXPECT_EQ(module.Count("C_CloseSession"), 3U) << "sessions and a worker, not the lost one";
}

}  // namespace
}  // namespace kelvrin::adapter
