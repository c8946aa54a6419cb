// Which token is meant, and what a re-initialisation does where it is absent.
#include "adapter/testing/loaded_library.h"
#include "adapter/testing/two_cards_fixture.h"

namespace kelvrin::adapter {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// The ways to say which card is meant that all fit the first one at the set-up.
class Choices : public TwoCardsTest, public testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(, Choices,
                         testing::Values("", "reader-name = Alpha\n", "token-label = 1 A\n",
                                         "any-reader = yes\nreader-name = Alpha\n",
                                         "token-serial = 1\n"));

TEST_P(Choices, TokenThatIsLeftNeverReachesTheOtherCard) {
  const auto configured = Adapter(GetParam(), "libY");
  Extension pulled(configured);
  Extension left(configured);
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
  EXPECT_EQ(second.tries, 3);

  module.Insert(first);
  ASSERT_EQ(left.BringUp(), CKR_OK);
  ExpectToWork(left, first);
}

TEST_F(TwoCardsTest, AbsentTokenAtAModuleThatIsStillUp) {
  SetUpAndWork(extension, first);
  module.Pull(first);
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  ExpectAbsent(extension, first.pin);
  const CK_SESSION_HANDLE one = extension.session;
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  EXPECT_NE(extension.session, one);
  ExpectAbsent(extension, first.pin);
  EXPECT_EQ(Description(extension), std::string(64, ' '));
  const CK_SLOT_ID absent = extension.slot;
  module.Insert(first);
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  CK_SESSION_HANDLE session = 0;
  EXPECT_EQ(extension.p11->C_OpenSession(absent, CKF_SERIAL_SESSION, nullptr, nullptr, &session),
            CKR_SLOT_ID_INVALID);
}

TEST_F(TwoCardsTest, SessionsOnAnAbsentTokenEndWithFinalize) {
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
  SetUpAndWork(extension, first);
  module.Pull(first);
  Extension two(library);
  SetUpAndWork(two, second);
  EXPECT_EQ(two.card_number, "2");
  EXPECT_THAT(two.listed, ElementsAre(1, 2));
  ExpectAbsent(extension, first.pin);
  module.Insert(first);
  // The latest set-up is meant.
  ASSERT_EQ(two.BringUp(), CKR_OK);
  EXPECT_TRUE(two.SignsWith(KeyOf(second)));
}

TEST_F(TwoCardsTest, SetUpWithoutACardLeavesTheLatestTokenMeant) {
  const auto configured = Adapter("reader-name = Alpha\n", "libY");
  Extension one(configured);
  ASSERT_EQ(one.SetUp(), CKR_OK);
  module.Pull(first);
  one.p11->C_Finalize(nullptr);
  Extension two(configured);
  testing::internal::CaptureStderr();
  EXPECT_EQ(two.SetUp(), INIT_ERR_NO_SLOTS);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("no slot has an initialised token and reader-name = 'Alpha'"));
  two.Remove();
  ASSERT_EQ(one.BringUp(), CKR_OK);
  ExpectAbsent(one, first.pin);
}

TEST_F(TwoCardsTest, EachInitializeUsesUpTheFunctionListBeforeIt) {
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
  ASSERT_EQ(extension.SetUp(), CKR_OK);
  module.Pull(first);
  module.Pull(second);
  first.slot = second.slot;
  module.Insert(first);
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  ExpectToWork(extension, first);
}

