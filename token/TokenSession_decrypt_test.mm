// Decrypting: calls, log and what must not be in it.
#include "token/testing/card_request.h"

namespace token_testing {
namespace {

using scripted::Function;
using testing::ElementsAre;
using testing::SizeIs;

const char kFindKey[] = "C_FindObjectsInit(7, {0x0=0300000000000000, 0x102=01})";

class DecryptTest : public CardRequestTest {
 protected:
  DecryptTest() : CardRequestTest(kDecrypt) {
    algorithm_ = Algorithm(kSecKeyAlgorithmRSAEncryptionRaw);
    Answer(scripted::ToBytes("plain"));
  }
};

TEST_F(DecryptTest, AFailureOfTheCardEndsTheLogWithItsResult) {
  lindel().Return(Function::C_Decrypt, CKR_ENCRYPTED_DATA_INVALID);
  Timeline timeline(lindel());
  EXPECT_EQ(Run(), nil);
  EXPECT_THAT(
      timeline.Take(),
      ElementsAre("default: Entschlüsseln...", "default: ciphertext len 3",
                  "C_GetSessionInfo(7, out)", kFindKey, "C_FindObjects(7, room[10], 10)",
                  "C_DecryptInit(7, {0x3}, 13)", "C_Decrypt(7, <616263>, room[1024])",
                  "error: PKCS11 function C_Decrypt failed: rv = CKR_ENCRYPTED_DATA_INVALID (0x40)",
                  "error: PKCS11 function decrypt failed: rv = CKR_ENCRYPTED_DATA_INVALID (0x40)"));
  EXPECT_EQ(Text(error_), CardFailure());
}

TEST_F(DecryptTest, APlaintextTakesFiveCallsAndThreeLines) {
  Timeline timeline(lindel());
  EXPECT_EQ(BytesOf(Run()), scripted::ToBytes("plain"));
  EXPECT_THAT(timeline.Take(),
              ElementsAre("default: Entschlüsseln...", "default: ciphertext len 3",
                          "C_GetSessionInfo(7, out)", kFindKey, "C_FindObjects(7, room[10], 10)",
                          "C_DecryptInit(7, {0x3}, 13)", "C_Decrypt(7, <616263>, room[1024])",
                          "default: Entschlüsselung war erfolgreich."));
  EXPECT_EQ(error_, untouched_);
  EXPECT_THAT(Formats(), ElementsAre("Entschlüsseln...", "ciphertext len %d",
                                     "Entschlüsselung war erfolgreich."));
}

TEST_F(DecryptTest, NeitherAlgorithmNorMechanismIsNamed) {
  ReplacedP11 replaced;
  replaced.before_mech_to_str = [](const char *) { ADD_FAILURE() << "a mechanism was named"; };
  AskedAlgorithm *algorithm = Asked(kSecKeyAlgorithmRSAEncryptionPKCS1);
  algorithm_ = algorithm;
  EXPECT_NE(Run(), nil);
  EXPECT_THAT([algorithm asked], SizeIs(3)) << "get_mechanism alone";
  EXPECT_EQ(lindel().At(Function::C_DecryptInit).Text(), "C_DecryptInit(7, {0x1}, 13)");
  EXPECT_FALSE(LogContains("CKM_"));
  EXPECT_FALSE(LogContains("kSecKeyAlgorithm"));
}

}  // namespace
}  // namespace token_testing
