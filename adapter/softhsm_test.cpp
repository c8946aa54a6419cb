// Each thing that the extension expects and SoftHSM does not do: shown to fail on SoftHSM itself
// and to work through the adapter, checked by OpenSSL.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "adapter/testing/softhsm_fixture.h"

namespace kelvrin::adapter {
namespace {

TEST_F(SoftHsmTest, OpenSearchRefusesTheNextOneAndSigning) {
  const Card& raw = Raw();
  EXPECT_EQ(raw.FindInit(CKO_PRIVATE_KEY, kRsaId), CKR_OK);
  EXPECT_EQ(raw.FindInit(CKO_PRIVATE_KEY, kRsaId), CKR_OPERATION_ACTIVE);
  EXPECT_EQ(raw.SignInit(CKM_RSA_PKCS, 1), CKR_OPERATION_ACTIVE);

  const Card& card = Adapted();
  for (int i = 0; i < 3; ++i) {
    const CK_OBJECT_HANDLE key = card.Find(CKO_PRIVATE_KEY, kRsaId);
    ASSERT_NE(key, 0u);
    EXPECT_NE(card.Find(CKO_PUBLIC_KEY, kEcId), 0u);
    EXPECT_EQ(card.SignInit(CKM_RSA_PKCS, key), CKR_OK);
    Bytes signature;
    EXPECT_EQ(card.Sign(Bytes(20, 1), &signature), CKR_OK);
  }
}

TEST_F(SoftHsmTest, SearchWithoutMatchGivesNoObjectAndPrivateKeysNeedALogin) {
  const Card& card = Adapted(false);
  EXPECT_EQ(card.Find(CKO_PUBLIC_KEY, 0x55), 0u);
  EXPECT_EQ(card.Find(CKO_PRIVATE_KEY, kRsaId), 0u);
  EXPECT_NE(card.Find(CKO_CERTIFICATE, kRsaId), 0u);
  EXPECT_EQ(card.Login("wrong pin"), CKR_PIN_INCORRECT);
  EXPECT_EQ(card.Login(soft_card_.pin()), CKR_OK);
  EXPECT_EQ(card.Login(soft_card_.pin()), CKR_USER_ALREADY_LOGGED_IN);
  EXPECT_NE(card.Find(CKO_PRIVATE_KEY, kRsaId), 0u);
}

TEST_F(SoftHsmTest, FailedSignatureRefusesTheNextOne) {
  const Card& raw = Raw();
  Bytes signature;
  CK_OBJECT_HANDLE key = raw.Find(CKO_PRIVATE_KEY, kRsaId);
  ASSERT_EQ(raw.p11->C_FindObjectsFinal(raw.session), CKR_OK);
  ASSERT_EQ(raw.SignInit(CKM_RSA_PKCS, key), CKR_OK);
  EXPECT_EQ(raw.Sign(Bytes(20, 1), &signature, 10), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(raw.SignInit(CKM_RSA_PKCS, key), CKR_OPERATION_ACTIVE);

  const Card& card = Adapted();
  key = card.Find(CKO_PRIVATE_KEY, kRsaId);
  ASSERT_EQ(card.SignInit(CKM_RSA_PKCS, key), CKR_OK);
  EXPECT_EQ(card.Sign(Bytes(20, 1), &signature, 10), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(card.SignInit(CKM_RSA_PKCS, key), CKR_OK);
  EXPECT_NE(card.Sign(Bytes(1000, 1), &signature), CKR_OK);
  EXPECT_EQ(card.SignInit(CKM_RSA_PKCS, key), CKR_OK);
  EXPECT_EQ(card.Sign(Bytes(20, 1), &signature), CKR_OK);
  EXPECT_EQ(signature.size(), 256u);
}

TEST_F(SoftHsmTest, EmptyAllowedMechanismsAreFilledFromTypeAndSlot) {
  const Card& raw = Raw(false);
  EXPECT_TRUE(Allowed(raw, raw.Find(CKO_PUBLIC_KEY, kRsaId)).empty());

  const Card& card = Adapted(false);
  EXPECT_EQ(Allowed(card, card.Find(CKO_PUBLIC_KEY, kRsaId)),
            (std::vector<CK_MECHANISM_TYPE>{CKM_RSA_X_509, CKM_RSA_PKCS}));
  EXPECT_EQ(Allowed(card, card.Find(CKO_PUBLIC_KEY, kEcId)),
            (std::vector<CK_MECHANISM_TYPE>{CKM_ECDSA, CKM_ECDSA_SHA1, CKM_ECDH1_DERIVE}));
}

TEST_F(SoftHsmTest, EcPublicKeyClaimsToEncryptAndWrap) {
  const Card& raw = Raw(false);
  CK_OBJECT_HANDLE key = raw.Find(CKO_PUBLIC_KEY, kEcId);
  EXPECT_EQ(Flag(raw, key, CKA_ENCRYPT), 1);
  EXPECT_EQ(Flag(raw, key, CKA_WRAP), 1);

  const Card& card = Adapted(false);
  key = card.Find(CKO_PUBLIC_KEY, kEcId);
  EXPECT_EQ(Flag(card, key, CKA_VERIFY), 1);
  EXPECT_EQ(Flag(card, key, CKA_ENCRYPT), 0);
  EXPECT_EQ(Flag(card, key, CKA_WRAP), 0);
  EXPECT_EQ(Flag(card, key, CKA_DERIVE), 1);
  key = card.Find(CKO_PUBLIC_KEY, kRsaId);
  EXPECT_EQ(Flag(card, key, CKA_ENCRYPT), 1);
  EXPECT_EQ(Flag(card, key, CKA_DERIVE), 0);
}

TEST_F(SoftHsmTest, LengthAfterAFailedReadIsMinusOne) {
  const auto length_of_exponent = [](const Card& card) {
    Bytes value(1024);
    CK_ATTRIBUTE attribute = {CKA_PRIVATE_EXPONENT, value.data(), value.size()};
    EXPECT_EQ(card.p11->C_GetAttributeValue(card.session, card.Find(CKO_PRIVATE_KEY, kRsaId),
                                            &attribute, 1),
              CKR_ATTRIBUTE_SENSITIVE);
    return attribute.ulValueLen;
  };
  EXPECT_EQ(length_of_exponent(Raw()), CK_UNAVAILABLE_INFORMATION);
  EXPECT_EQ(length_of_exponent(Adapted()), 0u);
}

TEST_F(SoftHsmTest, EcdsaSignatureIsRaw) {
  const Bytes digest(32, 0x5c);
  const Card& raw = Raw();
  Bytes signature;
  ASSERT_EQ(SignAsTheExtensionDoes(raw, kEcId, CKM_ECDSA, digest, &signature),
            CKR_OPERATION_ACTIVE);
  ASSERT_EQ(raw.p11->C_FindObjectsFinal(raw.session), CKR_OK);
  const CK_OBJECT_HANDLE key = raw.Find(CKO_PRIVATE_KEY, kEcId);
  ASSERT_EQ(raw.p11->C_FindObjectsFinal(raw.session), CKR_OK);
  ASSERT_EQ(raw.SignInit(CKM_ECDSA, key), CKR_OK);
  ASSERT_EQ(raw.Sign(digest, &signature), CKR_OK);
  EXPECT_EQ(signature.size(), 64u);
  ASSERT_EQ(raw.SignInit(CKM_ECDSA_SHA1, key), CKR_MECHANISM_INVALID);

  const Card& card = Adapted();
  const OpensslKey public_key = PublicKey("ec.pub.pem");
  for (int i = 0; i < 50; ++i) {
    for (const std::size_t size : {20u, 32u, 48u, 64u}) {
      Bytes own(size, static_cast<CK_BYTE>(i));
      const auto mechanism = size == 20 ? CKM_ECDSA_SHA1 : CKM_ECDSA;
      ASSERT_EQ(SignAsTheExtensionDoes(card, kEcId, mechanism, own, &signature), CKR_OK);
      EXPECT_TRUE(VerifyEcdsa(public_key.get(), own, signature)) << size;
      own[0] ^= 1;
      EXPECT_FALSE(VerifyEcdsa(public_key.get(), own, signature)) << size;
    }
  }
}

TEST_F(SoftHsmTest, RawRsaWithTooMuchDataEndsTheProcess) {
  const auto sign_too_much = [this] {
    const Card& raw = Raw();
    const CK_OBJECT_HANDLE key = raw.Find(CKO_PRIVATE_KEY, kRsaId);
    raw.p11->C_FindObjectsFinal(raw.session);
    raw.SignInit(CKM_RSA_X_509, key);
    Bytes signature;
    raw.Sign(Bytes(257, 0), &signature);
    _exit(0);
  };
  EXPECT_DEATH(sign_too_much(), "");

  const Card& card = Adapted();
  Bytes signature;
  EXPECT_EQ(SignAsTheExtensionDoes(card, kRsaId, CKM_RSA_X_509, Bytes(257, 0), &signature),
            CKR_DATA_LEN_RANGE);
  for (const std::size_t size : {0u, 51u, 256u}) {
    ASSERT_EQ(SignAsTheExtensionDoes(card, kRsaId, CKM_RSA_X_509, Bytes(size, 1), &signature),
              CKR_OK);
    Bytes expected(256 - size, 0);
    expected.insert(expected.end(), size, 1);
    EXPECT_EQ(RawRsaPublic(PublicKey("rsa.pub.pem").get(), signature), expected);
  }
}

TEST_F(SoftHsmTest, DecryptionGivesTheTextWithAndWithoutPadding) {
  const Card& card = Adapted();
  const Bytes text = {'s', 'e', 'c', 'r', 'e', 't'};
  const OpensslKey key = PublicKey("rsa.pub.pem");
  for (const auto type : {CKM_RSA_PKCS, CKM_RSA_X_509}) {
    Bytes sealed = EncryptPkcs1(key.get(), text);
    CK_MECHANISM mechanism = {type, nullptr, 0};
    ASSERT_EQ(card.p11->C_DecryptInit(card.session, &mechanism, card.Find(CKO_PRIVATE_KEY, kRsaId)),
              CKR_OK);
    Bytes opened(1024);
    CK_ULONG size = opened.size();
    ASSERT_EQ(card.p11->C_Decrypt(card.session, sealed.data(), sealed.size(), opened.data(), &size),
              CKR_OK);
    opened.resize(size);
    ASSERT_GE(opened.size(), text.size());
    EXPECT_EQ(opened.size(), type == CKM_RSA_PKCS ? text.size() : 256u);
    EXPECT_TRUE(std::equal(text.rbegin(), text.rend(), opened.rbegin()));
  }
}

TEST_F(SoftHsmTest, DerivingWithAnEmptyTemplateIsRefused) {
  const OpensslKey other = MakeP256Key();
  const Bytes point = PublicPointOf(other.get());
  CK_OBJECT_HANDLE secret = 0;
  EXPECT_EQ(Derive(Raw(), point, &secret), CKR_ARGUMENTS_BAD);

  const Card& card = Adapted();
  const Bytes expected = SharedSecret(other.get(), PublicKey("ec.pub.pem").get());
  Bytes der = {0x04, 0x41};
  der.insert(der.end(), point.begin(), point.end());
  for (const Bytes& form : {point, der}) {
    ASSERT_EQ(Derive(card, form, &secret), CKR_OK);
    EXPECT_EQ(Value(card, secret), expected);
  }
}

TEST_F(SoftHsmTest, DerivedObjectsDoNotPileUp) {
  const Card& card = Adapted();
  const Bytes point = PublicPointOf(MakeP256Key().get());
  const auto count_secrets = [&card] {
    CK_OBJECT_CLASS secret_key = CKO_SECRET_KEY;
    CK_ATTRIBUTE wanted = {CKA_CLASS, &secret_key, sizeof(secret_key)};
    std::array<CK_OBJECT_HANDLE, 100> found = {};
    CK_ULONG count = 0;
    EXPECT_EQ(card.p11->C_FindObjectsInit(card.session, &wanted, 1), CKR_OK);
    EXPECT_EQ(card.p11->C_FindObjects(card.session, found.data(), found.size(), &count), CKR_OK);
    return count;
  };
  EXPECT_EQ(count_secrets(), 0u);
  for (int i = 0; i < 20; ++i) {
    CK_OBJECT_HANDLE secret = 0;
    ASSERT_EQ(Derive(card, point, &secret), CKR_OK);
    EXPECT_EQ(Value(card, secret).size(), 32u);
    EXPECT_EQ(count_secrets(), 1u);
  }
}

TEST_F(SoftHsmTest, LogoutAndLoginReachTheWorker) {
  const Card& card = Adapted();
  Bytes signature;
  ASSERT_EQ(SignAsTheExtensionDoes(card, kRsaId, CKM_RSA_PKCS, Bytes(20, 1), &signature), CKR_OK);
  const CK_OBJECT_HANDLE key = card.Find(CKO_PRIVATE_KEY, kRsaId);
  ASSERT_EQ(card.p11->C_Logout(card.session), CKR_OK);
  EXPECT_NE(card.SignInit(CKM_RSA_PKCS, key), CKR_OK);
  ASSERT_EQ(card.Login(soft_card_.pin()), CKR_OK);
  EXPECT_EQ(SignAsTheExtensionDoes(card, kRsaId, CKM_RSA_PKCS, Bytes(20, 1), &signature), CKR_OK);
}

TEST_F(SoftHsmTest, ClosingTheCallersLastSessionLogsOut) {
  Card& card = Adapted();
  Bytes signature;
  ASSERT_EQ(SignAsTheExtensionDoes(card, kRsaId, CKM_RSA_PKCS, Bytes(20, 1), &signature), CKR_OK);
  ASSERT_EQ(card.p11->C_CloseSession(card.session), CKR_OK);
  card.OpenSession();
  CK_SESSION_INFO info = {};
  ASSERT_EQ(card.p11->C_GetSessionInfo(card.session, &info), CKR_OK);
  EXPECT_EQ(info.state, CKS_RW_PUBLIC_SESSION);
}

}  // namespace
}  // namespace kelvrin::adapter
