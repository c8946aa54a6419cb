#include "adapter/certificate_choice.h"

#include <gtest/gtest.h>

#include "encoding/testing/certificates.h"
#include "adapter/testing/fake_module.h"

namespace kelvrin::adapter {
namespace {

constexpr CK_ATTRIBUTE_TYPE kCategory = 0x87;
const std::pair<std::string, std::string> kIsCa = {"basicConstraints", "CA:TRUE"};

class CertificateChoiceTest : public testing::Test {
 protected:
  CK_OBJECT_HANDLE Add(CK_BYTE id, const Bytes& der) {
    const auto handle = fake_.Add(
        {{CKA_CLASS, FakeModule::Number(CKO_CERTIFICATE)}, {CKA_ID, {id}}, {CKA_VALUE, der}});
    found_.push_back(handle);
    return handle;
  }
  // One that is too simple to be read.
  CK_OBJECT_HANDLE Add(CK_BYTE id) { return Add(id, Bytes{1, 2, 3}); }
  Handles Arrange() { return ArrangeCertificates(functions_, 1, rules_, keys_, found_); }

  FakeModule fake_;
  CK_FUNCTION_LIST functions_ = FakeModule::functions();
  Rules rules_ = Rules::Extension();
  KeysSeen keys_;
  Handles found_;
};

TEST_F(CertificateChoiceTest, NoCertificatesAreNone) { EXPECT_TRUE(Arrange().empty()); }

TEST_F(CertificateChoiceTest, OversizeCertificatesAreHidden) {
  keys_.ids = {{1}, {2}, {3}};
  Add(1, Bytes(4097, 1));
  const auto longest = Add(2, Bytes(4096, 1));
  Add(3, Bytes(100000, 1));
  EXPECT_EQ(Arrange(), Handles{longest});
  rules_.SwitchOff(Rule::kOversizeCertificates);
  EXPECT_EQ(Arrange(), found_);
}

TEST_F(CertificateChoiceTest, LengthThatTheModuleDoesNotTellIsNoReasonToHide) {
  keys_.ids = {{1}};
  Add(1);
  fake_.objects[found_[0]].erase(CKA_VALUE);
  EXPECT_EQ(Arrange(), found_);
}

TEST_F(CertificateChoiceTest, CertificatesWithAKeyComeFirstInTheModulesOrder) {
  keys_.ids = {{2}, {4}};
  const auto first = Add(1);
  const auto second = Add(2);
  const auto third = Add(3);
  const auto fourth = Add(4);
  EXPECT_EQ(Arrange(), (Handles{second, fourth, first, third}));
  rules_.SwitchOff(Rule::kKeyedCertificatesFirst);
  EXPECT_EQ(Arrange(), found_);
}

TEST_F(CertificateChoiceTest, WhereEveryKeyIsSeenOnlyCertificatesThatHaveOneAreShown) {
  keys_.ids = {{2}};
  keys_.all = true;
  const auto without = Add(1);
  const auto with = Add(2);
  EXPECT_EQ(Arrange(), Handles{with});
  rules_.SwitchOff(Rule::kKeylessCertificates);
  EXPECT_EQ(Arrange(), (Handles{with, without}));
}

TEST_F(CertificateChoiceTest, WhereKeysAreHiddenACertificateWithoutOneIsShown) {
  Add(1);
  Add(2, MakeCertificate({}));
  EXPECT_EQ(Arrange(), found_);
}

TEST_F(CertificateChoiceTest, CertificateWithoutIdHasNoKey) {
  const auto nameless = Add(1);
  fake_.objects[nameless][CKA_ID] = {};
  const auto idless = Add(2);
  fake_.objects[idless].erase(CKA_ID);
  EXPECT_TRUE(Arrange().empty());
}

TEST_F(CertificateChoiceTest, AuthoritiesAndOtherPeoplesByCategoryHaveNoKey) {
  for (CK_BYTE category = 0; category < 4; ++category) {
    fake_.objects[Add(category + 1)][kCategory] = FakeModule::Number(category);
  }
  EXPECT_EQ(Arrange(), (Handles{found_[0], found_[1]}));
  keys_.ids = {{3}, {4}};
  EXPECT_EQ(Arrange().size(), 4u) << "a key that is seen tells more";
}

TEST_F(CertificateChoiceTest, CaThatSignsOnlyCertificatesHasNoKey) {
  Add(1, MakeCertificate({.extensions = {kIsCa, {"keyUsage", "keyCertSign,cRLSign"}}}));
  const auto both = Add(
      2, MakeCertificate({.extensions = {kIsCa, {"keyUsage", "keyCertSign,digitalSignature"}}}));
  EXPECT_EQ(Arrange(), Handles{both});
}

TEST_F(CertificateChoiceTest, CaThatIssuedAnotherCertificateOnTheTokenHasNoKey) {
  Add(1, MakeCertificate({.subject = "Root", .issuer = "Root", .extensions = {kIsCa}}));
  const auto person = Add(2, MakeCertificate({.subject = "Person", .issuer = "Root"}));
  EXPECT_EQ(Arrange(), Handles{person});
  keys_.ids = {{2}};
  EXPECT_EQ(Arrange(), Handles{person}) << "also when the issued one was not to be read";
}

TEST_F(CertificateChoiceTest, SelfSignedCertificatesOfPeopleAreShownThoughTheyCallThemselvesCas) {
  Add(1, MakeCertificate({.subject = "Me", .issuer = "Me", .extensions = {kIsCa}}));
  Add(2, MakeCertificate({.subject = "Me", .issuer = "Me", .extensions = {kIsCa}}));
  Add(3, MakeCertificate({.subject = "Other", .issuer = "Other", .extensions = {kIsCa}}));
  EXPECT_EQ(Arrange(), found_);
}

}  // namespace
}  // namespace kelvrin::adapter