TEST_F(TwoCardsTest, ConfigurationChoosesTheCard) {
  struct Case {
    std::string lines;
    std::string card_number;  // none: no slot
    std::string description = {};
  };
  const std::vector<Case> cases = {
      {"reader-name = Beta\n", "2", "Beta 00 00"},
      {"reader-name = Gamma\n", ""},
      {"reader-name = Gamma\nany-reader = yes\n", "1", "Gamma"},
      {"token-label = 2 B\n", "2", "Beta 00 00"},
      {"token-serial = 2\n", "2", "Beta 00 00"},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.lines);
    Extension token(Adapter(one.lines, "lib" + std::to_string(&one - cases.data())));
    testing::internal::CaptureStderr();
    EXPECT_EQ(token.SetUp(), one.card_number.empty() ? INIT_ERR_NO_SLOTS : CKR_OK);
    const std::string line = testing::internal::GetCapturedStderr();
    EXPECT_EQ(line.find("no slot has") != std::string::npos, one.card_number.empty()) << line;
    EXPECT_EQ(token.card_number, one.card_number);
    if (one.card_number.empty()) continue;
    EXPECT_THAT(Description(token), testing::StartsWith(one.description + " "));
  }
}

TEST_F(TwoCardsTest, OtherSlotsAreNotThere) {
  ASSERT_EQ(extension.SetUp(), CKR_OK);
  CK_FUNCTION_LIST* const p11 = extension.p11;
  CK_MECHANISM_INFO mechanism = {};
  CK_SESSION_HANDLE session = 0;
  module.ForgetCalls();
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

// Modules count their sessions from 1 again, and the flag `initialized` is set by whoever comes.
TEST_F(TwoCardsTest, SessionFromBeforeTheEndNeverMeansAnotherCardsSession) {
  Extension left(library);
  Extension gone(library);
  SetUpAndWork(left, first);
  ASSERT_EQ(gone.SetUp(), CKR_OK);
  module.Pull(first);
  gone.Remove();
  module.next_session = 1;
  Extension next(library);
  ASSERT_EQ(next.SetUp(), CKR_OK);
  ASSERT_TRUE(module.sessions.contains(1));
  module.ForgetCalls();
  CK_BBOOL needs_login = CK_FALSE;
  EXPECT_EQ(login_required(left.p11, left.session, &needs_login), CKR_SESSION_HANDLE_INVALID);
  EXPECT_EQ(left.LogIn(first.pin), CKR_SESSION_HANDLE_INVALID);
  EXPECT_THAT(module.Calls(), testing::IsEmpty());
  EXPECT_EQ(second.tries, 3);
}

// A re-initialisation that failed would leave the extension a record that is freed.
TEST_F(TwoCardsTest, ReinitialisationNeverFailsForACardPulledInItsMidst) {
  SetUpAndWork(extension, first);
  for (std::size_t k = 1; k <= 12; ++k) {
    SCOPED_TRACE("call " + std::to_string(k));
    extension.p11->C_Finalize(nullptr);
    module.ForgetCalls();
    module.before = [&](std::string_view) {
      if (module.Count() + 1 == k) module.Pull(first);
      return CK_RV{CKR_OK};
    };
    EXPECT_EQ(extension.BringUp(), CKR_OK);
    module.before = nullptr;
    if (!first.is_present) EXPECT_NE(extension.LogIn(first.pin), CKR_OK);
    EXPECT_EQ(second.tries, 3);
    module.Insert(first);
  }
  module.FailNext("C_GetSlotList", CKR_DEVICE_ERROR);
  EXPECT_EQ(extension.BringUp(), CKR_OK) << "a module without its reader";
  ExpectAbsent(extension, first.pin);
}

// A card that is exchanged for another in the midst of a re-initialisation sees nothing of it.
TEST_F(TwoCardsTest, ReinitialisationLooksWhichTokenItsSessionIsOn) {
  SetUpAndWork(extension, first);
  extension.p11->C_Finalize(nullptr);
  module.before = [&](std::string_view function) {
    if (function == "C_OpenSession") first.serial = "another";
    return CK_RV{CKR_OK};
  };
  EXPECT_EQ(extension.BringUp(), CKR_OK);
  module.before = nullptr;
  ExpectAbsent(extension, first.pin);
  EXPECT_TRUE(module.sessions.empty());
}

}  // namespace
}  // namespace kelvrin::adapter
