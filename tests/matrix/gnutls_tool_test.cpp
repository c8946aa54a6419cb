// GnuTLS's p11tool works through the adapter as it does without.
#include <regex>

#include "tests/matrix/standard_fixture.h"

namespace matrix {
namespace {

using testing::HasSubstr;

constexpr char kToken[] = "pkcs11:token=4711%200815";

std::string Object(const std::string& rest) { return std::string(kToken) + ";" + rest; }

// A list of mechanisms without their flags: SoftHSM adds some to what p11tool had in their place
// before.
std::string WithoutFlags(const std::string& text) {
  return std::regex_replace(text, std::regex("(CKM_\\w+( keysize range \\(.*\\))?).*"), "$1");
}

class P11ToolThroughTheAdapter : public StandardProfile {};

TEST_F(P11ToolThroughTheAdapter, FailsWithAWrongPin) {
  const ExportedPin wrong("000000");
  EXPECT_NE(ExpectSame(P11Tool({"--list-privkeys", kToken})).status, 0);
}

TEST_F(P11ToolThroughTheAdapter, ListsTokensAndMechanisms) {
  EXPECT_THAT(ExpectSameSuccess({KELVRIN_P11TOOL, "--provider", kModule, "--list-tokens"}).output,
              HasSubstr("Label: 4711 0815"));
  ExpectSameSuccess({KELVRIN_P11TOOL, "--provider", kModule, "--list-mechanisms", kToken},
                    WithoutFlags);
}

TEST_F(P11ToolThroughTheAdapter, ListsObjectsWithAndWithoutLogin) {
  ExpectSameSuccess({KELVRIN_P11TOOL, "--provider", kModule, "--list-all", kToken}, SortedLines);
  const Outcome all = ExpectSameSuccess(P11Tool({"--list-all", kToken}), SortedLines);
  EXPECT_THAT(all.output, HasSubstr("Type: Private key (RSA-2048)"));
  EXPECT_THAT(all.output, HasSubstr("Type: Private key (EC/ECDSA-SECP256R1)"));
  ExpectSameSuccess(P11Tool({"--info", Object("id=%02;type=private")}));
}

TEST_F(P11ToolThroughTheAdapter, ExportsCertificatesAndPublicKeys) {
  for (const char* id : {"id=%01", "id=%02"}) {
    const std::string object = Object(id);
    EXPECT_THAT(ExpectSameSuccess(P11Tool({"--export", object + ";type=cert"})).output,
                HasSubstr("-----BEGIN CERTIFICATE-----"));
    EXPECT_THAT(ExpectSameSuccess(P11Tool({"--export-pubkey", object + ";type=private"})).output,
                HasSubstr("-----BEGIN PUBLIC KEY-----"));
  }
}

TEST_F(P11ToolThroughTheAdapter, SignsAndVerifies) {
  for (const char* id : {"id=%01", "id=%02"}) {
    const Outcome outcome =
        ExpectSameSuccess(P11Tool({"--test-sign", Object(id) + ";type=private"}));
    EXPECT_THAT(outcome.output + outcome.errors, HasSubstr("... ok"));
  }
}

TEST_F(P11ToolThroughTheAdapter, GeneratesKeysThatSign) {
  const Command kinds[] = {{"--generate-privkey=rsa", "--bits", "2048"},
                           {"--generate-privkey=ecdsa", "--curve", "secp256r1"}};
  for (const Command& kind : kinds) {
    Command generate = kind;
    generate.insert(generate.end(), {"--label", kind[2], "--outfile",
                                     std::string(kFolder) + "/public.pem", kToken});
    ExpectSameSuccess(P11Tool(generate));
    EXPECT_FALSE(Result(with_, "public.pem").empty());
    const Outcome signing =
        ExpectSameSuccess(P11Tool({"--test-sign", Object("object=" + kind[2] + ";type=private")}));
    EXPECT_THAT(signing.output + signing.errors, HasSubstr("... ok"));
  }
}

}  // namespace
}  // namespace matrix
