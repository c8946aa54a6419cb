// ECDSA through a key operation: digests in, DER out.
#include "adapter/operations/testing/key_operation_fixture.h"
#include "encoding/ecdsa_signature.h"

namespace kelvrin::adapter {
namespace {

class EcdsaOperationTest : public KeyOperationTest {
 protected:
  void HideCurve() { Erase(ec_, CKA_EC_PARAMS); }
};

TEST_F(EcdsaOperationTest, SignatureBecomesDerOrIsRefused) {
  const Bytes raw(64, 0x42);
  const Bytes der = encoding::EcdsaSignatureToDer(raw);
  struct Row {
    const char* name;
    bool has_curve;
    Bytes answer;
    Bytes result;  // empty: refused
  };
  for (const Row& row :
       {Row{"raw", true, raw, der}, Row{"DER", true, der, der}, Row{"nothing", true, {}, {}},
        Row{"one byte", true, Bytes(1, 1), {}}, Row{"half", true, Bytes(32, 1), {}},
        Row{"short", true, Bytes(63, 1), {}}, Row{"long", true, Bytes(66, 1), {}},
        Row{"raw, no curve", false, raw, der}, Row{"DER, no curve", false, der, der},
        Row{"two bytes, no curve", false, Bytes(2, 1), encoding::EcdsaSignatureToDer(Bytes(2, 1))},
        Row{"uneven, no curve", false, Bytes(63, 1), {}},
        Row{"nothing, no curve", false, {}, {}}}) {
    if (!row.has_curve) {
      HideCurve();
      RefuseQuestions();
    }
    answer_ = row.answer;
    const CK_RV expected = row.result.empty() ? CKR_DEVICE_ERROR : CKR_OK;
    for (const auto type : {CKM_ECDSA, CKM_ECDSA_SHA1}) {
      EXPECT_EQ(Perform(kSign, type, ec_, Bytes(32, 1)), expected) << row.name;
      if (expected == CKR_OK) EXPECT_EQ(output_, row.result) << row.name;
      EXPECT_EQ(mechanism_, CKM_ECDSA) << "the input is a digest already";
    }
  }
}

TEST_F(EcdsaOperationTest, DigestIsCutToTheCurvesSizeIfThatIsKnown) {
  Bytes digest(64);
  for (std::size_t i = 0; i < digest.size(); ++i) digest[i] = static_cast<CK_BYTE>(i);
  for (const auto type : {CKM_ECDSA, CKM_ECDSA_SHA1}) {
    EXPECT_EQ(Perform(kSign, type, ec_, digest), CKR_OK);
    EXPECT_EQ(input_, Bytes(digest.begin(), digest.begin() + 32));
  }
  EXPECT_EQ(Perform(kSign, CKM_ECDSA, ec_, Bytes(20, 7)), CKR_OK);
  EXPECT_EQ(input_, Bytes(20, 7));
  HideCurve();
  answer_ = Bytes(96, 1);
  EXPECT_EQ(Perform(kSign, CKM_ECDSA, ec_, digest), CKR_OK);
  EXPECT_EQ(input_.size(), 48u) << "half of the length that the module was asked for";
  EXPECT_EQ(asked_with_, 20u) << "a digest that no module finds too long";
  RefuseQuestions();
  EXPECT_EQ(Perform(kSign, CKM_ECDSA, ec_, digest), CKR_OK);
  EXPECT_EQ(input_, digest);
}

TEST_F(EcdsaOperationTest, OtherMechanismsAndWithoutTheRuleAllAreTheModules) {
  card_.mechanisms = {CKM_ECDSA, CKM_ECDSA_SHA1, CKM_ECDSA_SHA256};
  answer_ = Bytes(64, 1);
  for (const auto type : {CKM_ECDSA_SHA256, CKM_ECDSA, CKM_ECDSA_SHA1}) {
    if (type != CKM_ECDSA_SHA256) rules_.SwitchOff(Rule::kEcdsa);
    EXPECT_EQ(Perform(kSign, type, ec_, Bytes(64, 7)), CKR_OK);
    EXPECT_EQ(mechanism_, type);
    EXPECT_EQ(input_, Bytes(64, 7)) << type;
    EXPECT_EQ(output_, answer_) << type;
  }
}

}  // namespace
}  // namespace kelvrin::adapter
