// p11-kit's proxy in front of the adapter works as it does in front of the module.
#include "tests/matrix/p11_kit_configuration.h"
#include "tests/matrix/standard_fixture.h"

namespace matrix {
namespace {

using testing::HasSubstr;
using testing::Not;

class P11KitInFrontOfTheAdapter : public StandardProfile {
 protected:
  // What a program prints with the module alone in p11-kit's configuration.
  static Outcome RunWithProxy(const World& world, const Command& command) {
    const P11KitConfiguration configuration(world.module());
    return world.Run(command);
  }
  Outcome ExpectSame(const Command& command, Normaliser normalise = AsItIs) const {
    const Outcome without = RunWithProxy(without_, command);
    Outcome with = RunWithProxy(with_, command);
    EXPECT_EQ(normalise(with.output), normalise(without.output));
    EXPECT_EQ(normalise(with.errors), normalise(without.errors));
    EXPECT_EQ(without.status, 0) << without.errors;
    EXPECT_EQ(with.status, 0) << with.errors;
    return with;
  }
  static Command OnProxy(const Command& arguments) {
    Command all = {KELVRIN_PKCS11_TOOL, "--module", P11KitConfiguration::Proxy()};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
  }
  static Command OnProxyLoggedIn(const Command& arguments) {
    Command all = {"--login", "--pin", kPin};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return OnProxy(all);
  }
};

TEST_F(P11KitInFrontOfTheAdapter, ListsTheModuleAndItsTokensAlone) {
  const Outcome outcome = ExpectSame({KELVRIN_P11_KIT, "list-modules"});
  EXPECT_THAT(outcome.output, HasSubstr("only: {module}\n"));
  EXPECT_THAT(outcome.output, HasSubstr("token: 4711 0815\n"));
  EXPECT_THAT(outcome.output, Not(HasSubstr("trust")));
}

TEST_F(P11KitInFrontOfTheAdapter, ListsSlotsMechanismsAndObjects) {
  ExpectSame(OnProxy({"--list-slots"}));
  ExpectSame(OnProxy({"--list-mechanisms"}));
  const Outcome outcome = ExpectSame(OnProxyLoggedIn({"--list-objects"}), SortedLines);
  EXPECT_THAT(outcome.output, HasSubstr("Private Key Object; RSA"));
}

TEST_F(P11KitInFrontOfTheAdapter, SignsAndVerifies) {
  Provide("data", host::digest(host::Hash::kSha256, host::testing::bytes("a message")));
  for (const Command& key : {Command{"01", "RSA-PKCS"}, {"02", "ECDSA"}}) {
    const Command common = {"--id", key[0],         "--mechanism",
                            key[1], "--input-file", std::string(kFolder) + "/data"};
    Command sign = {"--sign", "--output-file", std::string(kFolder) + "/signature"};
    sign.insert(sign.end(), common.begin(), common.end());
    ExpectSame(OnProxyLoggedIn(sign));
    Command verify = {"--verify", "--signature-file", std::string(kFolder) + "/signature"};
    verify.insert(verify.end(), common.begin(), common.end());
    EXPECT_THAT(ExpectSame(OnProxyLoggedIn(verify)).output, HasSubstr("Signature is valid"));
    // Without p11-kit and the adapter it is the same signature.
    Command direct = Pkcs11Tool(verify);
    host::testing::write_text(without_.Path("signature"),
                              host::testing::read_text(with_.Path("signature")));
    EXPECT_THAT(without_.Run(direct).output, HasSubstr("Signature is valid"));
  }
}

}  // namespace
}  // namespace matrix
