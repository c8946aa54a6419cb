// ECDSA through a key operation: digests in, DER out.
#include <openssl/evp.h>

#include <cstddef>
#include <memory>

#include "adapter/operations/testing/key_operation_fixture.h"
#include "encoding/ecdsa_signature.h"

namespace kelvrin::adapter {
namespace {

class EcdsaOperationTest : public KeyOperationTest {
 protected:
  bool Verifies(const Bytes& digest) const {
    const std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context(
        EVP_PKEY_CTX_new(card_.KeyOf(ec_), nullptr), EVP_PKEY_CTX_free);
    return EVP_PKEY_verify_init(context.get()) == 1 &&
           EVP_PKEY_verify(context.get(), output_.data(), output_.size(), digest.data(),
                           digest.size()) == 1;
  }
  // Neither the key nor the module tells the curve's size.
  void Hide() {
    Erase(ec_, CKA_EC_PARAMS);
    faults::Chain<&MemoryEntries::C_Sign>(
        module,
        [](auto next, CK_SESSION_HANDLE session, CK_BYTE* input, CK_ULONG size, CK_BYTE* output,
           CK_ULONG* output_size) -> CK_RV {
          if (output == nullptr) return CKR_FUNCTION_FAILED;
          return next(session, input, size, output, output_size);
        });
  }
};

TEST_F(EcdsaOperationTest, SignatureOfAnotherSizeIsAFailure) {
  for (const std::size_t size : {0u, 1u, 32u, 63u, 66u}) {
    answer_ = Bytes(size, 1);
    EXPECT_EQ(Perform(kSign, CKM_ECDSA, ec_, Bytes(32, 1)), CKR_DEVICE_ERROR);
  }
}

TEST_F(EcdsaOperationTest, SignatureBecomesDer) {
  answer_ = Bytes(64, 0);
  (*answer_)[31] = 0x81;
  (*answer_)[63] = 0x05;
  for (const auto type : {CKM_ECDSA, CKM_ECDSA_SHA1}) {
    EXPECT_EQ(Perform(kSign, type, ec_, Bytes(32, 1)), CKR_OK);
    EXPECT_EQ(output_, (Bytes{0x30, 0x07, 0x02, 0x02, 0x00, 0x81, 0x02, 0x01, 0x05}));
    EXPECT_EQ(mechanism_, CKM_ECDSA) << "the input is a digest already";
  }
}

TEST_F(EcdsaOperationTest, SignatureThatIsDerAlreadyStays) {
  faults::DerSignatures(module);
  EXPECT_EQ(Perform(kSign, CKM_ECDSA, ec_, Bytes(32, 1)), CKR_OK);
  EXPECT_TRUE(Verifies(Bytes(32, 1)));
}

TEST_F(EcdsaOperationTest, DigestIsCutToTheCurvesSize) {
  Bytes digest(64);
  for (std::size_t i = 0; i < digest.size(); ++i) digest[i] = static_cast<CK_BYTE>(i);
  const Bytes cut(digest.begin(), digest.begin() + 32);
  for (const auto type : {CKM_ECDSA, CKM_ECDSA_SHA1}) {
    EXPECT_EQ(Perform(kSign, type, ec_, digest), CKR_OK);
    EXPECT_EQ(input_, cut);
    EXPECT_TRUE(Verifies(cut));
  }
  EXPECT_EQ(Perform(kSign, CKM_ECDSA, ec_, Bytes(20, 7)), CKR_OK);
  EXPECT_EQ(input_, Bytes(20, 7));
}

TEST_F(EcdsaOperationTest, CurveSizeIsAskedForWhenTheKeyHidesIt) {
  Erase(ec_, CKA_EC_PARAMS);
  answer_ = Bytes(96, 1);
  EXPECT_EQ(Perform(kSign, CKM_ECDSA, ec_, Bytes(64, 7)), CKR_OK);
  EXPECT_EQ(input_.size(), 48u);
  EXPECT_EQ(output_, encoding::EcdsaSignatureToDer(*answer_));
}

TEST_F(EcdsaOperationTest, WithoutACurveSizeTheFormTellsWhatASignatureIs) {
  Hide();
  const Bytes der = encoding::EcdsaSignatureToDer(Bytes(64, 0x42));
  struct Row {
    Bytes answer;
    std::optional<Bytes> result;
  };
  for (const Row& row :
       {Row{der, der}, Row{Bytes(64, 0x42), der}, Row{Bytes(63, 1), std::nullopt},
        Row{Bytes(), std::nullopt}, Row{Bytes(2, 1), encoding::EcdsaSignatureToDer(Bytes(2, 1))}}) {
    answer_ = row.answer;
    EXPECT_EQ(Perform(kSign, CKM_ECDSA, ec_, Bytes(64, 1)), row.result ? CKR_OK : CKR_DEVICE_ERROR);
    EXPECT_EQ(input_, Bytes(64, 1)) << "nothing to cut it to";
    if (row.result) EXPECT_EQ(output_, *row.result);
  }
}

TEST_F(EcdsaOperationTest, OtherMechanismsAndWithoutTheRuleAllAreTheModules) {
  card_.mechanisms = {CKM_ECDSA, CKM_ECDSA_SHA1, CKM_ECDSA_SHA256};
  answer_ = Bytes(64, 1);
  EXPECT_EQ(Perform(kSign, CKM_ECDSA_SHA256, ec_, Bytes(100, 7)), CKR_OK);
  EXPECT_EQ(input_, Bytes(100, 7));
  EXPECT_EQ(output_, answer_);
  rules_.SwitchOff(Rule::kEcdsa);
  for (const auto type : {CKM_ECDSA, CKM_ECDSA_SHA1}) {
    EXPECT_EQ(Perform(kSign, type, ec_, Bytes(64, 7)), CKR_OK);
    EXPECT_EQ(mechanism_, type);
    EXPECT_EQ(input_, Bytes(64, 7));
    EXPECT_EQ(output_, answer_);
  }
}

}  // namespace
}  // namespace kelvrin::adapter
