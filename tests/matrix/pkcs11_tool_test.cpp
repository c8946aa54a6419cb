// pkcs11-tool works through the adapter as it does without.
#include <cstdlib>

#include "platform/linux/host/keychain_items.h"
#include "tests/matrix/module_on_test.h"
#include "tests/matrix/standard_fixture.h"

namespace matrix {
namespace {

using host::Bytes;
using host::Hash;
using testing::HasSubstr;

class Pkcs11ToolThroughTheAdapter : public StandardProfile {
 protected:
  // Signs the file "data" in both worlds and checks that pkcs11-tool verifies each signature in the
  // other world. The one made through the adapter comes back.
  Bytes ExpectSignatures(const std::string& id, const Command& mechanism) const {
    Command sign = {"--sign",
                    "--id",
                    id,
                    "--input-file",
                    std::string(kFolder) + "/data",
                    "--output-file",
                    std::string(kFolder) + "/signature"};
    sign.insert(sign.end(), mechanism.begin(), mechanism.end());
    ExpectSameSuccess(Pkcs11Tool(sign));
    const Bytes with = Result(with_, "signature");
    const Bytes without = Result(without_, "signature");
    EXPECT_EQ(with.size(), without.size());

    for (const auto& [world, signature] : {std::pair(&with_, without), {&without_, with}}) {
      host::testing::write_text(world->Path("signature"), {signature.begin(), signature.end()});
    }
    Command verify = {"--verify",
                      "--id",
                      id,
                      "--input-file",
                      std::string(kFolder) + "/data",
                      "--signature-file",
                      std::string(kFolder) + "/signature"};
    verify.insert(verify.end(), mechanism.begin(), mechanism.end());
    EXPECT_THAT(ExpectSameSuccess(Pkcs11Tool(verify)).output, HasSubstr("Signature is valid"));

    Provide("signature", Bytes(with.size(), 0x5a));
    EXPECT_THAT(ExpectSame(Pkcs11Tool(verify)).output, HasSubstr("Invalid signature"));
    return with;
  }
};

TEST_F(Pkcs11ToolThroughTheAdapter, FailsWithAWrongPin) {
  const ExportedPin wrong("000000");
  const Outcome outcome = ExpectSame(Pkcs11Tool({"--list-objects"}));
  EXPECT_NE(outcome.status, 0);
  EXPECT_THAT(outcome.errors, HasSubstr("CKR_PIN_INCORRECT"));
}

TEST_F(Pkcs11ToolThroughTheAdapter, ListsSlotsAndMechanisms) {
  for (const char* list : {"--list-slots", "--list-token-slots", "--list-mechanisms"}) {
    const Outcome outcome = ExpectSameSuccess({KELVRIN_PKCS11_TOOL, "--module", kModule, list});
    EXPECT_NE(outcome.output, "");
  }
}

TEST_F(Pkcs11ToolThroughTheAdapter, ListsObjectsWithAndWithoutLogin) {
  const Outcome before =
      ExpectSameSuccess({KELVRIN_PKCS11_TOOL, "--module", kModule, "--list-objects"}, SortedLines);
  EXPECT_THAT(before.output, testing::Not(HasSubstr("Private Key Object")));
  const Outcome after = ExpectSameSuccess(Pkcs11Tool({"--list-objects"}), SortedLines);
  EXPECT_THAT(after.output, HasSubstr("Private Key Object; RSA"));
  EXPECT_THAT(after.output, HasSubstr("Private Key Object; EC"));
}

TEST_F(Pkcs11ToolThroughTheAdapter, ReadsObjects) {
  for (const char* type : {"cert", "pubkey"}) {
    ExpectSameSuccess(Pkcs11Tool({"--read-object", "--type", type, "--id", "01", "--output-file",
                                  std::string(kFolder) + "/object"}));
    EXPECT_EQ(Result(with_, "object"), Result(without_, "object"));
    EXPECT_FALSE(Result(with_, "object").empty());
  }
}

TEST_F(Pkcs11ToolThroughTheAdapter, WritesAndDeletesObjects) {
  Provide("note", host::testing::bytes("a note"));
  ExpectSameSuccess(Pkcs11Tool(
      {"--write-object", std::string(kFolder) + "/note", "--type", "data", "--label", "note"}));
  ExpectSameSuccess(Pkcs11Tool({"--list-objects"}), SortedLines);
  ExpectSameSuccess(Pkcs11Tool({"--delete-object", "--type", "data", "--label", "note"}));
  ExpectSameSuccess(Pkcs11Tool({"--delete-object", "--type", "pubkey", "--id", "02"}));
  const Outcome outcome = ExpectSameSuccess(Pkcs11Tool({"--list-objects"}), SortedLines);
  EXPECT_THAT(outcome.output, testing::Not(HasSubstr("note")));
}

TEST_F(Pkcs11ToolThroughTheAdapter, GeneratesKeysThatSignAndVerify) {
  ExpectSameSuccess(Pkcs11Tool({"--keypairgen", "--key-type", "rsa:2048", "--id", "31", "--label",
                                "new RSA key", "--usage-sign", "--usage-decrypt"}),
                    WithoutKeyMaterial);
  ExpectSameSuccess(Pkcs11Tool({"--keypairgen", "--key-type", "EC:prime256v1", "--id", "32",
                                "--label", "new EC key", "--usage-sign", "--usage-derive"}),
                    WithoutKeyMaterial);
  ExpectSameSuccess(Pkcs11Tool({"--list-objects"}),
                    [](const std::string& text) { return SortedLines(WithoutKeyMaterial(text)); });
  Provide("data", Bytes(32, 0x17));
  for (const Command& mechanism : {Command{"31", "RSA-PKCS"}, {"32", "ECDSA"}}) {
    ExpectSameSuccess(Pkcs11Tool({"--sign", "--id", mechanism[0], "--mechanism", mechanism[1],
                                  "--input-file", std::string(kFolder) + "/data", "--output-file",
                                  std::string(kFolder) + "/signature"}));
    ExpectSameSuccess(Pkcs11Tool({"--verify", "--id", mechanism[0], "--mechanism", mechanism[1],
                                  "--input-file", std::string(kFolder) + "/data",
                                  "--signature-file", std::string(kFolder) + "/signature"}));
  }
}

TEST_F(Pkcs11ToolThroughTheAdapter, SignsAndVerifiesRsa) {
  Provide("data", Bytes(32, 0x17));
  ExpectSignatures("01", {"--mechanism", "RSA-PKCS"});
  ExpectSignatures("01", {"--mechanism", "SHA256-RSA-PKCS-PSS"});
  Provide("data", Bytes(256, 0x17));
  ExpectSignatures("01", {"--mechanism", "RSA-X-509"});
}

TEST_F(Pkcs11ToolThroughTheAdapter, SignsDataInSeveralParts) {
  Provide("data", Bytes(10000, 0x17));
  const Bytes signature = ExpectSignatures("01", {"--mechanism", "SHA256-RSA-PKCS"});
  EXPECT_TRUE(PublicKey("rsa").verifies(Hash::kSha256, Bytes(10000, 0x17), signature));
}

TEST_F(Pkcs11ToolThroughTheAdapter, SignsAndVerifiesEcdsa) {
  Provide("data", host::digest(Hash::kSha256, host::testing::bytes("a message")));
  ExpectSignatures("02", {"--mechanism", "ECDSA"});
  ExpectSameSuccess(
      Pkcs11Tool({"--sign", "--id", "02", "--mechanism", "ECDSA", "--signature-format", "openssl",
                  "--input-file", std::string(kFolder) + "/data", "--output-file",
                  std::string(kFolder) + "/signature"}));
  EXPECT_TRUE(PublicKey("ec").verifies(Hash::kSha256, host::testing::bytes("a message"),
                                       Result(with_, "signature")));
}

TEST_F(Pkcs11ToolThroughTheAdapter, SignsEcdsaWithSha1AsTheModuleDoes) {
  Provide("data", host::testing::bytes("a message"));
  ExpectSame(Pkcs11Tool({"--sign", "--id", "02", "--mechanism", "ECDSA-SHA1", "--input-file",
                         std::string(kFolder) + "/data", "--output-file",
                         std::string(kFolder) + "/signature"}));
  EXPECT_EQ(Result(with_, "signature").size(), Result(without_, "signature").size());
}

TEST_F(Pkcs11ToolThroughTheAdapter, Decrypts) {
  const Bytes secret = host::testing::bytes("a secret");
  Provide("data", PublicKey("rsa").encrypt_pkcs1(secret));
  ExpectSameSuccess(Pkcs11Tool({"--decrypt", "--id", "01", "--mechanism", "RSA-PKCS",
                                "--input-file", std::string(kFolder) + "/data", "--output-file",
                                std::string(kFolder) + "/plain"}));
  EXPECT_EQ(Result(with_, "plain"), secret);
  Provide("data", Bytes(256, 0x11));
  EXPECT_NE(ExpectSame(Pkcs11Tool({"--decrypt", "--id", "01", "--mechanism", "RSA-PKCS",
                                   "--input-file", std::string(kFolder) + "/data", "--output-file",
                                   std::string(kFolder) + "/plain"}))
                .status,
            0);
}

TEST_F(Pkcs11ToolThroughTheAdapter, ChangesThePin) {
  setenv("KELVRIN_NEW_PIN", "654321", 1);
  ExpectSameSuccess(Pkcs11Tool({"--change-pin", "--new-pin", "env:KELVRIN_NEW_PIN"}));
  unsetenv("KELVRIN_NEW_PIN");
  EXPECT_NE(ExpectSame(Pkcs11Tool({"--list-objects"}), SortedLines).status, 0);
  const ExportedPin changed("654321");
  ExpectSameSuccess(Pkcs11Tool({"--list-objects"}), SortedLines);
}

// Where the module offers it, and hashes the message as the standard says.
TEST(Pkcs11ToolOnNssThroughTheAdapter, SignsEcdsaWithSha1) {
  const std::unique_ptr<ModuleOnTest> module = BringUpNss();
  const ExportedPin pin(module->Pin());
  const StandardAdapter adapter(module->Configuration());
  const kelvrin::TemporaryFolder folder;
  const std::string message = folder.Write("message", "a message");
  const auto key = host::testing::OpensslKey::of_certificate(module->Certificate("ec"));
  // NSS names a key by its public value.
  const std::string id = host::to_hex(host::digest(Hash::kSha1, key.facts().public_key));
  const Outcome outcome =
      RunProgram({KELVRIN_PKCS11_TOOL, "--module", adapter.path(), "--token-label",
                  "NSS Certificate DB", "--login", "--pin", kPin, "--sign", "--mechanism",
                  "ECDSA-SHA1", "--id", id, "--signature-format", "openssl", "--input-file",
                  message, "--output-file", folder / "signature"});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_TRUE(key.verifies(Hash::kSha1, host::testing::bytes("a message"),
                           host::testing::bytes(host::testing::read_text(folder / "signature"))));
}

// On a card with one key, as pkcs11-tool's test takes keys in the order in which they come.
class Pkcs11ToolTestRun : public StandardProfile, public testing::WithParamInterface<const char*> {
 protected:
  Pkcs11ToolTestRun() : StandardProfile({.empty = true}) {}
};
INSTANTIATE_TEST_SUITE_P(Matrix, Pkcs11ToolTestRun, testing::Values("rsa:2048", "EC:prime256v1"),
                         [](const auto& key) { return std::string(key.param).substr(0, 2); });

TEST_P(Pkcs11ToolTestRun, PrintsTheSameLines) {
  const Outcome made = without_.Run(Pkcs11Tool(
      {"--keypairgen", "--key-type", GetParam(), "--id", "01", "--usage-sign", "--usage-decrypt"}));
  ASSERT_EQ(made.status, 0) << made.errors;
  std::filesystem::remove_all(with_.Path("tokens"));
  std::filesystem::copy(without_.Path("tokens"), with_.Path("tokens"),
                        std::filesystem::copy_options::recursive);
  const Outcome outcome = ExpectSame(Pkcs11Tool({"--test"}));
  EXPECT_THAT(outcome.output, HasSubstr("C_SeedRandom() and C_GenerateRandom():"));
  EXPECT_THAT(outcome.output, HasSubstr("testing key 0"));
}

}  // namespace
}  // namespace matrix
