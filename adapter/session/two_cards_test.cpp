// A token set up on one card never reaches another.
#include "adapter/testing/behaviour_fixture.h"
#include "adapter/testing/loaded_library.h"
#include "p11/bringup.h"

namespace kelvrin::adapter {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class TwoCardsTest : public BehaviourTest {
 protected:
  EVP_PKEY* KeyOf(const MemoryCard& card) const {
    return card.KeyOf(&card == &first ? first_key : second_key);
  }
  void ExpectToWork(Extension& extension, const MemoryCard& card) {
    EXPECT_EQ(extension.LogIn(card.pin), CKR_OK);
    EXPECT_TRUE(extension.SignsWith(KeyOf(card)));
  }
  void SetUpAndWork(Extension& extension, const MemoryCard& card) {
    ASSERT_EQ(extension.SetUp(), CKR_OK);
    ExpectToWork(extension, card);
  }
  // Everything that the extension does with a token that it has brought up again says that the card
  // is not there, and the module behind sees none of it.
  void ExpectAbsent(Extension& extension, const std::string& pin) {
    module.ForgetCalls();
    bool answer = false;
    Bytes result;
    CK_BBOOL needs_login = CK_TRUE;
    CK_ULONG count = 0;
    CK_OBJECT_HANDLE key = 1;
    CK_MECHANISM mechanism = {CKM_ECDSA, nullptr, 0};
    CK_FUNCTION_LIST* const p11 = extension.p11;
    const CK_SESSION_HANDLE session = extension.session;
    EXPECT_EQ(extension.Supports(1, CKA_VERIFY, CKM_RSA_PKCS, &answer), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(login_required(p11, session, &needs_login), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(extension.LogIn(pin), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_Login(session, CKU_CONTEXT_SPECIFIC, result.data(), 0), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_Logout(session), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(extension.FindKey(1, &key), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_SignInit(session, &mechanism, key), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_DecryptInit(session, &mechanism, key), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_Sign(session, nullptr, 0, nullptr, &count), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_Decrypt(session, nullptr, 0, nullptr, &count), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_DeriveKey(session, &mechanism, key, nullptr, 0, &key), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_FindObjectsInit(session, nullptr, 0), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_FindObjects(session, &key, 1, &count), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_FindObjectsFinal(session), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_GetAttributeValue(session, key, nullptr, 0), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_DestroyObject(session, key), CKR_TOKEN_NOT_PRESENT);
    EXPECT_THAT(module.Calls(), testing::IsEmpty());
  }
  std::string Description(Extension& extension) const {
    CK_SLOT_INFO info = {};
    EXPECT_EQ(extension.p11->C_GetSlotInfo(extension.slot, &info), CKR_OK);
    return {std::begin(info.slotDescription), std::end(info.slotDescription)};
  }

  MemoryCard& first = AddCard({.reader = "Alpha 00 00", .label = "1 A", .serial = "1"});
  CK_OBJECT_HANDLE first_key = ec.private_key;
  MemoryCard& second =
      AddCard({.reader = "Beta 00 00", .label = "2 B", .serial = "2", .pin = "222222"});
  CK_OBJECT_HANDLE second_key = ec.private_key;
};

// The ways to say which card is meant that all fit the first one at the set-up.
class Choices : public TwoCardsTest, public testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(, Choices,
                         testing::Values("", "reader-name = Alpha\n", "token-label = 1 A\n",
                                         "any-reader = yes\nreader-name = Alpha\n",
                                         "token-serial = 1\n"));

TEST_P(Choices, TokenThatIsLeftNeverReachesTheOtherCard) {
  const auto library = Adapter(GetParam());
  Extension pulled(library);
  Extension left(library);
  SetUpAndWork(pulled, first);
  ASSERT_EQ(left.SetUp(), CKR_OK);
  module.Pull(first);
  pulled.Remove();
  module.ForgetCalls();
  ASSERT_EQ(left.BringUp(), CKR_OK) << "a re-initialisation never fails for want of a card";
  EXPECT_EQ(module.Count("C_OpenSession"), 0U);
  ExpectAbsent(left, first.pin);
  CK_TOKEN_INFO info = {};
  CK_ULONG count = 5;
  EXPECT_EQ(left.p11->C_GetTokenInfo(left.slot, &info), CKR_TOKEN_NOT_PRESENT);
  EXPECT_EQ(left.p11->C_GetMechanismList(left.slot, nullptr, &count), CKR_TOKEN_NOT_PRESENT);
  EXPECT_EQ(left.p11->C_CloseSession(left.session), CKR_TOKEN_NOT_PRESENT);
  EXPECT_EQ(left.p11->C_CloseSession(left.session), CKR_SESSION_HANDLE_INVALID);
  EXPECT_EQ(second.tries, 3);

  module.Insert(first);
  ASSERT_EQ(left.BringUp(), CKR_OK);
  ExpectToWork(left, first);
}

TEST_F(TwoCardsTest, AbsentTokenAtAModuleThatIsStillUp) {
  Extension extension(Adapter());
  SetUpAndWork(extension, first);
  module.Pull(first);
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  ExpectAbsent(extension, first.pin);
  const CK_SESSION_HANDLE one = extension.session;
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  EXPECT_NE(extension.session, one);
  ExpectAbsent(extension, first.pin);
  EXPECT_EQ(Description(extension), std::string(64, ' '));
}

TEST_F(TwoCardsTest, SessionsOnAnAbsentTokenEndWithFinalize) {
  Extension extension(Adapter());
  ASSERT_EQ(extension.SetUp(), CKR_OK);
  module.Pull(first);
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  const CK_SESSION_HANDLE absent = extension.session;
  ASSERT_EQ(extension.p11->C_Finalize(nullptr), CKR_OK);
  module.Insert(first);
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  CK_SESSION_INFO info = {};
  EXPECT_EQ(extension.p11->C_GetSessionInfo(absent, &info), CKR_SESSION_HANDLE_INVALID);
}

TEST_F(TwoCardsTest, SetUpChoosesAgain) {
  const auto library = Adapter();
  Extension one(library);
  SetUpAndWork(one, first);
  module.Pull(first);
  Extension two(library);
  SetUpAndWork(two, second);
  EXPECT_EQ(two.card_number, "2");
  EXPECT_THAT(two.listed, ElementsAre(1, 2));
  ExpectAbsent(one, first.pin);
  module.Insert(first);
  // The latest set-up is meant.
  ASSERT_EQ(two.BringUp(), CKR_OK);
  EXPECT_TRUE(two.SignsWith(KeyOf(second)));
}

TEST_F(TwoCardsTest, SetUpWithoutACardLeavesTheLatestTokenMeant) {
  const auto library = Adapter("reader-name = Alpha\n");
  Extension one(library);
  ASSERT_EQ(one.SetUp(), CKR_OK);
  module.Pull(first);
  one.p11->C_Finalize(nullptr);
  Extension two(library);
  testing::internal::CaptureStderr();
  EXPECT_EQ(two.SetUp(), INIT_ERR_NO_SLOTS);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("no slot has an initialised token and reader-name = 'Alpha'"));
  two.Remove();
  ASSERT_EQ(one.BringUp(), CKR_OK);
  ExpectAbsent(one, first.pin);
}

TEST_F(TwoCardsTest, EachInitializeUsesUpTheFunctionListBeforeIt) {
  const auto library = Adapter();
  Extension extension(library);
  ASSERT_EQ(extension.SetUp(), CKR_OK);
  CK_FUNCTION_LIST* const p11 = LoadLibrary(library);
  EXPECT_EQ(p11->C_Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
  EXPECT_EQ(p11->C_Finalize(nullptr), CKR_OK);
  module.Pull(first);
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  ExpectAbsent(extension, first.pin);
  LoadLibrary(library);
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  ExpectToWork(extension, second);
}

TEST_F(TwoCardsTest, FailedInitializeUsesTheFunctionListUpToo) {
  const auto library = Adapter();
  Extension extension(library);
  ASSERT_EQ(extension.SetUp(), CKR_OK);
  extension.p11->C_Finalize(nullptr);
  LoadLibrary(library);
  module.FailNext("C_Initialize", CKR_GENERAL_ERROR);
  EXPECT_EQ(extension.BringUp(), CKR_GENERAL_ERROR);
  module.Pull(first);
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  ExpectAbsent(extension, first.pin);
}

TEST_F(TwoCardsTest, SameSerialNumberWithAnotherLabelIsAnotherToken) {
  Extension extension(Adapter());
  ASSERT_EQ(extension.SetUp(), CKR_OK);
  extension.p11->C_Finalize(nullptr);
  module.Pull(first);
  second.serial = first.serial;
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  ExpectAbsent(extension, first.pin);
  second.serial = "2";
  second.label = first.label;
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  ExpectAbsent(extension, first.pin);
}

TEST_F(TwoCardsTest, MeantTokenIsFoundInAnotherReader) {
  Extension extension(Adapter());
  ASSERT_EQ(extension.SetUp(), CKR_OK);
  module.Pull(first);
  module.Pull(second);
  first.slot = second.slot;
  module.Insert(first);
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  ExpectToWork(extension, first);
}

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
  Extension extension(Adapter());
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

// A look at the slot shows it, however the module's sessions fare.
TEST_F(SwappedCardTest, TokenInfoOrSlotListOfAnotherCardEndsTheLife) {
  module.keeps_sessions = true;
  CK_TOKEN_INFO info = {};
  CK_ULONG count = 0;
  const std::vector<std::function<void(Extension&)>> looks = {
      [&](Extension& e) { EXPECT_EQ(e.p11->C_GetTokenInfo(e.slot, &info), CKR_OK); },
      [&](Extension& e) { EXPECT_EQ(e.p11->C_GetSlotList(CK_FALSE, nullptr, &count), CKR_OK); },
  };
  for (const auto& look : looks) {
    Extension extension(Adapter("", "lib" + std::to_string(&look - looks.data())));
    SetUpAndWork(extension, first);
    Swap();
    look(extension);
    ExpectAbsent(extension, first.pin);
    SwapBack();
    ExpectAbsent(extension, first.pin);
  }
  EXPECT_EQ(second.tries, 3);
}

TEST_F(SwappedCardTest, SlotListWithoutTheCardEndsTheLifeToo) {
  module.keeps_sessions = true;
  Extension extension(Adapter());
  SetUpAndWork(extension, first);
  module.Pull(first);
  CK_ULONG count = 0;
  EXPECT_EQ(extension.p11->C_GetSlotList(CK_FALSE, nullptr, &count), CKR_OK);
  module.Insert(first);
  ExpectAbsent(extension, first.pin);
}

TEST_F(SwappedCardTest, SlotListThatStillShowsTheTokenEndsNothing) {
  Extension extension(Adapter("token-serial = 2\n"));
  SetUpAndWork(extension, second);
  CK_ULONG count = 0;
  EXPECT_EQ(extension.p11->C_GetSlotList(CK_FALSE, nullptr, &count), CKR_OK);
  // The choice stops at the first card now, and does not look at the second.
  LoadLibrary(folder / "libX.dylib");
  EXPECT_EQ(extension.p11->C_Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
  EXPECT_TRUE(extension.SignsWith(KeyOf(second)));
}

TEST_F(SwappedCardTest, ModuleThatKeepsSessionsIsLookedAtOnceItWasSeen) {
  module.keeps_sessions = true;
  const auto library = Adapter();
  Extension extension(library);
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
  const auto library = Adapter();
  Extension extension(library);
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
  Extension extension(Adapter());
  EXPECT_EQ(extension.SetUp(), CKR_TOKEN_NOT_PRESENT);
  ExpectAbsent(extension, first.pin);
  EXPECT_EQ(second.tries, 3);
}

TEST_F(TwoCardsTest, HandleGivenOutAgainAsAWorkerDropsTheWorkersOfThatSlot) {
  const auto library = Adapter();
  Extension one(library);
  SetUpAndWork(one, first);
  const CK_SESSION_HANDLE worker = module.next_session - 1;
  ASSERT_NE(worker, one.session);
  module.EndSession(worker);
  module.next_session = worker;
  Extension two(library);
  ASSERT_EQ(two.SetUp(), CKR_OK);
  ASSERT_EQ(two.session, worker);
  module.next_session = worker + 10;
  module.ForgetCalls();
  EXPECT_TRUE(one.SignsWith(KeyOf(first)));
  EXPECT_EQ(module.Count("C_OpenSession"), 1U);
  EXPECT_TRUE(module.sessions.contains(worker + 10));
  EXPECT_EQ(one.p11->C_CloseSession(one.session), CKR_OK);
  EXPECT_TRUE(module.sessions.contains(worker)) << "another session by now";
}

TEST_F(TwoCardsTest, HandleGivenOutAgainToACallerEndsTheLifeThatHadIt) {
  const auto library = Adapter();
  Extension one(library);
  Extension two(library);
  Extension three(library);
  SetUpAndWork(one, first);
  ASSERT_EQ(two.SetUp(), CKR_OK);
  module.Pull(first);
  module.Insert(first);
  module.next_session = one.session;
  ASSERT_EQ(three.SetUp(), CKR_OK);
  ASSERT_EQ(three.session, one.session);
  CK_SESSION_INFO info = {};
  EXPECT_EQ(two.p11->C_GetSessionInfo(two.session, &info), CKR_TOKEN_NOT_PRESENT);
  ExpectToWork(three, first);
}

TEST_F(TwoCardsTest, HandleGivenOutAgainAsAWorkerEndsTheSessionThatHadIt) {
  const auto library = Adapter("token-serial = 2\n");
  Extension lost(library);
  Extension other(library);
  SetUpAndWork(lost, second);
  module.Pull(second);
  module.Insert(second);
  ASSERT_EQ(other.SetUp(), CKR_OK);
  ASSERT_EQ(other.LogIn(second.pin), CKR_OK);
  module.next_session = lost.session;
  EXPECT_FALSE(other.SignsWith(KeyOf(second))) << "one life with the session that is lost";
  ASSERT_TRUE(module.sessions.contains(lost.session));
  module.next_session = lost.session + 10;
  CK_SESSION_INFO info = {};
  EXPECT_EQ(lost.p11->C_GetSessionInfo(lost.session, &info), CKR_SESSION_HANDLE_INVALID);
  EXPECT_EQ(lost.p11->C_CloseSession(lost.session), CKR_SESSION_HANDLE_INVALID);
  EXPECT_EQ(module.Count("C_CloseSession"), 0U);
  ASSERT_EQ(other.BringUp(), CKR_OK);
  EXPECT_TRUE(other.SignsWith(KeyOf(second)));
}

TEST_F(TwoCardsTest, ReaderNameIsAConditionUnlessAnyReaderWillDo) {
  struct Case {
    std::string lines;
    std::string card_number;  // none: no slot
    std::string description = {};
  };
  const std::vector<Case> cases = {
      {"reader-name = Beta\n", "2", "Beta 00 00"},
      {"reader-name = Gamma\n", ""},
      {"reader-name = Gamma\nany-reader = yes\n", "1", "Gamma"},
      {"reader-name = Beta\nany-reader = yes\ntoken-label = 1 A\n", "1", "Beta"},
      {"token-label = 2 B\n", "2", "Beta 00 00"},
      {"token-serial = 2\n", "2", "Beta 00 00"},
      {"token-serial = 2\ntoken-label = 1 A\n", ""},
      {"reader-name = Alpha\ntoken-serial = 2\n", ""},
      {"any-reader = yes\n", "1", "Alpha 00 00"},
  };
  for (const Case& one : cases) {
    Extension extension(Adapter(one.lines, "lib" + std::to_string(&one - cases.data())));
    testing::internal::CaptureStderr();
    const CK_RV result = extension.SetUp();
    const std::string line = testing::internal::GetCapturedStderr();
    EXPECT_EQ(result, one.card_number.empty() ? INIT_ERR_NO_SLOTS : CKR_OK) << one.lines;
    EXPECT_EQ(line.find("no slot has") != std::string::npos, one.card_number.empty()) << line;
    EXPECT_EQ(extension.card_number, one.card_number) << one.lines;
    if (!one.card_number.empty()) {
      EXPECT_THAT(Description(extension), testing::StartsWith(one.description + " "));
    }
  }
}

TEST_F(TwoCardsTest, OtherSlotsAreNotThere) {
  Extension extension(Adapter());
  ASSERT_EQ(extension.SetUp(), CKR_OK);
  CK_SLOT_INFO slot = {};
  CK_TOKEN_INFO token = {};
  CK_MECHANISM_INFO mechanism = {};
  CK_ULONG count = 0;
  CK_SESSION_HANDLE session = 0;
  CK_FUNCTION_LIST* const p11 = extension.p11;
  module.ForgetCalls();
  EXPECT_EQ(p11->C_GetSlotInfo(second.slot, &slot), CKR_SLOT_ID_INVALID);
  EXPECT_EQ(p11->C_GetTokenInfo(second.slot, &token), CKR_SLOT_ID_INVALID);
  EXPECT_EQ(p11->C_GetMechanismList(second.slot, nullptr, &count), CKR_SLOT_ID_INVALID);
  EXPECT_EQ(p11->C_GetMechanismInfo(second.slot, CKM_ECDSA, &mechanism), CKR_SLOT_ID_INVALID);
  EXPECT_EQ(p11->C_OpenSession(second.slot, CKF_SERIAL_SESSION, nullptr, nullptr, &session),
            CKR_SLOT_ID_INVALID);
  EXPECT_EQ(p11->C_CloseAllSessions(second.slot), CKR_SLOT_ID_INVALID);
  EXPECT_THAT(module.Calls(), testing::IsEmpty());
  EXPECT_EQ(p11->C_GetMechanismInfo(first.slot, CKM_ECDSA, &mechanism), CKR_OK);
  EXPECT_EQ(mechanism.ulMaxKeySize, 256U);
  EXPECT_EQ(p11->C_CloseAllSessions(first.slot), CKR_OK);
  EXPECT_TRUE(module.sessions.empty());
}

}  // namespace
}  // namespace kelvrin::adapter
