#include "tests/module/faults.h"

#include <gmock/gmock.h>

#include "tests/module/memory_fixture.h"
#include "tests/module/test_keys.h"

namespace kelvrin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A card with an RSA and an EC key, initialised and logged in unless a test wants otherwise.
class FaultsTest : public MemoryModuleTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(p11->C_Initialize(nullptr), CKR_OK);
    session = Open(card);
    ASSERT_EQ(LogIn(session), CKR_OK);
  }
  CK_RV Initialize(CK_FLAGS flags, const char* reserved = nullptr) {
    p11->C_Finalize(nullptr);
    CK_C_INITIALIZE_ARGS arguments = {};
    arguments.flags = flags;
    arguments.pReserved = const_cast<char*>(reserved);
    return p11->C_Initialize(&arguments);
  }
  CK_RV SignEc(Bytes digest = Bytes(32, 7)) {
    return Sign(session, CKM_ECDSA, ec.private_key, std::move(digest), &result);
  }
  CK_RV SignRsaBlock(Bytes block) {
    return Sign(session, CKM_RSA_X_509, rsa.private_key, std::move(block), &result);
  }

  MemoryCard& card = module.AddCard();
  MemoryKey rsa = card.AddRsaKey({0x01});
  MemoryKey ec = card.AddEcKey({0x02});
  CK_SESSION_HANDLE session = 0;
  Bytes result;
  CK_ULONG length = 0;
};

