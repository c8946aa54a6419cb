#include "adapter/objects/certificate_choice.h"

#include "adapter/testing/card_fixture.h"
#include "encoding/testing/certificates.h"
#include "tests/module/test_keys.h"

namespace kelvrin::adapter {
namespace {

constexpr CK_ATTRIBUTE_TYPE kCategory = 0x87;
const std::pair<std::string, std::string> kIsCa = {"basicConstraints", "CA:TRUE"};

class CertificateChoiceTest : public CardTest {
 protected:
  CK_OBJECT_HANDLE AddCertificate(CK_BYTE id, const Bytes& der) {
    const CK_OBJECT_HANDLE handle = Add(CKO_CERTIFICATE, {id}, {{CKA_VALUE, der}});
    found_.push_back(handle);
    return handle;
  }
  CK_OBJECT_HANDLE AddCertificate(CK_BYTE id, const encoding::CertificateWish& options) {
    return AddCertificate(id, encoding::MakeCertificateOf(TestEcKey().get(), options));
  }
  // One that is too simple to be read.
  CK_OBJECT_HANDLE AddCertificate(CK_BYTE id) { return AddCertificate(id, Bytes{1, 2, 3}); }
  Handles Arrange() { return ArrangeCertificates(inner_, session_, rules_, keys_, found_); }

  std::set<Bytes> keys_;
  Handles found_;
};

TEST_F(CertificateChoiceTest, OversizeCertificatesAreHidden) {
  keys_ = {{1}, {2}, {3}};
  AddCertificate(1, Bytes(4097, 1));
  const auto longest = AddCertificate(2, Bytes(4096, 1));
  AddCertificate(3, Bytes(100000, 1));
  EXPECT_EQ(Arrange(), Handles{longest});
  rules_.SwitchOff(Rule::kOversizeCertificates);
  EXPECT_EQ(Arrange(), found_);
}

TEST_F(CertificateChoiceTest, CertificatesWithAKeyComeFirstInTheModulesOrder) {
  keys_ = {{2}, {4}};
  for (CK_BYTE id = 1; id <= 4; ++id) AddCertificate(id);
  EXPECT_EQ(Arrange(), (Handles{found_[1], found_[3], found_[0], found_[2]}));
  rules_.SwitchOff(Rule::kKeyedCertificatesFirst);
  EXPECT_EQ(Arrange(), found_);
}

// Its key may need the login to be seen.
TEST_F(CertificateChoiceTest, CertificateWhoseKeyIsNotSeenIsShownUnlessItIsAnAuthoritys) {
  AddCertificate(1);
  AddCertificate(2, encoding::CertificateWish());
  Erase(AddCertificate(3), CKA_ID);
  Erase(AddCertificate(4), CKA_VALUE);
  EXPECT_EQ(Arrange(), found_);
}

TEST_F(CertificateChoiceTest, AuthoritiesByCategoryAreHidden) {
  for (CK_BYTE category = 0; category < 4; ++category) {
    Attribute(AddCertificate(category), kCategory) = MemoryObject::Number(category);
  }
  EXPECT_EQ(Arrange(), (Handles{found_[0], found_[1], found_[3]}));
  keys_ = {{2}};
  EXPECT_EQ(Arrange(), (Handles{found_[2], found_[0], found_[1], found_[3]}))
      << "a key that is seen tells more";
  keys_.clear();
  rules_.SwitchOff(Rule::kKeylessCertificates);
  EXPECT_EQ(Arrange(), found_);
}

TEST_F(CertificateChoiceTest, CaThatSignsNothingButCertificatesIsHidden) {
  AddCertificate(1, {.extensions = {kIsCa, {"keyUsage", "keyCertSign,cRLSign"}}});
  const auto both =
      AddCertificate(2, {.extensions = {kIsCa, {"keyUsage", "keyCertSign,digitalSignature"}}});
  const auto no_ca = AddCertificate(3, {.extensions = {{"keyUsage", "keyCertSign"}}});
  EXPECT_EQ(Arrange(), (Handles{both, no_ca}));
}

TEST_F(CertificateChoiceTest, CaThatIssuedAnotherCertificateOnTheTokenIsHidden) {
  AddCertificate(1, {.subject = "Root", .issuer = "Root", .extensions = {kIsCa}});
  const auto person = AddCertificate(2, {.subject = "Person", .issuer = "Root"});
  AddCertificate(3);
  EXPECT_EQ(Arrange(), (Handles{person, found_[2]}));
  keys_ = {{2}};
  EXPECT_EQ(Arrange(), (Handles{person, found_[2]}));
}

TEST_F(CertificateChoiceTest, CertificatesOfPeopleAreShownThoughTheyLookLikeAuthorities) {
  AddCertificate(1, {.subject = "Me", .issuer = "Me", .extensions = {kIsCa}});
  AddCertificate(2, {.subject = "Me", .issuer = "Me", .extensions = {kIsCa}});
  AddCertificate(3, {.subject = "Other", .issuer = "Other", .extensions = {kIsCa}});
  // An issuer is an authority only where it is a CA.
  AddCertificate(4, {.subject = "Root", .issuer = "Root"});
  AddCertificate(5, {.subject = "Person", .issuer = "Root"});
  EXPECT_EQ(Arrange(), found_);
}

}  // namespace
}  // namespace kelvrin::adapter
