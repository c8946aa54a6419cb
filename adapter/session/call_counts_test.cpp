// What the extension's requests cost at the module behind, however long a call takes.
#include <chrono>
#include <thread>

#include "adapter/testing/behaviour_fixture.h"
#include "tests/module/test_keys.h"

namespace kelvrin::adapter {
namespace {

using testing::ElementsAre;

using Names = std::vector<std::string>;

class CallCountsTest : public BehaviourTest,
                       public testing::WithParamInterface<std::chrono::milliseconds> {
 protected:
  // From here on each call to the module takes the test's time.
  void SlowDown() {
    module.ForgetCalls();
    module.before = [](std::string_view) {
      std::this_thread::sleep_for(GetParam());
      return CK_RV{CKR_OK};
    };
  }
  // The calls since the last time.
  Names Calls() {
    Names calls = module.Calls();
    module.ForgetCalls();
    return calls;
  }
  // A login and one operation of each kind before what is counted.
  void LogInAndOperate(const MemoryKeyOptions& keys = {}) {
    MemoryCard& card = AddCard({}, keys);
    extension.emplace(Adapter());
    SetUpAndLogIn(*extension, card.pin);
    sealed = EncryptPkcs1(extension->public_keys[1].get(), {1, 2});
    ASSERT_EQ(extension->Sign(1, CKM_RSA_X_509, {1}, &result), CKR_OK);
    ASSERT_EQ(extension->Sign(2, CKM_ECDSA, Bytes(32, 1), &result), CKR_OK);
    SlowDown();
  }

  std::optional<Extension> extension;
  Bytes sealed, result;
};
INSTANTIATE_TEST_SUITE_P(
    , CallCountsTest, testing::Values(std::chrono::milliseconds(0), std::chrono::milliseconds(60)),
    [](const auto& info) { return "With" + std::to_string(info.param.count()) + "ms"; });

TEST_P(CallCountsTest, SetUpAsksForTheTokenTwiceBeyondTheExtension) {
  AddCard();
  Extension extension(Adapter());
  SlowDown();
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  EXPECT_THAT(Calls(),
              ElementsAre("C_GetFunctionList", "C_Initialize", "C_GetSlotList", "C_GetSlotList",
                          "C_GetTokenInfo", "C_GetSlotInfo", "C_OpenSession", "C_GetTokenInfo"));
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  EXPECT_THAT(Calls(), ElementsAre("C_GetSlotList", "C_GetSlotList", "C_GetTokenInfo",
                                   "C_GetSlotInfo", "C_OpenSession", "C_GetTokenInfo"));
  CK_TOKEN_INFO info = {};
  EXPECT_EQ(extension.p11->C_GetTokenInfo(extension.slot, &info), CKR_OK);
  EXPECT_THAT(Calls(), ElementsAre("C_GetTokenInfo"));
}

TEST_P(CallCountsTest, SetUpSearchesOnceForEachKindOfObject) {
  MemoryCard& card = module.AddCard();
  card.AddEcKey({2});
  Extension extension(Adapter());
  SlowDown();
  ASSERT_EQ(extension.SetUp(), CKR_OK);
  EXPECT_EQ(module.Count("C_GetTokenInfo"), 3U);
  EXPECT_EQ(module.Count("C_GetSessionInfo"), 0U);
  EXPECT_EQ(module.Count("C_FindObjectsInit"), 3U);
  EXPECT_EQ(module.Count("C_OpenSession"), 1U);
  EXPECT_EQ(module.Count(), 39U);
}

TEST_P(CallCountsTest, TokenInAnotherReaderCostsOneMoreLookAtMost) {
  AddCard({.serial = "1"});
  AddCard({.serial = "2"});
  Extension extension(Adapter("token-serial = 2\n"));
  SlowDown();
  ASSERT_EQ(extension.BringUp(), CKR_OK);
  EXPECT_EQ(module.Count("C_GetTokenInfo"), 3U);
  Extension other(Adapter("reader-name = Memory\n", "libY"));
  module.ForgetCalls();
  ASSERT_EQ(other.BringUp(), CKR_OK);
  EXPECT_EQ(module.Count("C_GetTokenInfo"), 2U);
}

TEST_P(CallCountsTest, SupportTableOnlyReadsAttributes) {
  AddCard();
  Extension extension(Adapter());
  ASSERT_EQ(extension.SetUp(), CKR_OK);
  SlowDown();
  bool answer = false;
  // With the cache's look at the key.
  ASSERT_EQ(extension.Supports(1, CKA_VERIFY, CKM_RSA_PKCS, &answer), CKR_OK);
  EXPECT_TRUE(answer);
  EXPECT_EQ(Calls(), Names(5, "C_GetAttributeValue"));
  ASSERT_EQ(extension.Supports(2, CKA_VERIFY, CKM_ECDSA, &answer), CKR_OK);
  EXPECT_TRUE(answer);
  EXPECT_EQ(Calls(), Names(5, "C_GetAttributeValue"));
}

TEST_P(CallCountsTest, LoginIsOneCall) {
  MemoryCard& card = AddCard();
  Extension extension(Adapter());
  ASSERT_EQ(extension.SetUp(), CKR_OK);
  SlowDown();
  ASSERT_EQ(extension.LogIn(card.pin), CKR_OK);
  EXPECT_THAT(Calls(), ElementsAre("C_Login"));
}

TEST_P(CallCountsTest, SignatureLooksAtTheKeyOnce) {
  LogInAndOperate();
  const auto is_signature =
      ElementsAre("C_GetSessionInfo", "C_GetAttributeValue", "C_SignInit", "C_Sign");
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(extension->Sign(2, CKM_ECDSA, Bytes(32, 1), &result), CKR_OK);
    EXPECT_THAT(Calls(), is_signature);
    ASSERT_EQ(extension->Sign(1, CKM_RSA_X_509, {1}, &result), CKR_OK);
    EXPECT_THAT(Calls(), is_signature);
  }
  ASSERT_EQ(extension->Decrypt(1, CKM_RSA_PKCS, sealed, &result), CKR_OK);
  EXPECT_THAT(Calls(),
              ElementsAre("C_GetSessionInfo", "C_GetAttributeValue", "C_DecryptInit", "C_Decrypt"));
}

TEST_P(CallCountsTest, KeyThatWantsALoginEachTimeCostsThatCallMore) {
  LogInAndOperate({.always_authenticate = true});
  ASSERT_EQ(extension->Sign(2, CKM_ECDSA, Bytes(32, 1), &result), CKR_OK);
  EXPECT_THAT(Calls(), ElementsAre("C_GetSessionInfo", "C_GetAttributeValue", "C_SignInit",
                                   "C_Login", "C_Sign"));
  ASSERT_EQ(extension->Decrypt(1, CKM_RSA_PKCS, sealed, &result), CKR_OK);
  EXPECT_THAT(Calls(), ElementsAre("C_GetSessionInfo", "C_GetAttributeValue", "C_DecryptInit",
                                   "C_Login", "C_Decrypt"));
}

TEST_P(CallCountsTest, FirstSignatureAfterALoginLearnsWhatLaterOnesNeed) {
  LogInAndOperate();
  Extension later(folder / "libX.dylib");
  extension->Remove();
  module.before = nullptr;
  SetUpAndLogIn(later, "123456");
  SlowDown();
  ASSERT_EQ(later.Sign(2, CKM_ECDSA, Bytes(32, 1), &result), CKR_OK);
  // The search, the key's facts, the worker.
  EXPECT_THAT(Calls(),
              ElementsAre("C_GetSessionInfo", "C_FindObjectsInit", "C_FindObjects", "C_FindObjects",
                          "C_FindObjectsFinal", "C_GetAttributeValue", "C_GetAttributeValue",
                          "C_GetAttributeValue", "C_OpenSession", "C_SignInit", "C_Sign"));
}

class SearchesTest : public BehaviourTest {
 protected:
  SearchesTest() { SetUpAndLogIn(extension, card.pin); }

