// Keys that a standard caller derives are its own: each stays until it is destroyed.
#include <openssl/evp.h>
#include <p11-kit/pkcs11.h>

#include "adapter/testing/loaded_library.h"
#include "tests/matrix/standard_fixture.h"

namespace matrix {
namespace {

using host::Bytes;
using host::testing::OpensslKey;

// AES-ECB of one block by OpenSSL.
Bytes EncryptBlock(const Bytes& key, const Bytes& block) {
  const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(
      EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
  Bytes result(32);
  int size = 0;
  EXPECT_EQ(EVP_EncryptInit_ex(context.get(), EVP_aes_256_ecb(), nullptr, key.data(), nullptr), 1);
  EXPECT_EQ(EVP_EncryptUpdate(context.get(), result.data(), &size, block.data(), 16), 1);
  result.resize(static_cast<std::size_t>(size));
  return result;
}

// The two worlds by name, and their function lists.
class DerivedKeys : public StandardProfile, public testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    const World& world = GetParam() ? with_ : without_;
    setenv("SOFTHSM2_CONF", world.configuration().c_str(), 1);
    p11_ = kelvrin::adapter::LoadLibrary(world.module());
    ASSERT_EQ(p11_->C_Initialize(nullptr), CKR_OK);
    CK_SLOT_ID slots[8] = {};
    CK_ULONG count = 8;
    ASSERT_EQ(p11_->C_GetSlotList(CK_TRUE, slots, &count), CKR_OK);
    ASSERT_EQ(p11_->C_OpenSession(slots[0], CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr,
                                  &session_),
              CKR_OK);
    std::string pin = card_.pin();
    ASSERT_EQ(p11_->C_Login(session_, CKU_USER, reinterpret_cast<CK_BYTE*>(pin.data()), pin.size()),
              CKR_OK);
    FindKey();
  }
  void TearDown() override {
    if (p11_ != nullptr) p11_->C_Finalize(nullptr);
  }

  // Derives an AES key that signs nothing and is never shown.
  CK_OBJECT_HANDLE Derive(const OpensslKey& other) const {
    Bytes point = other.facts().public_key;
    CK_ECDH1_DERIVE_PARAMS parameters = {CKD_NULL, 0, nullptr, point.size(), point.data()};
    CK_MECHANISM mechanism = {CKM_ECDH1_DERIVE, &parameters, sizeof(parameters)};
    CK_OBJECT_CLASS secret_class = CKO_SECRET_KEY;
    CK_KEY_TYPE aes = CKK_AES;
    CK_ULONG size = 32;
    CK_BBOOL yes = CK_TRUE;
    CK_BBOOL no = CK_FALSE;
    CK_ATTRIBUTE wanted[] = {
        {CKA_CLASS, &secret_class, sizeof(secret_class)},
        {CKA_KEY_TYPE, &aes, sizeof(aes)},
        {CKA_VALUE_LEN, &size, sizeof(size)},
        {CKA_ENCRYPT, &yes, sizeof(yes)},
        {CKA_SENSITIVE, &yes, sizeof(yes)},
        {CKA_EXTRACTABLE, &no, sizeof(no)},
        {CKA_TOKEN, &no, sizeof(no)},
    };
    CK_OBJECT_HANDLE secret = CK_INVALID_HANDLE;
    EXPECT_EQ(p11_->C_DeriveKey(session_, &mechanism, key_, wanted, std::size(wanted), &secret),
              CKR_OK);
    return secret;
  }

  Bytes Encrypt(CK_OBJECT_HANDLE secret, Bytes block) const {
    CK_MECHANISM mechanism = {CKM_AES_ECB, nullptr, 0};
    EXPECT_EQ(p11_->C_EncryptInit(session_, &mechanism, secret), CKR_OK);
    Bytes result(32);
    CK_ULONG size = result.size();
    EXPECT_EQ(p11_->C_Encrypt(session_, block.data(), block.size(), result.data(), &size), CKR_OK);
    result.resize(size);
    return result;
  }

  CK_FUNCTION_LIST* p11_ = nullptr;
  CK_SESSION_HANDLE session_ = CK_INVALID_HANDLE;
  CK_OBJECT_HANDLE key_ = CK_INVALID_HANDLE;

 private:
  void FindKey() {
    CK_OBJECT_CLASS private_key = CKO_PRIVATE_KEY;
    CK_BYTE id = 2;
    CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &private_key, sizeof(private_key)},
                             {CKA_ID, &id, sizeof(id)}};
    CK_ULONG count = 0;
    ASSERT_EQ(p11_->C_FindObjectsInit(session_, wanted, 2), CKR_OK);
    ASSERT_EQ(p11_->C_FindObjects(session_, &key_, 1, &count), CKR_OK);
    ASSERT_EQ(p11_->C_FindObjectsFinal(session_), CKR_OK);
    ASSERT_EQ(count, 1U);
  }
};
INSTANTIATE_TEST_SUITE_P(Matrix, DerivedKeys, testing::Bool(), [](const auto& with) {
  return std::string(with.param ? "WithTheAdapter" : "WithoutTheAdapter");
});

TEST_P(DerivedKeys, WorkSideBySide) {
  const OpensslKey first = OpensslKey::elliptic_curve();
  const OpensslKey second = OpensslKey::elliptic_curve();
  const Bytes own_point = PublicKey("ec").facts().public_key;
  const CK_OBJECT_HANDLE first_secret = Derive(first);
  const CK_OBJECT_HANDLE second_secret = Derive(second);
  EXPECT_NE(first_secret, second_secret);
  const Bytes block(16, 0x42);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(Encrypt(first_secret, block), EncryptBlock(first.agree(own_point), block));
    EXPECT_EQ(Encrypt(second_secret, block), EncryptBlock(second.agree(own_point), block));
  }
}

TEST_P(DerivedKeys, AreGoneWhenTheCallerDestroysThem) {
  const OpensslKey other = OpensslKey::elliptic_curve();
  const CK_OBJECT_HANDLE destroyed = Derive(other);
  const CK_OBJECT_HANDLE kept = Derive(other);
  EXPECT_EQ(p11_->C_DestroyObject(session_, destroyed), CKR_OK);
  CK_MECHANISM mechanism = {CKM_AES_ECB, nullptr, 0};
  EXPECT_NE(p11_->C_EncryptInit(session_, &mechanism, destroyed), CKR_OK);
  const Bytes block(16, 0x42);
  EXPECT_EQ(Encrypt(kept, block),
            EncryptBlock(other.agree(PublicKey("ec").facts().public_key), block));
}

TEST_P(DerivedKeys, AreNotShown) {
  const CK_OBJECT_HANDLE secret = Derive(OpensslKey::elliptic_curve());
  Bytes value(64);
  CK_ATTRIBUTE attribute = {CKA_VALUE, value.data(), value.size()};
  EXPECT_EQ(p11_->C_GetAttributeValue(session_, secret, &attribute, 1), CKR_ATTRIBUTE_SENSITIVE);
  EXPECT_EQ(attribute.ulValueLen, CK_UNAVAILABLE_INFORMATION);
}

}  // namespace
}  // namespace matrix
