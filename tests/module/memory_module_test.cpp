#include "tests/module/memory_module.h"

#include <gmock/gmock.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <memory>
#include <thread>

#include "tests/module/memory_fixture.h"
#include "tests/module/test_keys.h"

namespace kelvrin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = MemoryObject::Bytes;

TEST_F(MemoryModuleTest, AnswersNothingBeforeItIsInitialised) {
  module.AddCard();
  CK_ULONG count = 0;
  EXPECT_EQ(p11->C_GetSlotList(CK_TRUE, nullptr, &count), CKR_CRYPTOKI_NOT_INITIALIZED);
  EXPECT_EQ(p11->C_Initialize(nullptr), CKR_OK);
  EXPECT_EQ(p11->C_Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
  EXPECT_EQ(p11->C_GetSlotList(CK_TRUE, nullptr, &count), CKR_OK);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(p11->C_Finalize(nullptr), CKR_OK);
  EXPECT_EQ(p11->C_GetSlotList(CK_TRUE, nullptr, &count), CKR_CRYPTOKI_NOT_INITIALIZED);
  EXPECT_EQ(p11->C_GenerateRandom(0, nullptr, 0), CKR_FUNCTION_NOT_SUPPORTED);
}

TEST_F(MemoryModuleTest, CardsComeAndGo) {
  const CK_SLOT_ID empty = module.AddReader("Empty");
  MemoryCard& first = module.AddCard({.reader = "First", .serial = "1"});
  p11->C_Initialize(nullptr);
  CK_SLOT_INFO slot = {};
  CK_TOKEN_INFO token = {};
  EXPECT_EQ(p11->C_GetSlotInfo(empty, &slot), CKR_OK);
  EXPECT_EQ(slot.flags & CKF_TOKEN_PRESENT, 0);
  EXPECT_EQ(p11->C_GetTokenInfo(empty, &token), CKR_TOKEN_NOT_PRESENT);
  EXPECT_EQ(p11->C_GetTokenInfo(99, &token), CKR_SLOT_ID_INVALID);

  const CK_SESSION_HANDLE session = Open(first);
  EXPECT_EQ(LogIn(session), CKR_OK);
  module.Pull(first);
  CK_SESSION_INFO info = {};
  EXPECT_EQ(p11->C_GetSessionInfo(session, &info), CKR_SESSION_HANDLE_INVALID);
  EXPECT_EQ(p11->C_GetTokenInfo(first.slot, &token), CKR_TOKEN_NOT_PRESENT);

  MemoryCard& second = module.AddCard({.reader = "First", .serial = "2"});
  EXPECT_EQ(second.slot, first.slot);
  EXPECT_EQ(p11->C_GetTokenInfo(first.slot, &token), CKR_OK);
  EXPECT_EQ(token.serialNumber[0], '2');
  module.Insert(first);
  EXPECT_EQ(p11->C_GetTokenInfo(first.slot, &token), CKR_OK);
  EXPECT_EQ(token.serialNumber[0], '1');
  EXPECT_FALSE(first.is_logged_in);
}

TEST_F(MemoryModuleTest, KeepsSessionsOverARemovalWhenTold) {
  MemoryCard& card = module.AddCard();
  module.keeps_sessions = true;
  p11->C_Initialize(nullptr);
  const CK_SESSION_HANDLE session = Open(card);
  LogIn(session);
  CK_SESSION_INFO info = {};
  module.Pull(card);
  EXPECT_EQ(p11->C_GetSessionInfo(session, &info), CKR_DEVICE_REMOVED);
  module.Insert(card);
  EXPECT_EQ(p11->C_GetSessionInfo(session, &info), CKR_OK);
  EXPECT_EQ(info.state, CKS_RW_PUBLIC_SESSION);
}

TEST_F(MemoryModuleTest, LogsInWithThePinAndLocksAfterThreeWrongOnes) {
  MemoryCard& card = module.AddCard();
  p11->C_Initialize(nullptr);
  const CK_SESSION_HANDLE session = Open(card);
  EXPECT_EQ(LogIn(session, "654321"), CKR_PIN_INCORRECT);
  EXPECT_EQ(LogIn(session), CKR_OK);
  EXPECT_EQ(LogIn(session), CKR_USER_ALREADY_LOGGED_IN);
  EXPECT_EQ(p11->C_Logout(session), CKR_OK);
  EXPECT_EQ(p11->C_Logout(session), CKR_USER_NOT_LOGGED_IN);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(LogIn(session, "1"), CKR_PIN_INCORRECT);
  EXPECT_EQ(LogIn(session), CKR_PIN_LOCKED);
  CK_TOKEN_INFO token = {};
  p11->C_GetTokenInfo(card.slot, &token);
  EXPECT_NE(token.flags & CKF_USER_PIN_LOCKED, 0);
}

TEST_F(MemoryModuleTest, TheLoginEndsWithTheLastSessionOfTheCard) {
  MemoryCard& card = module.AddCard();
  p11->C_Initialize(nullptr);
  const CK_SESSION_HANDLE first = Open(card);
  const CK_SESSION_HANDLE second = Open(card);
  LogIn(first);
  p11->C_CloseSession(first);
  EXPECT_TRUE(card.is_logged_in);
  p11->C_CloseSession(second);
  EXPECT_FALSE(card.is_logged_in);
  EXPECT_EQ(p11->C_CloseSession(second), CKR_SESSION_HANDLE_INVALID);
}

TEST_F(MemoryModuleTest, ShowsPrivateKeysAfterTheLoginAndOneSearchAtATime) {
  MemoryCard& card = module.AddCard();
  const MemoryKey rsa = card.AddRsaKey({0x01});
  p11->C_Initialize(nullptr);
  const CK_SESSION_HANDLE session = Open(card);
  EXPECT_THAT(Find(session, CKO_PUBLIC_KEY), ElementsAre(rsa.public_key));
  EXPECT_THAT(Find(session, CKO_PRIVATE_KEY), IsEmpty());
  LogIn(session);
  EXPECT_THAT(Find(session, CKO_PRIVATE_KEY), ElementsAre(rsa.private_key));
  EXPECT_EQ(p11->C_FindObjectsInit(session, nullptr, 0), CKR_OK);
  EXPECT_EQ(p11->C_FindObjectsInit(session, nullptr, 0), CKR_OPERATION_ACTIVE);
}

TEST_F(MemoryModuleTest, ReadsAttributesAsTheStandardSays) {
  MemoryCard& card = module.AddCard();
  const MemoryKey rsa = card.AddRsaKey({0x01, 0x02});
  p11->C_Initialize(nullptr);
  const CK_SESSION_HANDLE session = Open(card);
  LogIn(session);
  Bytes value(8);
  CK_ULONG length = 0;
  EXPECT_EQ(Read(session, rsa.private_key, CKA_ID, &value, &length), CKR_OK);
  EXPECT_THAT(value, ElementsAre(1, 2));
  EXPECT_EQ(Read(session, rsa.private_key, CKA_URL, &value, &length), CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(length, CK_UNAVAILABLE_INFORMATION);
  EXPECT_EQ(Read(session, rsa.public_key, CKA_MODULUS, &value, &length), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(length, CK_UNAVAILABLE_INFORMATION);
  value.resize(600);
  EXPECT_EQ(Read(session, rsa.private_key, CKA_PRIVATE_EXPONENT, &value, &length),
            CKR_ATTRIBUTE_SENSITIVE);
  EXPECT_EQ(Read(session, 99, CKA_ID, &value, &length), CKR_OBJECT_HANDLE_INVALID);
}

// What the public key makes of a signature or of a plain text.
Bytes Encrypt(EVP_PKEY* key, int padding, const Bytes& input) {
  const std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context(
      EVP_PKEY_CTX_new(key, nullptr), &EVP_PKEY_CTX_free);
  Bytes output(256);
  std::size_t size = output.size();
  EVP_PKEY_encrypt_init(context.get());
  EVP_PKEY_CTX_set_rsa_padding(context.get(), padding);
  EVP_PKEY_encrypt(context.get(), output.data(), &size, input.data(), input.size());
  return output;
}

bool Verifies(EVP_PKEY* key, const Bytes& digest, const Bytes& signature) {
  const std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context(
      EVP_PKEY_CTX_new(key, nullptr), &EVP_PKEY_CTX_free);
  EVP_PKEY_verify_init(context.get());
  return EVP_PKEY_verify(context.get(), signature.data(), signature.size(), digest.data(),
                         digest.size()) == 1;
}

TEST_F(MemoryModuleTest, SignsAndDecryptsWithRsa) {
  MemoryCard& card = module.AddCard();
  const CK_OBJECT_HANDLE key = card.AddRsaKey({0x01}).private_key;
  p11->C_Initialize(nullptr);
  const CK_SESSION_HANDLE session = Open(card);
  LogIn(session);
  Bytes result;
  const Bytes text = {0x12, 0x34};
  Bytes block(256, 0);
  std::copy(text.begin(), text.end(), block.end() - 2);
  EXPECT_EQ(Sign(session, CKM_RSA_X_509, key, text, &result), CKR_OK);
  EXPECT_EQ(Encrypt(card.KeyOf(key), RSA_NO_PADDING, result), block);
  EXPECT_EQ(Sign(session, CKM_RSA_X_509, key, Bytes(257, 1), &result), CKR_DATA_LEN_RANGE);
  EXPECT_EQ(Sign(session, CKM_ECDSA, key, text, &result), CKR_KEY_TYPE_INCONSISTENT);
  EXPECT_EQ(Sign(session, CKM_SHA1_RSA_PKCS, key, text, &result), CKR_MECHANISM_INVALID);
  const Bytes sealed = Encrypt(card.KeyOf(key), RSA_PKCS1_PADDING, text);
  EXPECT_EQ(Decrypt(session, CKM_RSA_PKCS, key, sealed, &result), CKR_OK);
  EXPECT_EQ(result, text);
  EXPECT_EQ(Decrypt(session, CKM_RSA_PKCS, key, {1, 2}, &result), CKR_ENCRYPTED_DATA_LEN_RANGE);
}

TEST_F(MemoryModuleTest, ARoomThatIsTooSmallLeavesTheOperationOpen) {
  MemoryCard& card = module.AddCard();
  const CK_OBJECT_HANDLE key = card.AddEcKey({0x02}).private_key;
  p11->C_Initialize(nullptr);
  const CK_SESSION_HANDLE session = Open(card);
  LogIn(session);
  CK_MECHANISM mechanism = {CKM_ECDSA, nullptr, 0};
  Bytes digest(32, 7);
  Bytes signature(64);
  CK_ULONG size = 0;
  EXPECT_EQ(p11->C_SignInit(session, &mechanism, key), CKR_OK);
  EXPECT_EQ(p11->C_SignInit(session, &mechanism, key), CKR_OPERATION_ACTIVE);
  EXPECT_EQ(p11->C_Sign(session, digest.data(), digest.size(), nullptr, &size), CKR_OK);
  EXPECT_EQ(size, 64);
  size = 63;
  EXPECT_EQ(p11->C_Sign(session, digest.data(), digest.size(), signature.data(), &size),
            CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(p11->C_Sign(session, digest.data(), digest.size(), signature.data(), &size), CKR_OK);
  EXPECT_TRUE(Verifies(card.KeyOf(key), digest, DerEcdsa(signature)));
  EXPECT_EQ(p11->C_Sign(session, digest.data(), digest.size(), signature.data(), &size),
            CKR_OPERATION_NOT_INITIALIZED);
}

TEST_F(MemoryModuleTest, AKeyCanWantALoginForEachOperation) {
  MemoryCard& card = module.AddCard();
  const CK_OBJECT_HANDLE key = card.AddEcKey({0x02}, {.always_authenticate = true}).private_key;
  p11->C_Initialize(nullptr);
  const CK_SESSION_HANDLE session = Open(card);
  LogIn(session);
  Bytes signature;
  EXPECT_EQ(Sign(session, CKM_ECDSA, key, Bytes(32, 7), &signature), CKR_USER_NOT_LOGGED_IN);
  EXPECT_EQ(LogIn(session, "123456", CKU_CONTEXT_SPECIFIC), CKR_OPERATION_NOT_INITIALIZED);
  CK_MECHANISM mechanism = {CKM_ECDSA, nullptr, 0};
  Bytes digest(32, 7);
  CK_ULONG size = 64;
  signature.resize(size);
  p11->C_SignInit(session, &mechanism, key);
  EXPECT_EQ(LogIn(session, "1", CKU_CONTEXT_SPECIFIC), CKR_PIN_INCORRECT);
  EXPECT_EQ(LogIn(session, "123456", CKU_CONTEXT_SPECIFIC), CKR_OK);
  EXPECT_EQ(p11->C_Sign(session, digest.data(), digest.size(), signature.data(), &size), CKR_OK);
}

TEST_F(MemoryModuleTest, DerivesSecretsThatEndWithTheSession) {
  MemoryCard& card = module.AddCard();
  const CK_OBJECT_HANDLE key = card.AddEcKey({0x02}).private_key;
  const TestKey peer = TestEcKey(7);
  p11->C_Initialize(nullptr);
  const CK_SESSION_HANDLE session = Open(card);
  const CK_SESSION_HANDLE other = Open(card);
  LogIn(session);
  CK_OBJECT_HANDLE derived = 0;
  ASSERT_EQ(Derive(session, key, PointOfKey(peer.get()), {}, &derived), CKR_OK);
  Bytes value(66);
  CK_ULONG length = 0;
  EXPECT_EQ(Read(session, derived, CKA_VALUE, &value, &length), CKR_OK);
  EXPECT_EQ(value, DeriveSecret(peer.get(), PointOfKey(card.KeyOf(key))));
  EXPECT_EQ(Derive(session, key, {4, 1, 2}, {}, &derived), CKR_MECHANISM_PARAM_INVALID);
  p11->C_CloseSession(session);
  EXPECT_EQ(Read(other, derived, CKA_VALUE, &value, &length), CKR_OBJECT_HANDLE_INVALID);
}

// 04 3F could begin a DER OCTET STRING of 63 bytes.
TEST_F(MemoryModuleTest, DerivesWithARawPointThatBeginsAsDerWould) {
  MemoryCard& card = module.AddCard();
  const CK_OBJECT_HANDLE key = card.AddEcKey({0x02}).private_key;
  int number = 1000;
  while (PointOfKey(TestEcKey(number).get())[1] != 63) ++number;
  p11->C_Initialize(nullptr);
  const CK_SESSION_HANDLE session = Open(card);
  LogIn(session);
  CK_OBJECT_HANDLE derived = 0;
  EXPECT_EQ(Derive(session, key, PointOfKey(TestEcKey(number).get()), {}, &derived), CKR_OK);
}

TEST_F(MemoryModuleTest, CardsNeverShareAKey) {
  MemoryCard& first = module.AddCard({.reader = "First"});
  MemoryCard& second = module.AddCard({.reader = "Second"});
  const MemoryKey one = first.AddEcKey({0x02});
  const MemoryKey other = second.AddEcKey({0x02});
  EXPECT_NE(PointOfKey(first.KeyOf(one.private_key)), PointOfKey(second.KeyOf(other.private_key)));
}

TEST_F(MemoryModuleTest, OverridesFailuresAndCallsAreTheTests) {
  CK_INFO info = {};
  p11->C_Initialize(nullptr);
  module.over.C_GetInfo = [&](CK_INFO* given) {
    const CK_RV result = module.standard.C_GetInfo(given);
    given->cryptokiVersion.major = 9;
    return result;
  };
  EXPECT_EQ(p11->C_GetInfo(&info), CKR_OK);
  EXPECT_EQ(info.cryptokiVersion.major, 9);
  module.FailNext("C_GetInfo", CKR_DEVICE_ERROR);
  EXPECT_EQ(p11->C_GetInfo(&info), CKR_DEVICE_ERROR);
  EXPECT_EQ(p11->C_GetInfo(&info), CKR_OK);
  module.FailFrom(2, CKR_DEVICE_REMOVED);
  EXPECT_EQ(p11->C_GetInfo(&info), CKR_OK);
  EXPECT_EQ(p11->C_GetInfo(&info), CKR_DEVICE_REMOVED);
  EXPECT_EQ(p11->C_Finalize(nullptr), CKR_DEVICE_REMOVED);
  module.Heal();
  EXPECT_EQ(module.Count("C_GetInfo"), 5);
  module.ForgetCalls();
  module.before = [](std::string_view name) {
    return name == "C_Finalize" ? CKR_GENERAL_ERROR : CKR_OK;
  };
  p11->C_GetInfo(&info);
  EXPECT_EQ(p11->C_Finalize(nullptr), CKR_GENERAL_ERROR);
  EXPECT_THAT(module.Calls(), ElementsAre("C_GetInfo", "C_Finalize"));
  EXPECT_EQ(module.Count(), 2);
}

TEST_F(MemoryModuleTest, SeesCallsThatOverlap) {
  module.before = [&](std::string_view name) {
    if (name == "C_Initialize") std::thread([&] { p11->C_Finalize(nullptr); }).join();
    return CKR_OK;
  };
  p11->C_Initialize(nullptr);
  EXPECT_EQ(module.overlaps, 1);
}

TEST_F(MemoryModuleTest, TheLibraryIsAModuleOfItsOwn) {
  MemoryModule& library = LoadMemoryModule(MEMORY_MODULE_PATH);
  library.Reset();
  ASSERT_NE(&library, &module);
  const MemoryCard& card = library.AddCard();
  library.functions()->C_Initialize(nullptr);
  CK_TOKEN_INFO token = {};
  EXPECT_EQ(library.functions()->C_GetTokenInfo(card.slot, &token), CKR_OK);
  EXPECT_EQ(library.Count("C_GetTokenInfo"), 1);
  EXPECT_THAT(module.Calls(), IsEmpty());
  library.Reset();
}

}  // namespace
}  // namespace kelvrin
