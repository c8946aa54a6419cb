// What the main bundle carries for the bring-up.
#import "token/BundleResources.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "token/testing/token_fixture.h"

namespace {

using testing::IsNull;
using testing::StrEq;
using token_testing::kLindelModule;
using token_testing::kVumoModule;
using token_testing::Text;

class BundleResourcesTest : public testing::Test {
 protected:
  token_testing::Pool pool_;
  token_testing::TestBundle bundle_;
};

TEST_F(BundleResourcesTest, BothModulesAreFound) {
  EXPECT_EQ(Text(ModulePath(@"libpkcs11qarn_Lindel_PCSC")), bundle_.ModulePath(kLindelModule));
  EXPECT_EQ(Text(ModulePath(@"libpkcs11qarn_Vumo_PCSC")), bundle_.ModulePath(kVumoModule));
}

TEST_F(BundleResourcesTest, ModuleThatTheBundleLacksHasNoPath) {
  bundle_.Remove("libpkcs11qarn_Lindel_PCSC.dylib");
  EXPECT_EQ(ModulePath(@"libpkcs11qarn_Lindel_PCSC"), nil);
}

TEST_F(BundleResourcesTest, ModuleIsAFileOfTypeDylib) {
  bundle_.Remove("libpkcs11qarn_Lindel_PCSC.dylib");
  for (const char *name : {"libpkcs11qarn_Lindel_PCSC", "libpkcs11qarn_Lindel_PCSC.so"}) {
    std::ofstream(bundle_.resources() / name) << "x";
  }
  EXPECT_EQ(ModulePath(@"libpkcs11qarn_Lindel_PCSC"), nil);
}

TEST_F(BundleResourcesTest, ReaderNameComesFromTheConfiguration) {
  EXPECT_THAT(ReaderName(Configuration()), StrEq("Kelvrin Reader"));
}

TEST_F(BundleResourcesTest, ReaderNameIsUtf8) {
  bundle_.SetReaderName("Müllers Leser");
  EXPECT_THAT(ReaderName(Configuration()), StrEq("Müllers Leser"));
}

TEST_F(BundleResourcesTest, EmptyReaderNameIsAName) {
  bundle_.SetReaderName("");
  EXPECT_THAT(ReaderName(Configuration()), StrEq(""));
}

TEST_F(BundleResourcesTest, MissingConfigurationNamesNoReader) {
  bundle_.Remove("config.plist");
  EXPECT_EQ(Configuration(), nil);
  EXPECT_THAT(ReaderName(Configuration()), IsNull());
}

TEST_F(BundleResourcesTest, ConfigurationThatIsNoPropertyListNamesNoReader) {
  std::ofstream(bundle_.resources() / "config.plist") << "\x01 readerName";
  EXPECT_EQ(Configuration(), nil);
  EXPECT_THAT(ReaderName(Configuration()), IsNull());
}

TEST_F(BundleResourcesTest, ConfigurationThatIsNoDictionaryNamesNoReader) {
  bundle_.SetConfiguration("<array><string>readerName</string></array>");
  EXPECT_EQ(Configuration(), nil);
  EXPECT_THAT(ReaderName(Configuration()), IsNull());
}

TEST_F(BundleResourcesTest, ConfigurationWithoutTheKeyNamesNoReader) {
  bundle_.SetConfiguration("<dict><key>ReaderName</key><string>Kelvrin</string></dict>");
  EXPECT_NE(Configuration(), nil);
  EXPECT_THAT(ReaderName(Configuration()), IsNull());
}

TEST_F(BundleResourcesTest, ReaderNameThatIsNoStringIsNone) {
  for (const char *value : {"<integer>5</integer>", "<true/>", "<data>QUJD</data>",
                            "<array><string>Kelvrin</string></array>", "<dict/>"}) {
    bundle_.SetConfiguration(std::string("<dict><key>readerName</key>") + value + "</dict>");
    EXPECT_NE(Configuration(), nil) << value;
    EXPECT_THAT(ReaderName(Configuration()), IsNull()) << value;
  }
}

TEST_F(BundleResourcesTest, ConfigurationIsReadAnewEachTime) {
  EXPECT_THAT(ReaderName(Configuration()), StrEq("Kelvrin Reader"));
  bundle_.SetReaderName("Other");
  EXPECT_THAT(ReaderName(Configuration()), StrEq("Other"));
}

}  // namespace
