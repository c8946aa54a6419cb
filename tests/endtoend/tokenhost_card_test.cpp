// The whole road through the tokenhost command: the built bundle, the adapter, a real card.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "platform/linux/host/testing/program.h"
#include "tests/card/softhsm_card.h"
#include "tests/endtoend/verification.h"

namespace endtoend {
namespace {

using host::testing::Outcome;
using host::testing::run_program;
using testing::HasSubstr;
using testing::Not;

constexpr char kRsaKey[] = "0201";
constexpr char kEcKey[] = "0202";

class TokenhostOnARealCard : public testing::Test {
 protected:
  TokenhostOnARealCard() : bundle_(card_.directory() / "KelvrinToken.appex") {
    std::filesystem::copy(KELVRIN_BUNDLE, bundle_, std::filesystem::copy_options::recursive);
    std::ofstream(Path("message")) << "a message";
  }

  std::filesystem::path Path(const std::string& name) const { return card_.directory() / name; }

  // Runs tokenhost with the card's PIN in a file.
  Outcome Run(const std::vector<std::string>& arguments, const std::string& pin_file = "") {
    std::vector<std::string> all = {
        KELVRIN_TOKENHOST, "--bundle", bundle_, "--pin-file",
        pin_file.empty() ? card_.File("pin").string() : Path(pin_file).string()};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return run_program(all);
  }

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
    return run_program(all);
  }

  void OpensslEncrypts(std::vector<std::string> options) {
    std::vector<std::string> all = {
        KELVRIN_OPENSSL,           "pkeyutl", "-encrypt",      "-pubin", "-inkey",
        card_.File("rsa.pub.pem"), "-in",     Path("message"), "-out",   Path("ciphertext")};
    all.insert(all.end(), options.begin(), options.end());
    ASSERT_EQ(run_program(all).status, 0);
  }

  kelvrin::SoftHsmCard card_;
  std::filesystem::path bundle_;
};

TEST_F(TokenhostOnARealCard, RefusesAWrongPinAndWritesNothing) {
  std::ofstream(Path("wrong-pin")) << "000000\n";
  const Outcome outcome =
      Run({"sign", "--key", kRsaKey, "--algorithm", "RSASignatureMessagePKCS1v15SHA256", "--in",
           Path("message"), "--out", Path("result")},
          "wrong-pin");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("CryptoTokenKit, code -2"));
  EXPECT_FALSE(std::filesystem::exists(Path("result")));
}

TEST_F(TokenhostOnARealCard, RefusesAnEmptyPin) {
  std::ofstream(Path("empty-pin")) << "\n";
  const Outcome outcome = Run({"sign", "--key", kEcKey, "--algorithm",
                               "ECDSASignatureMessageX962SHA256", "--in", Path("message")},
                              "empty-pin");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, "");
}

TEST_F(TokenhostOnARealCard, RefusesKeyExchangeByTheSupportCheck) {
  const Outcome outcome = Perform("exchange", kEcKey, "ECDHKeyExchangeStandardX963SHA1");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("not supported by the key"));
}

TEST_F(TokenhostOnARealCard, NamesWhatTheBundleLacks) {
  std::filesystem::remove(bundle_ / "Contents/Resources/libpkcs11qarn_Lindel_PCSC.dylib");
  const Outcome outcome = Run({"list"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, "");
  EXPECT_THAT(outcome.errors, HasSubstr("libpkcs11qarn_Lindel_PCSC.dylib"));
}

TEST_F(TokenhostOnARealCard, ShowsTheErrorLinesOfASetUpThatFails) {
  // A module that is no library.
  std::ofstream(bundle_ / "Contents/Resources/libpkcs11qarn_Lindel_PCSC.dylib") << "no library";
  const Outcome outcome = Run({"list"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("Fehler beim Laden von PKCS11-Modul."));
  EXPECT_THAT(outcome.errors, HasSubstr("kvdl_dlopen failed: "));
}

TEST_F(TokenhostOnARealCard, ShowsWhatTheAdapterSaysOfItsConfiguration) {
  std::ofstream(bundle_ / "Contents/Resources/libpkcs11qarn_Lindel_PCSC.conf") << "modul = x\n";
  const Outcome outcome = Run({"list"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("libpkcs11qarn_Lindel_PCSC.conf:1: "));
}

TEST_F(TokenhostOnARealCard, ListsTheItemsAndNothingElseOnStandardOutput) {
  const Outcome outcome = Run({"list", "--json"});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_TRUE(nlohmann::json::accept(outcome.output));
  EXPECT_THAT(outcome.output, HasSubstr(kRsaKey));
  EXPECT_THAT(outcome.output, HasSubstr(kEcKey));
  EXPECT_THAT(outcome.output, Not(HasSubstr("gefunden")));
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

TEST_F(TokenhostOnARealCard, LoadsABundleThatWasMovedAndItsExecutableRenamed) {
  const std::filesystem::path moved = card_.directory() / "elsewhere" / "Renamed.appex";
  std::filesystem::create_directories(moved.parent_path());
  std::filesystem::rename(bundle_, moved);
  bundle_ = moved;
  std::filesystem::rename(moved / "Contents/MacOS/KelvrinToken", moved / "Contents/MacOS/Other");
  const std::filesystem::path info = moved / "Contents/Info.plist";
  const Bytes before = ReadFile(info);
  std::string text(before.begin(), before.end());
  const std::string executable = "<key>CFBundleExecutable</key>\n\t<string>KelvrinToken";
  ASSERT_NE(text.find(executable), std::string::npos);
  text.replace(text.find(executable), executable.size(),
               "<key>CFBundleExecutable</key>\n\t<string>Other");
  std::ofstream(info) << text;
  const Outcome outcome = Run({"list"});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_THAT(outcome.output, HasSubstr(kEcKey));
}

TEST_F(TokenhostOnARealCard, InstantiatesTheClassThatTheBundleNames) {
  const std::filesystem::path info = bundle_ / "Contents/Info.plist";
  const Bytes before = ReadFile(info);
  std::string text(before.begin(), before.end());
  const std::string named = "<string>TokenDriver</string>";
  ASSERT_NE(text.find(named), std::string::npos);
  text.replace(text.find(named), named.size(), "<string>TokenSession</string>");
  std::ofstream(info) << text;
  const Outcome outcome = Run({"list"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("TokenSession"));
}

}  // namespace
}  // namespace endtoend
