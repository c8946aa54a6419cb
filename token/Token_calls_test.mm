// How many calls a set-up makes.
#include <gtest/gtest.h>

#include <algorithm>

#import "token/Token.h"
#include "token/testing/test_certificates.h"
#include "token/testing/token_fixture.h"

namespace {

struct Size {
  int slots;
  int match;  // which slot has the reader's name, 1 being the first; 0: none
  int certificates;
};

class SetUpCallsTest : public testing::TestWithParam<Size>,
                       protected token_testing::TokenFixture {};

TEST_P(SetUpCallsTest, GrowWithTheSlotsSearchedAndTheCertificatesRead) {
  const auto [slots, match, certificates] = GetParam();
  lindel().Reset();
  for (int slot = 1; slot <= slots; ++slot) {
    card().AddSlot(static_cast<CK_SLOT_ID>(slot),
                   slot == match ? token_testing::kReaderName : "Other", "1");
  }
  for (int i = 1; i <= certificates; ++i) {
    const scripted::Bytes id = {static_cast<CK_BYTE>(i)};
    card().AddCertificate(
        id, "c", token_testing::CertificateDer(token_testing::KeyKind::kEllipticCurve, "Subject"));
    card().AddPublicKey(id);
  }
  Token *token = MakeToken();
  const int searched = match == 0 ? slots : match;
  const int read = std::min(certificates, 20);
  // C_GetFunctionList, C_Initialize, C_GetSlotList twice, C_OpenSession, C_GetTokenInfo, and the
  // certificate search: C_FindObjectsInit, C_FindObjects.
  EXPECT_EQ(lindel().calls().size(), static_cast<size_t>(8 + searched + 8 * read));
  EXPECT_EQ([[[token keychainContents] items] count], static_cast<NSUInteger>(2 * read));
  EXPECT_EQ([token slotID], static_cast<CK_SLOT_ID>(searched));
  EXPECT_EQ(lindel().Count(scripted::Function::C_FindObjectsFinal), 0u);
}

INSTANTIATE_TEST_SUITE_P(Sizes, SetUpCallsTest,
                         testing::Values(Size{1, 1, 0}, Size{1, 0, 1}, Size{2, 1, 3}, Size{2, 2, 3},
                                         Size{5, 3, 19}, Size{5, 0, 20}, Size{16, 16, 25}));

}  // namespace
