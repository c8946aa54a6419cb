// Decrypting: calls, log and what must not be in it.
#include "token/testing/card_request.h"

namespace token_testing {
namespace {

using scripted::Bytes;
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
  EXPECT_EQ(Text(error_), "TKErrorDomain -3 {NSLocalizedDescription: Fehler beim Entschlüsseln.}");
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

TEST_F(DecryptTest, NeitherCiphertextNorPlaintextReachesTheLog) {
  data_ = Data(scripted::ToBytes("chiffrat"));
  Answer(scripted::ToBytes("geheimnis"));
  EXPECT_NE(Run(), nil);
  lindel().Return(Function::C_Decrypt, CKR_DEVICE_ERROR, scripted::Effect::kPerform);
  EXPECT_EQ(Run(), nil);
  for (const char *secret : {"chiffrat", "geheimnis", "6368696666726174", "67656865696d6e6973"}) {
    EXPECT_FALSE(LogContains(secret)) << secret;
  }
}

TEST_F(DecryptTest, NoHexTextIsMade) {
  CountingSession *session = Session([CountingSession class]);
  session_ = session;
  EXPECT_NE(Run(), nil);
  EXPECT_EQ([session hexTexts], 0u);
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

TEST_F(DecryptTest, EmptyCiphertextGoesToTheCard) {
  data_ = [NSData data];
  EXPECT_NE(Run(), nil);
  EXPECT_EQ(Log().at(1), "default: ciphertext len 0");
  EXPECT_EQ(lindel().At(Function::C_Decrypt).arguments[1].number, 0u);
}

TEST_F(DecryptTest, CiphertextOfAnyLengthGoesToTheCardUnchanged) {
  const Bytes ciphertext(3000, 0x5C);
  data_ = Data(ciphertext);
  Run();
  EXPECT_EQ(lindel().At(Function::C_Decrypt).arguments[1].bytes, ciphertext);
}

TEST_F(DecryptTest, APlaintextOfMoreThan1024BytesFails) {
  Answer(Bytes(1025, 1));
  EXPECT_EQ(Run(), nil);
  EXPECT_EQ(Text(error_), "TKErrorDomain -3 {NSLocalizedDescription: Fehler beim Entschlüsseln.}");
  EXPECT_EQ(Log().back(),
            "error: PKCS11 function decrypt failed: rv = CKR_BUFFER_TOO_SMALL (0x150)");
}

TEST_F(DecryptTest, AModuleThatClaimsMoreThanTheRoomGetsTheRoom) {
  for (CK_ULONG claim : {CK_ULONG{1025}, CK_ULONG{0x100000000}, ~CK_ULONG{0}}) {
    card().plaintext = {Bytes(1024, 5), claim};
    EXPECT_EQ(BytesOf(Run()), Bytes(1024, 5));
  }
}

}  // namespace
}  // namespace token_testing
