// What the keys of a card behind the adapter do, whatever the module.
#include "tests/matrix/road_fixture.h"

namespace matrix {
namespace {

using host::Bytes;
using host::Hash;
using host::testing::BytesOf;
using host::testing::OpensslKey;

class MatrixOperations : public WholeRoad {
 protected:
  // Signs two messages and has OpenSSL verify that each signature is its own message's.
  void ExpectSignatures(const std::string& certificate, const std::string& algorithm, Hash hash,
                        bool pss = false) const {
    const OpensslKey key = PublicKey(certificate);
    const Bytes messages[] = {BytesOf("a message"), BytesOf("another message")};
    for (int i : {0, 1}) {
      const Bytes signature = Sign(certificate, algorithm + host::HashName(hash), messages[i]);
      EXPECT_TRUE(key.Verifies(hash, messages[i], signature, pss)) << algorithm;
      EXPECT_FALSE(key.Verifies(hash, messages[1 - i], signature, pss)) << algorithm;
    }
  }
};
INSTANTIATE_TEST_SUITE_P(Matrix, MatrixOperations, testing::ValuesIn(kRows), RowName);

TEST_P(MatrixOperations, FailWithAWrongPinAndSucceedWithTheRightOneAfterwards) {
  const Bytes message = BytesOf("a message");
  EXPECT_FALSE(TryToPerform(host::Operation::kSign, "ec", "ECDSASignatureMessageX962SHA256",
                            message, "000000"));
  ExpectSignatures("ec", "ECDSASignatureMessageX962", Hash::kSha256);
}

TEST_P(MatrixOperations, SignPkcs1) {
  for (const Hash hash : host::kHashes) {
    ExpectSignatures("rsa", "RSASignatureMessagePKCS1v15", hash);
  }
}

TEST_P(MatrixOperations, SignPss) {
  for (const Hash hash : host::kHashes) {
    ExpectSignatures("rsa", "RSASignatureMessagePSS", hash, true);
  }
}

TEST_P(MatrixOperations, SignEcdsaWithDigestsShorterAndLongerThanTheCurve) {
  for (const Hash hash : host::kHashes) {
    ExpectSignatures("ec", "ECDSASignatureMessageX962", hash);
    ExpectSignatures("extra-01", "ECDSASignatureMessageX962", hash);
  }
}

TEST_P(MatrixOperations, DecryptPkcs1) {
  for (const Bytes& secret : {BytesOf("a secret"), Bytes(245, 0xa5)}) {
    EXPECT_EQ(Decrypt("RSAEncryptionPKCS1", PublicKey("rsa").EncryptPkcs1(secret)), secret);
  }
}

TEST_P(MatrixOperations, DecryptOaep) {
  for (const Hash hash : {Hash::kSha1, Hash::kSha256}) {
    const Bytes secret = BytesOf("a secret");
    const std::string algorithm = std::string("RSAEncryptionOAEP") + host::HashName(hash);
    EXPECT_EQ(Decrypt(algorithm, PublicKey("rsa").EncryptOaep(hash, secret)), secret);
  }
}

TEST_P(MatrixOperations, GoOnAfterARequestThatTheCardRefuses) {
  // A number that is larger than any modulus of its length.
  const auto refused = TryToPerform(host::Operation::kDecrypt, "rsa", "RSAEncryptionRaw",
                                    Bytes(256, 0xff), module_->Pin());
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().domain, "CryptoTokenKit") << refused.error().description;
  ExpectSignatures("rsa", "RSASignatureMessagePKCS1v15", Hash::kSha256);
  ExpectSignatures("ec", "ECDSASignatureMessageX962", Hash::kSha256);
}

TEST_P(MatrixOperations, WorkWithACardThatIsInsertedAgain) {
  ExpectSignatures("ec", "ECDSASignatureMessageX962", Hash::kSha256);
  ASSERT_NO_FATAL_FAILURE(Insert());
  ExpectSignatures("ec", "ECDSASignatureMessageX962", Hash::kSha256);
  ExpectSignatures("rsa", "RSASignatureMessagePKCS1v15", Hash::kSha256);
}

}  // namespace
}  // namespace matrix
