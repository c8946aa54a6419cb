// The build's options for the property lists: configures the project for macOS, without building
// it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <regex>

#include "platform/linux/host/testing/program.h"
#include "tests/macos/bundle_files.h"
#include "tests/macos/bundle_property_lists.h"
#include "tests/macos/testing/bundle_copy.h"
#include "tests/macos/text_file.h"
#include "tests/temporary_folder.h"

namespace kelvrin::macos {
namespace {

using host::testing::Outcome;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class BundleOptionsTest : public testing::Test {
 protected:
  Outcome Configure(const std::vector<std::string>& options) const {
    std::vector<std::string> arguments = {KELVRIN_CMAKE,  "-S",       KELVRIN_SOURCE, "-B",
                                          folder_.path(), "--preset", "macos"};
    arguments.push_back(std::string("-DKELVRIN_MACOS_SDK=") + KELVRIN_MACOS_SDK);
    for (const std::string& option : options) arguments.push_back("-D" + option);
    return host::testing::run_program(arguments);
  }

  // The bundle's property lists of a configuration that has to be accepted.
  Bundle Configured(const std::vector<std::string>& options) const {
    const Outcome outcome = Configure(options);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    return Bundle(folder_.path());
  }

  // What is said about one that has to be refused, on one line.
  std::string Refusal(const std::string& option) const {
    const Outcome outcome = Configure({option});
    EXPECT_EQ(outcome.status, 1) << option;
    return std::regex_replace(outcome.errors, std::regex("\\s+"), " ");
  }

  const TemporaryFolder folder_;
};

TEST_F(BundleOptionsTest, NoAidUnlessOneIsGiven) {
  const Bundle bundle = Configured({});
  EXPECT_THAT(bundle.options().aids, IsEmpty());
  EXPECT_THAT(CheckExtensionInfo(bundle), IsEmpty());
}

TEST_F(BundleOptionsTest, OneAid) {
  const Bundle bundle = Configured({"KELVRIN_AID=A0000003974349445F0100"});
  EXPECT_THAT(bundle.options().aids, ElementsAre("A0000003974349445F0100"));
  EXPECT_THAT(CheckExtensionInfo(bundle), IsEmpty());
}

TEST_F(BundleOptionsTest, AnAidThatWasNotGivenIsFound) {
  const Bundle bundle = Configured({"KELVRIN_AID=A000000001"});
  const auto cache = bundle.build() / "CMakeCache.txt";
  const std::string spoiled =
      WithReplaced(ReadFile(cache), "KELVRIN_AID:STRING=A000000001", "KELVRIN_AID:STRING=");
  std::ofstream(cache) << spoiled;
  EXPECT_THAT(CheckExtensionInfo(Bundle(bundle.build())),
              ElementsAre("extension's Info.plist: expected no "
                          "NSExtension/NSExtensionAttributes/com.apple.ctk.aid"));
}

TEST_F(BundleOptionsTest, SeveralAidsOfTheShortestAndTheLongestSize) {
  const Bundle bundle = Configured({"KELVRIN_AID=A000000001;d27600000102030405060708090a0b0c"});
  EXPECT_THAT(bundle.options().aids, ElementsAre("A000000001", "d27600000102030405060708090a0b0c"));
  EXPECT_THAT(CheckExtensionInfo(bundle), IsEmpty());
}

TEST_F(BundleOptionsTest, RefusesWhatIsNoAid) {
  const std::pair<const char*, const char*> refusals[] = {
      {"A0000003G1", "'A0000003G1' is not made of hexadecimal digits"},
      {"A0 00 00 00 01", "'A0 00 00 00 01' is not made of hexadecimal digits"},
      {"A000000001;;A000000002", "'' is not made of hexadecimal digits"},
      {"A000000001;A0000000012", "'A0000000012' has an odd number of digits"},
      {"A0000000", "'A0000000' has not 5 to 16 bytes"},
      {"A000000001020304050607080910111213", "has not 5 to 16 bytes"},
  };
  for (const auto& [aid, reason] : refusals) {
    EXPECT_THAT(Refusal(std::string("KELVRIN_AID=") + aid),
                testing::AllOf(HasSubstr("KELVRIN_AID: "), HasSubstr(reason)));
  }
}

TEST_F(BundleOptionsTest, IdentifiersOfOnesOwn) {
  const Bundle bundle = Configured(
      {"KELVRIN_APPLICATION_ID=com.example.app", "KELVRIN_EXTENSION_ID=com.example.app.token"});
  EXPECT_EQ(bundle.options().extension_id, "com.example.app.token");
  EXPECT_THAT(CheckExtensionInfo(bundle), IsEmpty());
  EXPECT_THAT(CheckApplicationInfo(bundle), IsEmpty());
}

TEST_F(BundleOptionsTest, RefusesAnExtensionOfAnotherApplication) {
  EXPECT_THAT(Refusal("KELVRIN_EXTENSION_ID=org.kelvrin.KelvrinTokens.extension"),
              HasSubstr("must begin with 'org.kelvrin.KelvrinToken.'"));
}

TEST_F(BundleOptionsTest, AReaderNameWithLettersThatXmlReserves) {
  const Bundle bundle = Configured({"KELVRIN_READER_NAME=Müller & <Söhne> \"1\""});
  EXPECT_EQ(bundle.options().reader_name, "Müller & <Söhne> \"1\"");
  EXPECT_THAT(CheckConfiguration(bundle), IsEmpty());
  EXPECT_THAT(CheckAdapterConfigurations(bundle), IsEmpty());
}

}  // namespace
}  // namespace kelvrin::macos
