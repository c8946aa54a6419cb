// Key agreement through the access layer, which the extension's support check does not offer.
#include "p11/bringup.h"
#include "p11/loader.h"
#include "p11/lookup.h"
#include "p11/operations.h"
#include "tests/matrix/road_fixture.h"

namespace matrix {
namespace {

using host::Bytes;
using host::testing::OpensslKey;

class MatrixKeyAgreement : public AnyModule {
 protected:
  void SetUp() override {
    ASSERT_EQ(
        init(bundle_.Adapter().c_str(), &handle_, &p11_, &slot_, &session_, KELVRIN_READER_NAME),
        CKR_OK);
    std::string pin = module_->Pin();
    ASSERT_EQ(p11_->C_Login(session_, CKU_USER, reinterpret_cast<CK_BYTE*>(pin.data()), pin.size()),
              CKR_OK);
  }
  void TearDown() override {
    if (p11_ != nullptr) p11_->C_Finalize(nullptr);
    if (handle_ != nullptr) C_UnloadModule(handle_);
  }

  // The private key that belongs to a certificate.
  CK_OBJECT_HANDLE PrivateKey(const std::string& name) const {
    Bytes value = Certificate(name);
    CK_OBJECT_CLASS certificate_class = CKO_CERTIFICATE;
    CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &certificate_class, sizeof(certificate_class)},
                             {CKA_VALUE, value.data(), value.size()}};
    CK_OBJECT_HANDLE certificate = CK_INVALID_HANDLE;
    CK_ULONG count = 0;
    EXPECT_EQ(p11_->C_FindObjectsInit(session_, wanted, 2), CKR_OK);
    EXPECT_EQ(p11_->C_FindObjects(session_, &certificate, 1, &count), CKR_OK);
    EXPECT_EQ(count, 1U);
    CertInfo info = {};
    EXPECT_EQ(get_cert_info(p11_, session_, certificate, &info), CKR_OK);
    CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
    EXPECT_EQ(get_priv_key(p11_, session_, info.id, info.id_len, &key), CKR_OK);
    return key;
  }

  Bytes Agree(CK_OBJECT_HANDLE key, const Bytes& point) const {
    Bytes secret(kResultSize);
    CK_ULONG size = 0;
    EXPECT_EQ(derive_key(p11_, session_, key, CKM_ECDH1_DERIVE, point.data(), point.size(),
                         secret.data(), &size),
              CKR_OK);
    secret.resize(size);
    return secret;
  }

  void* handle_ = nullptr;
  CK_FUNCTION_LIST* p11_ = nullptr;
  CK_SLOT_ID slot_ = 0;
  CK_SESSION_HANDLE session_ = CK_INVALID_HANDLE;
};
INSTANTIATE_TEST_SUITE_P(Matrix, MatrixKeyAgreement, testing::ValuesIn(kRows), RowName);

TEST_P(MatrixKeyAgreement, GivesTheSecretThatTheOtherSideHas) {
  const CK_OBJECT_HANDLE key = PrivateKey("ec");
  const Bytes own_point = PublicKey("ec").facts().public_key;
  for (int round = 0; round < 20; ++round) {
    const OpensslKey other = OpensslKey::EllipticCurve();
    EXPECT_EQ(Agree(key, other.facts().public_key), other.Agree(own_point));
  }
}

TEST_P(MatrixKeyAgreement, LeavesOneSecretBehindAtMost) {
  const CK_OBJECT_HANDLE key = PrivateKey("ec");
  const Bytes point = OpensslKey::EllipticCurve().facts().public_key;
  for (int round = 0; round < 5; ++round) EXPECT_EQ(Agree(key, point).size(), 32U);
  CK_OBJECT_CLASS secret_class = CKO_SECRET_KEY;
  CK_ATTRIBUTE wanted = {CKA_CLASS, &secret_class, sizeof(secret_class)};
  CK_OBJECT_HANDLE found[10] = {};
  CK_ULONG count = 0;
  EXPECT_EQ(p11_->C_FindObjectsInit(session_, &wanted, 1), CKR_OK);
  EXPECT_EQ(p11_->C_FindObjects(session_, found, 10, &count), CKR_OK);
  EXPECT_LE(count, 1U);
}

TEST_P(MatrixKeyAgreement, RefusesAPointThatIsNotOnTheCurve) {
  const CK_OBJECT_HANDLE key = PrivateKey("ec");
  Bytes point = OpensslKey::EllipticCurve().facts().public_key;
  point.back() ^= 1;
  CK_OBJECT_HANDLE secret = CK_INVALID_HANDLE;
  CK_ECDH1_DERIVE_PARAMS parameters = {CKD_NULL, 0, nullptr, point.size(), point.data()};
  CK_MECHANISM mechanism = {CKM_ECDH1_DERIVE, &parameters, sizeof(parameters)};
  EXPECT_NE(p11_->C_DeriveKey(session_, &mechanism, key, nullptr, 0, &secret), CKR_OK);
  const OpensslKey other = OpensslKey::EllipticCurve();
  EXPECT_EQ(Agree(key, other.facts().public_key), other.Agree(PublicKey("ec").facts().public_key));
}

}  // namespace
}  // namespace matrix