  MemoryCard& card = AddCard();
  Extension extension{Adapter()};
};

TEST_F(SearchesTest, DestroyedObjectIsForgotten) {
  CK_OBJECT_HANDLE key = 0;
  ASSERT_EQ(extension.FindKey(2, &key), CKR_OK);
  module.ForgetCalls();
  EXPECT_EQ(extension.p11->C_DestroyObject(extension.session, ec.private_key), CKR_OK);
  EXPECT_EQ(extension.FindKey(2, &key), Extension::kNoKey);
  EXPECT_EQ(module.Count("C_GetAttributeValue"), 0U);
}

TEST_F(SearchesTest, SearchesAreOverWhenTheCallerSaysSo) {
  CK_OBJECT_HANDLE found = 0;
  CK_ULONG count = 0;
  CK_FUNCTION_LIST* const p11 = extension.p11;
  const CK_SESSION_HANDLE session = extension.session;
  ASSERT_EQ(p11->C_FindObjectsInit(session, nullptr, 0), CKR_OK);
  EXPECT_EQ(p11->C_FindObjects(session, &found, 1, &count), CKR_OK);
  EXPECT_EQ(count, 1U);
  EXPECT_EQ(p11->C_FindObjectsFinal(session), CKR_OK);
  EXPECT_EQ(p11->C_FindObjects(session, &found, 1, &count), CKR_OPERATION_NOT_INITIALIZED);
  EXPECT_EQ(p11->C_FindObjectsFinal(session), CKR_OPERATION_NOT_INITIALIZED);
  ASSERT_EQ(p11->C_FindObjectsInit(session, nullptr, 0), CKR_OK);
  module.FailNext("C_FindObjectsInit", CKR_DEVICE_MEMORY);
  EXPECT_EQ(p11->C_FindObjectsInit(session, nullptr, 0), CKR_DEVICE_MEMORY);
  EXPECT_EQ(p11->C_FindObjects(session, &found, 1, &count), CKR_OPERATION_NOT_INITIALIZED);
}

}  // namespace
}  // namespace kelvrin::adapter
