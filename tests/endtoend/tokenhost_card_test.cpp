// Cryptography with a real card through the tokenhost command.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/endtoend/tokenhost_on_card.h"

namespace endtoend {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

class TokenhostOnARealCard : public TokenhostOnCard {
 protected:
  TokenhostOnARealCard() { WriteText(Path("message"), "a message"); }

  // Performs a command with a key on a file, into the file "result".
  Outcome Perform(std::vector<std::string> command, const std::string& key,
                  const std::string& algorithm, const std::string& input = "message",
                  const std::string& pin_file = "") const {
    command.insert(command.end(), {"--key", key, "--algorithm", algorithm, "--in", Path(input),
                                   "--out", Path("result")});
    return Run(command, pin_file);
  }

  // Runs the openssl command on the message, with the options before its name.
  Outcome Openssl(std::vector<std::string> arguments,
                  const std::vector<std::string>& options) const {
    arguments.insert(arguments.begin(), KELVRIN_OPENSSL);
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.push_back(Path("message"));
    return RunProgram(arguments);
  }
};

TEST_F(TokenhostOnARealCard, RefusesAWrongAndAnEmptyPinWithTheExtensionsLastErrorLine) {
  for (const char* pin : {"000000\n", "\n"}) {
    WriteText(Path("wrong-pin"), pin);
    const Outcome outcome = Perform({"--show-private", "sign"}, kRsaKey,
                                    "RSASignatureMessagePKCS1v15SHA256", "message", "wrong-pin");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors,
                EndsWith("tokenhost: the token did not accept the PIN and gave no error "
                         "(CryptoTokenKit, code -2); the extension's last error line: PKCS11 "
                         "function C_Login failed: rv = CKR_PIN_INCORRECT (0xa0)\n"));
    EXPECT_FALSE(std::filesystem::exists(Path("result")));
  }
}

TEST_F(TokenhostOnARealCard, ExportsCertificatesAndPublicKeys) {
  for (const auto& [key, name] : {std::pair(kRsaKey, "rsa"), std::pair(kEcKey, "ec")}) {
    const Outcome outcome = Run({"export", key});
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    WriteText(Path("key.pem"), outcome.output);
    EXPECT_EQ(Run({"export", key, "--out", Path("same.pem")}).output, "");
    EXPECT_EQ(ReadText(Path("same.pem")), outcome.output);
    const Outcome der =
        RunProgram({KELVRIN_OPENSSL, "x509", "-in", Path("key.pem"), "-outform", "DER"});
    EXPECT_EQ(der.output, ReadText(card_.File(std::string(name) + ".der")));
    EXPECT_THAT(outcome.output, EndsWith(ReadText(card_.File(std::string(name) + ".pub.pem"))));
  }
}

TEST_F(TokenhostOnARealCard, RefusesKeyExchangeByTheSupportCheck) {
  const Outcome outcome = Perform({"exchange"}, kEcKey, "ECDHKeyExchangeStandardX963SHA1");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("not supported by the key"));
}

TEST_F(TokenhostOnARealCard, MakesSignaturesThatOpensslVerifies) {
  const std::vector<std::string> pss = {"-sigopt", "rsa_padding_mode:pss", "-sigopt",
                                        "rsa_pss_saltlen:digest"};
  const struct {
    const char* algorithm;
    const char* key;
    const char* public_key;
    std::vector<std::string> options;
  } rows[] = {{"RSASignatureMessagePKCS1v15SHA256", kRsaKey, "rsa.pub.pem", {}},
              {"RSASignatureMessagePSSSHA256", kRsaKey, "rsa.pub.pem", pss},
              {"ECDSASignatureMessageX962SHA256", kEcKey, "ec.pub.pem", {}}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.algorithm);
    const Outcome outcome = Perform({"sign"}, row.key, row.algorithm);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    const std::vector<std::string> verify = {
        "dgst", "-sha256", "-verify", card_.File(row.public_key), "-signature", Path("result")};
    EXPECT_EQ(Openssl(verify, row.options).output, "Verified OK\n");
    if (!row.options.empty()) EXPECT_NE(Openssl(verify, {}).status, 0);
  }
}

TEST_F(TokenhostOnARealCard, DecryptsWhatOpensslEncrypts) {
  const std::pair<const char*, std::vector<std::string>> rows[] = {
      {"RSAEncryptionPKCS1", {}},
      {"RSAEncryptionOAEPSHA256",
       {"-pkeyopt", "rsa_padding_mode:oaep", "-pkeyopt", "rsa_oaep_md:sha256"}}};
  for (const auto& [algorithm, options] : rows) {
    SCOPED_TRACE(algorithm);
    std::vector<std::string> in = options;
    in.emplace_back("-in");
    ASSERT_EQ(Openssl({"pkeyutl", "-encrypt", "-pubin", "-inkey", card_.File("rsa.pub.pem"), "-out",
                       Path("ciphertext")},
                      in)
                  .status,
              0);
    const Outcome outcome = Perform({"decrypt"}, kRsaKey, algorithm, "ciphertext");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(ReadText(Path("result")), "a message");
  }
}

TEST_F(TokenhostOnARealCard, ShowsNoPinInAnyLine) {
  const Outcome outcome = Perform({"--log", "default", "--show-private", "sign"}, kEcKey,
                                  "ECDSASignatureMessageX962SHA256");
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_THAT(outcome.errors, HasSubstr("PIN-Verifizierung war erfolgreich."));
  EXPECT_THAT(outcome.errors, Not(HasSubstr(card_.pin())));
}

}  // namespace
}  // namespace endtoend