TEST_F(FaultsTest, InitialisationWithOrWithoutLocks) {
  faults::WantsLocks(module);
  EXPECT_EQ(Initialize(0), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(Initialize(CKF_OS_LOCKING_OK), CKR_OK);
  faults::RefusesLocks(module);
  EXPECT_EQ(Initialize(CKF_OS_LOCKING_OK), CKR_CANT_LOCK);
}

TEST_F(FaultsTest, InitialisationWithAReservedText) {
  faults::WantsReserved(module, "where='here'");
  EXPECT_EQ(Initialize(0), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(Initialize(0, "there"), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(Initialize(0, "where='here'"), CKR_OK);
  EXPECT_EQ(module.reserved, "where='here'");
}

using FaultsDeathTest = FaultsTest;

TEST_F(FaultsDeathTest, HangsWithLocksAndAPulledCard) {
  faults::HangsWithLocks(module);
  CK_INFO info = {};
  module.Pull(card);
  EXPECT_EQ(p11->C_GetInfo(&info), CKR_OK);
  module.Insert(card);
  EXPECT_EQ(Initialize(CKF_OS_LOCKING_OK), CKR_OK);
  EXPECT_EQ(p11->C_GetInfo(&info), CKR_OK);
  EXPECT_DEATH((module.Pull(card), p11->C_GetInfo(&info)), "C_GetInfo waits for ever");
}

TEST_F(FaultsTest, TheFirstFinalizeAndMechanismListFail) {
  faults::EmptyMechanismListOnce(module);
  CK_ULONG count = 1;
  EXPECT_EQ(p11->C_GetMechanismList(card.slot, nullptr, &count), CKR_OK);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(p11->C_GetMechanismList(card.slot, nullptr, &count), CKR_OK);
  EXPECT_EQ(count, 4);
  faults::FinalizeFailsOnce(module);
  EXPECT_EQ(p11->C_Finalize(nullptr), CKR_GENERAL_ERROR);
  EXPECT_TRUE(card.is_logged_in);
  EXPECT_EQ(p11->C_Finalize(nullptr), CKR_OK);
  EXPECT_FALSE(card.is_logged_in);
}

TEST_F(FaultsTest, RefusesSessionsThatWrite) {
  faults::RefusesWriting(module);
  const CK_FLAGS flags = CKF_SERIAL_SESSION;
  EXPECT_EQ(p11->C_OpenSession(card.slot, flags | CKF_RW_SESSION, nullptr, nullptr, &session),
            CKR_TOKEN_WRITE_PROTECTED);
  EXPECT_EQ(p11->C_OpenSession(card.slot, flags, nullptr, nullptr, &session), CKR_OK);
}

TEST_F(FaultsTest, OpenSearches) {
  faults::OperationsWaitForSearch(module);
  p11->C_FindObjectsInit(session, nullptr, 0);
  EXPECT_EQ(SignEc(), CKR_OPERATION_ACTIVE);
  faults::SearchReplacesSearch(module);
  EXPECT_EQ(p11->C_FindObjectsInit(session, nullptr, 0), CKR_OK);
  p11->C_FindObjectsFinal(session);
  EXPECT_EQ(SignEc(), CKR_OK);
}

TEST_F(FaultsTest, HidesPublicKeysOnly) {
  faults::HidesPublicKeys(module);
  EXPECT_THAT(Find(session, CKO_PUBLIC_KEY), IsEmpty());
  EXPECT_THAT(Find(session, CKO_PRIVATE_KEY), ElementsAre(rsa.private_key, ec.private_key));
}

TEST_F(FaultsTest, SpoiltAttributesOneOnTopOfTheOther) {
  faults::NoAllowedMechanisms(module);
  faults::ReadsLengthMinusOne(module, CKA_ID);
  faults::WantsExactRoom(module);
  result.resize(100);
  EXPECT_EQ(Read(session, rsa.public_key, CKA_ALLOWED_MECHANISMS, &result, &length),
            CKR_ATTRIBUTE_TYPE_INVALID);
  EXPECT_EQ(length, CK_UNAVAILABLE_INFORMATION);
  EXPECT_EQ(Read(session, rsa.public_key, CKA_ID, &result, &length), CKR_OK);
  EXPECT_EQ(length, CK_UNAVAILABLE_INFORMATION);
  EXPECT_EQ(Read(session, rsa.public_key, CKA_KEY_TYPE, &result, &length), CKR_BUFFER_TOO_SMALL);
  result.resize(sizeof(CK_ULONG));
  EXPECT_EQ(Read(session, rsa.public_key, CKA_KEY_TYPE, &result, &length), CKR_OK);
  faults::LeavesLengths(module);
  EXPECT_EQ(Read(session, rsa.public_key, CKA_MODULUS, &result, &length), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(length, sizeof(CK_ULONG));
}

TEST_F(FaultsTest, AFailureBlocksTheSession) {
  faults::ExactDigestsOnly(module);
  faults::FailureLeavesOperation(module);
  EXPECT_EQ(SignEc(Bytes(48, 7)), CKR_DATA_LEN_RANGE);
  EXPECT_EQ(SignEc(), CKR_OPERATION_ACTIVE);
  session = Open(card);
  EXPECT_EQ(SignEc(), CKR_OK);
}

TEST_F(FaultsTest, InputsThatAreRefused) {
  faults::RefusesShortBlocks(module);
  faults::RefusesNullInput(module);
  EXPECT_EQ(SignRsaBlock(Bytes(255, 1)), CKR_FUNCTION_FAILED);
  EXPECT_EQ(SignRsaBlock(Bytes(256, 1)), CKR_OK);
  CK_MECHANISM mechanism = {CKM_ECDSA, nullptr, 0};
  p11->C_SignInit(session, &mechanism, ec.private_key);
  length = 0;
  EXPECT_EQ(p11->C_Sign(session, nullptr, 0, nullptr, &length), CKR_ARGUMENTS_BAD);
}

TEST_F(FaultsTest, DropsLeadingZeros) {
  faults::DropsLeadingZeros(module);
  EXPECT_EQ(SignRsaBlock({1}), CKR_OK);
  EXPECT_THAT(result, ElementsAre(1));
  EXPECT_EQ(Decrypt(session, CKM_RSA_X_509, rsa.private_key, {1}, &result), CKR_OK);
  EXPECT_THAT(result, ElementsAre(1));
}

TEST_F(FaultsTest, DerSignaturesVerify) {
  faults::DerSignatures(module);
  EXPECT_EQ(SignEc(), CKR_OK);
  EXPECT_EQ(DerEcdsa(RawEcdsa(result)), result);
}

TEST_F(FaultsTest, RenewsPrivateKeys) {
  faults::RenewsHandles(module);
  EXPECT_EQ(SignEc(), CKR_OK);
  EXPECT_EQ(SignEc(), CKR_KEY_HANDLE_INVALID);
  EXPECT_EQ(Find(session, CKO_PRIVATE_KEY).size(), 2);
}

TEST_F(FaultsTest, DerivationThatWantsMore) {
  const Bytes raw = PointOfKey(TestEcKey(7).get());
  Bytes der = raw;
  der.insert(der.begin(), {0x04, 65});
  CK_BBOOL no = CK_FALSE;
  const std::vector<CK_ATTRIBUTE> attributes = {{CKA_SENSITIVE, &no, sizeof(no)}};
  CK_OBJECT_HANDLE open = 0;
  CK_OBJECT_HANDLE closed = 0;
  faults::SecretsAreSensitive(module);
  faults::PointsOfLength(module, 67);
  EXPECT_EQ(Derive(session, ec.private_key, raw, {}, &closed), CKR_MECHANISM_PARAM_INVALID);
  EXPECT_EQ(Derive(session, ec.private_key, der, {}, &closed), CKR_OK);
  EXPECT_EQ(Derive(session, ec.private_key, der, attributes, &open), CKR_OK);
  result.resize(66);
  EXPECT_EQ(Read(session, closed, CKA_VALUE, &result, &length), CKR_ATTRIBUTE_SENSITIVE);
  EXPECT_EQ(Read(session, open, CKA_VALUE, &result, &length), CKR_OK);
  faults::RoomForDerivedKeys(module, 3);
  EXPECT_EQ(Derive(session, ec.private_key, der, attributes, &open), CKR_OK);
  EXPECT_EQ(Derive(session, ec.private_key, der, attributes, &open), CKR_DEVICE_MEMORY);
  faults::WantsDeriveTemplate(module, CKR_TEMPLATE_INCOMPLETE);
  EXPECT_EQ(Derive(session, ec.private_key, der, {}, &open), CKR_TEMPLATE_INCOMPLETE);
}

}  // namespace
}  // namespace kelvrin
