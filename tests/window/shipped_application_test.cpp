// The commands of the application that ships say what those of the one built here say.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/linux/host/testing/program.h"
#include "tests/card/softhsm_card.h"

namespace window {
namespace {

using host::testing::Outcome;
using host::testing::RunProgram;
using testing::HasSubstr;

// A card lies where both programs look for one.
class ShippedApplicationTest : public testing::TestWithParam<const char*> {
 protected:
  ShippedApplicationTest() {
    const auto folder = card_.directory() / "desk";
    std::filesystem::create_directories(folder / "card/card");
    std::filesystem::copy(card_.configuration(), folder / "card/softhsm2.conf");
    std::filesystem::copy(card_.File("pin"), folder / "card/card/pin");
    folder_ = folder;
  }
  Outcome Run(std::vector<std::string> program, const std::vector<std::string>& arguments) {
    program.push_back(folder_);
    program.insert(program.begin(), {"/usr/bin/env", std::string("LANGUAGES=") + GetParam()});
    program.insert(program.end(), arguments.begin(), arguments.end());
    return RunProgram(program);
  }
  Outcome Shipped(const std::vector<std::string>& arguments) {
    return Run({KELVRIN_RUN_APPLICATION, KELVRIN_SHIPPED}, arguments);
  }
  Outcome Built(const std::vector<std::string>& arguments) {
    return Run({KELVRIN_WINDOW}, arguments);
  }

  const kelvrin::SoftHsmCard card_;
  std::string folder_;
};

TEST_P(ShippedApplicationTest, ListsAndExportsAlike) {
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {"--list"}, {"--ssh-key", "Erika Mustermann RSA"}, {"--ssh-key", "nobody"}}) {
    const Outcome built = Built(arguments);
    const Outcome shipped = Shipped(arguments);
    EXPECT_EQ(shipped.output, built.output);
    EXPECT_EQ(shipped.status, built.status) << shipped.errors;
  }
  EXPECT_THAT(Built({"--list"}).output, HasSubstr("Erika Mustermann EC"));
  EXPECT_EQ(Built({"--ssh-key", "nobody"}).status, 1);
}

TEST_P(ShippedApplicationTest, Reports) {
  const Outcome report = Shipped({"--report"});
  EXPECT_EQ(report.status, 0) << report.errors;
  // What it says of the card, and how modulecheck ended, which it has started.
  EXPECT_THAT(report.output, HasSubstr(Shipped({"--list"}).output));
  EXPECT_THAT(report.output, HasSubstr("\"conclusion\": \"works\""));
  EXPECT_THAT(report.output, HasSubstr("$ /usr/bin/log show --last 10m"));
}

INSTANTIATE_TEST_SUITE_P(InBothLanguages, ShippedApplicationTest, testing::Values("de", "en"));

}  // namespace
}  // namespace window
