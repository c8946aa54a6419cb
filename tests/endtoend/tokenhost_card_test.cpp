// Cryptography with a real card through the tokenhost command.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "tests/endtoend/tokenhost_on_card.h"

namespace endtoend {
namespace {

using host::testing::Outcome;
using host::testing::RunProgram;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

class TokenhostOnARealCard : public testing::Test, protected TokenhostOnCard {
 protected:
  using TokenhostOnCard::Run;

  TokenhostOnARealCard() { std::ofstream(Path("message")) << "a message"; }

  // Performs a command with a key on a file, into the file "result".
  Outcome Perform(const std::string& command, const std::string& key, const std::string& algorithm,
                  const std::string& input = "message") {
    return Run({command, "--key", key, "--algorithm", algorithm, "--in", Path(input), "--out",
                Path("result")});
  }

  // What the openssl command says to a signature of the message.
  Outcome OpensslVerifies(const std::string& public_key, std::vector<std::string> options = {}) {
    std::vector<std::string> all = {KELVRIN_OPENSSL,        "dgst",       "-sha256",     "-verify",
                                    card_.File(public_key), "-signature", Path("result")};
    all.insert(all.end(), options.begin(), options.end());
    all.push_back(Path("message"));
    return RunProgram(all);
  }

  void OpensslEncrypts(std::vector<std::string> options) {
    std::vector<std::string> all = {
        KELVRIN_OPENSSL,           "pkeyutl", "-encrypt",      "-pubin", "-inkey",
        card_.File("rsa.pub.pem"), "-in",     Path("message"), "-out",   Path("ciphertext")};
    all.insert(all.end(), options.begin(), options.end());
    ASSERT_EQ(RunProgram(all).status, 0);
  }
};

TEST_F(TokenhostOnARealCard, RefusesAWrongAndAnEmptyPinWithTheExtensionsLastErrorLine) {
  for (const auto& [pin, result] : {std::pair("000000\n", "CKR_PIN_INCORRECT (0xa0)"),
                                    std::pair("\n", "CKR_PIN_INCORRECT (0xa0)")}) {
    std::ofstream(Path("wrong-pin")) << pin;
    const Outcome outcome =
        Run({"--show-private", "sign", "--key", kRsaKey, "--algorithm",
             "RSASignatureMessagePKCS1v15SHA256", "--in", Path("message"), "--out", Path("result")},
            "wrong-pin");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors,
                EndsWith("tokenhost: the token did not accept the PIN and gave no error "
                         "(CryptoTokenKit, code -2); the extension's last error line: PKCS11 "
                         "function C_Login failed: rv = " +
                         std::string(result) + "\n"));
    EXPECT_FALSE(std::filesystem::exists(Path("result")));
  }
}

TEST_F(TokenhostOnARealCard, ExportsCertificatesAndPublicKeys) {
  for (const auto& [key, name] : {std::pair(kRsaKey, "rsa"), std::pair(kEcKey, "ec")}) {
    const Outcome outcome = Run({"export", key});
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    std::ofstream(Path("key.pem")) << outcome.output;
    EXPECT_EQ(Run({"export", key, "--out", Path("same.pem")}).output, "");
    EXPECT_EQ(ReadFile(Path("same.pem")), ReadFile(Path("key.pem")));
    ASSERT_EQ(RunProgram({KELVRIN_OPENSSL, "x509", "-in", Path("key.pem"), "-outform", "DER",
                          "-out", Path("key.der")})
                  .status,
              0);
    EXPECT_EQ(ReadFile(Path("key.der")), card_.Read(std::string(name) + ".der"));
    const Bytes public_key = card_.Read(std::string(name) + ".pub.pem");
    EXPECT_THAT(outcome.output, EndsWith(std::string(public_key.begin(), public_key.end())));
  }
}

TEST_F(TokenhostOnARealCard, RefusesKeyExchangeByTheSupportCheck) {
  const Outcome outcome = Perform("exchange", kEcKey, "ECDHKeyExchangeStandardX963SHA1");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("not supported by the key"));
}

TEST_F(TokenhostOnARealCard, SignsPkcs1) {
  const Outcome outcome = Perform("sign", kRsaKey, "RSASignatureMessagePKCS1v15SHA256");
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  const Outcome verdict = OpensslVerifies("rsa.pub.pem");
  EXPECT_EQ(verdict.output, "Verified OK\n") << verdict.errors;
}

TEST_F(TokenhostOnARealCard, SignsPss) {
  const Outcome outcome = Perform("sign", kRsaKey, "RSASignatureMessagePSSSHA256");
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(OpensslVerifies("rsa.pub.pem", {"-sigopt", "rsa_padding_mode:pss", "-sigopt",
                                            "rsa_pss_saltlen:digest"})
                .output,
            "Verified OK\n");
  EXPECT_NE(OpensslVerifies("rsa.pub.pem").status, 0);
}

TEST_F(TokenhostOnARealCard, SignsEcdsa) {
  const Outcome outcome = Perform("sign", kEcKey, "ECDSASignatureMessageX962SHA256");
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(OpensslVerifies("ec.pub.pem").output, "Verified OK\n");
}

TEST_F(TokenhostOnARealCard, DecryptsPkcs1) {
  OpensslEncrypts({});
  const Outcome outcome = Perform("decrypt", kRsaKey, "RSAEncryptionPKCS1", "ciphertext");
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(ReadFile(Path("result")), ReadFile(Path("message")));
}

TEST_F(TokenhostOnARealCard, DecryptsOaep) {
  OpensslEncrypts({"-pkeyopt", "rsa_padding_mode:oaep", "-pkeyopt", "rsa_oaep_md:sha256"});
  const Outcome outcome = Perform("decrypt", kRsaKey, "RSAEncryptionOAEPSHA256", "ciphertext");
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(ReadFile(Path("result")), ReadFile(Path("message")));
}

TEST_F(TokenhostOnARealCard, ShowsNoPinInAnyLine) {
  const Outcome outcome =
      Run({"--log", "default", "--show-private", "sign", "--key", kEcKey, "--algorithm",
           "ECDSASignatureMessageX962SHA256", "--in", Path("message"), "--out", Path("result")});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_THAT(outcome.errors, HasSubstr("PIN-Verifizierung war erfolgreich."));
  EXPECT_THAT(outcome.errors, Not(HasSubstr(card_.pin())));
}

}  // namespace
}  // namespace endtoend
