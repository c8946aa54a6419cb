// Deriving a shared secret, and what all three operations leave alone.
#include <cstring>

#include "p11/operations.h"
#include "tests/module/p11_fixture.h"

namespace {

using scripted::Bytes;
using scripted::Effect;
using scripted::Function;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr CK_OBJECT_HANDLE kKey = 12;

class KeyAgreementTest : public scripted::P11Test {
 protected:
  CK_RV Derive() {
    return derive_key(p11_, kSession, kKey, CKM_ECDH1_DERIVE, public_key_.data(),
                      public_key_.size(), secret_.data(), &secret_length_);
  }
  // The parameters that C_DeriveKey was given.
  CK_ECDH1_DERIVE_PARAMS Parameters() {
    const scripted::Argument mechanism = module_.At(Function::C_DeriveKey).arguments[1];
    CK_ECDH1_DERIVE_PARAMS parameters = {};
    EXPECT_EQ(mechanism.parameter_length, 40u);
    EXPECT_EQ(mechanism.bytes.size(), sizeof parameters);
    memcpy(&parameters, mechanism.bytes.data(), sizeof parameters);
    return parameters;
  }

  Bytes public_key_ = {4, 1, 2};
  Bytes secret_ = Bytes(1024, 0xEE);
  CK_ULONG secret_length_ = 4321;
};

TEST_F(KeyAgreementTest, FailedDerivationLeavesTheOutputsUntouched) {
  module_.Return(Function::C_DeriveKey, CKR_DEVICE_REMOVED, Effect::kPerform);
  EXPECT_EQ(Derive(), CKR_DEVICE_REMOVED);
  EXPECT_THAT(module_.Names(), ElementsAre("C_DeriveKey"));
  EXPECT_THAT(Log(), ElementsAre("error: PKCS11 function C_DeriveKey failed: rv = "
                                 "CKR_DEVICE_REMOVED (0x32)"));
  EXPECT_EQ(secret_length_, 4321u);
  EXPECT_THAT(secret_, Each(0xEE));
}

TEST_F(KeyAgreementTest, FailedReadStillCopiesTheZeroFilledRoom) {
  module_.Return(Function::C_GetAttributeValue, CKR_OBJECT_HANDLE_INVALID);
  EXPECT_EQ(Derive(), CKR_OBJECT_HANDLE_INVALID);
  EXPECT_THAT(module_.Names(), ElementsAre("C_DeriveKey", "C_GetAttributeValue"));
  EXPECT_EQ(card_.objects.size(), 1u) << "the derived object stays";
  EXPECT_THAT(Log(), ElementsAre("error: PKCS11 function C_GetAttributeValue failed: rv = "
                                 "CKR_OBJECT_HANDLE_INVALID (0x82)"));
  EXPECT_EQ(secret_length_, 1024u);
  EXPECT_THAT(secret_, Each(0));
}

TEST_F(KeyAgreementTest, FailedReadCopiesAsManyBytesAsTheAttributeSays) {
  card_.derived_secret = {{5, 6, 7}, 2};
  module_.Return(Function::C_GetAttributeValue, CKR_DEVICE_ERROR, Effect::kPerform);
  EXPECT_EQ(Derive(), CKR_DEVICE_ERROR);
  EXPECT_EQ(secret_length_, 2u);
  EXPECT_THAT(Bytes(secret_.begin(), secret_.begin() + 3), ElementsAre(5, 6, 0xEE));
}

TEST_F(KeyAgreementTest, FailedReadOfLengthZeroCopiesNothing) {
  card_.derived_secret = {{}, 0};
  module_.Return(Function::C_GetAttributeValue, CKR_DEVICE_ERROR, Effect::kPerform);
  EXPECT_EQ(Derive(), CKR_DEVICE_ERROR);
  EXPECT_EQ(secret_length_, 0u);
  EXPECT_THAT(secret_, Each(0xEE));
}

TEST_F(KeyAgreementTest, DerivesWithAnEmptyTemplateAndReadsTheValue) {
  card_.next_object = 31;
  card_.derived_secret.bytes = {5, 6, 7};
  EXPECT_EQ(Derive(), CKR_OK);
  const scripted::Call derivation = module_.At(Function::C_DeriveKey);
  EXPECT_EQ(derivation.arguments[0].number, kSession);
  EXPECT_EQ(derivation.arguments[1].number, 0x1050u);
  EXPECT_EQ(derivation.arguments[2].number, kKey);
  EXPECT_EQ(derivation.arguments[3].address, nullptr);
  EXPECT_EQ(derivation.arguments[3].number, 0u);
  EXPECT_THAT(module_.Names(), ElementsAre("C_DeriveKey", "C_GetAttributeValue"));
  EXPECT_EQ(module_.Texts().at(1), "C_GetAttributeValue(77, 31, {0x11[1024]})");
  EXPECT_THAT(module_.At(Function::C_GetAttributeValue).arguments[2].attributes[0].bytes, Each(0));
  EXPECT_EQ(secret_length_, 3u);
  EXPECT_THAT(Bytes(secret_.begin(), secret_.begin() + 4), ElementsAre(5, 6, 7, 0xEE));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(KeyAgreementTest, AsksForNoKdfAndNoSharedData) {
  EXPECT_EQ(Derive(), CKR_OK);
  const CK_ECDH1_DERIVE_PARAMS parameters = Parameters();
  EXPECT_EQ(parameters.kdf, 1u);
  EXPECT_EQ(parameters.ulSharedDataLen, 0u);
  EXPECT_EQ(parameters.pSharedData, nullptr);
  EXPECT_EQ(parameters.ulPublicDataLen, 3u);
  EXPECT_EQ(parameters.pPublicData, public_key_.data());
}

TEST_F(KeyAgreementTest, PassesTheMechanismOnWhateverItIs) {
  EXPECT_EQ(derive_key(p11_, kSession, kKey, 0x1051, public_key_.data(), 3, secret_.data(),
                       &secret_length_),
            CKR_OK);
  EXPECT_EQ(module_.At(Function::C_DeriveKey).arguments[1].number, 0x1051u);
}

TEST_F(KeyAgreementTest, PassesEmptyPublicDataOn) {
  EXPECT_EQ(derive_key(p11_, kSession, kKey, CKM_ECDH1_DERIVE, nullptr, 0, secret_.data(),
                       &secret_length_),
            CKR_OK);
  EXPECT_EQ(Parameters().ulPublicDataLen, 0u);
  EXPECT_EQ(Parameters().pPublicData, nullptr);
}

TEST_F(KeyAgreementTest, DoesNotReadTheCallersLength) {
  secret_length_ = 0;
  card_.derived_secret.bytes = Bytes(1024, 3);
  EXPECT_EQ(Derive(), CKR_OK);
  EXPECT_EQ(secret_length_, 1024u);
  EXPECT_THAT(secret_, Each(3));
}

TEST_F(KeyAgreementTest, EveryDerivedObjectStays) {
  EXPECT_EQ(Derive(), CKR_OK);
  EXPECT_EQ(Derive(), CKR_OK);
  EXPECT_EQ(card_.objects.size(), 2u);
  EXPECT_EQ(module_.Count(Function::C_DestroyObject), 0u);
  EXPECT_THAT(module_.Names(), ElementsAre("C_DeriveKey", "C_GetAttributeValue", "C_DeriveKey",
                                           "C_GetAttributeValue"));
}

// A module of its own for counting: the scripted one allocates.
CK_RV InitOk(CK_SESSION_HANDLE, CK_MECHANISM*, CK_OBJECT_HANDLE) { return CKR_OK; }
CK_RV OperationOk(CK_SESSION_HANDLE, CK_BYTE*, CK_ULONG, CK_BYTE*, CK_ULONG* length) {
  *length = 1;
  return CKR_OK;
}
CK_RV OperationFails(CK_SESSION_HANDLE, CK_BYTE*, CK_ULONG, CK_BYTE*, CK_ULONG*) {
  return CKR_DEVICE_ERROR;
}
CK_RV DeriveOk(CK_SESSION_HANDLE, CK_MECHANISM*, CK_OBJECT_HANDLE, CK_ATTRIBUTE*, CK_ULONG,
               CK_OBJECT_HANDLE* derived) {
  *derived = 5;
  return CKR_OK;
}
CK_RV ReadOk(CK_SESSION_HANDLE, CK_OBJECT_HANDLE, CK_ATTRIBUTE*, CK_ULONG) { return CKR_OK; }

TEST_F(KeyAgreementTest, NoOperationAllocatesMemory) {
  CK_FUNCTION_LIST list = {};
  list.C_SignInit = InitOk;
  list.C_Sign = OperationOk;
  list.C_DecryptInit = InitOk;
  list.C_Decrypt = OperationOk;
  list.C_DeriveKey = DeriveOk;
  list.C_GetAttributeValue = ReadOk;
  CK_ULONG length = 1024;
  const oslog::Disabled no_errors(OS_LOG_TYPE_ERROR);
  wrapped::calls().counting = true;
  CK_RV sum =
      sign(&list, 1, 2, CKM_SHA256_RSA_PKCS_PSS, public_key_.data(), 3, secret_.data(), &length);
  sum |= decrypt(&list, 1, 2, CKM_RSA_PKCS, public_key_.data(), 3, secret_.data(), &length);
  sum |= derive_key(&list, 1, 2, CKM_ECDH1_DERIVE, public_key_.data(), 3, secret_.data(), &length);
  list.C_Sign = OperationFails;
  const CK_RV failed =
      sign(&list, 1, 2, CKM_RSA_PKCS, public_key_.data(), 3, secret_.data(), &length);
  wrapped::calls().counting = false;
  EXPECT_EQ(sum, CKR_OK);
  EXPECT_EQ(failed, CKR_DEVICE_ERROR);
  EXPECT_EQ(wrapped::calls().allocations, 0u);
}

TEST(AllocationCount, SeesTheAllocationsThatItWouldMiss) {
  wrapped::Reset();
  wrapped::calls().counting = true;
  void* volatile by_malloc = malloc(1);
  int* volatile by_new = new int;
  wrapped::calls().counting = false;
  free(by_malloc);
  delete by_new;
  EXPECT_EQ(wrapped::calls().allocations, 2u);
}

}  // namespace
