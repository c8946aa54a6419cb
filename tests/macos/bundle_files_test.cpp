// The files of the bundle, and spoiled copies of it.
#include "tests/macos/bundle_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "tests/macos/testing/bundle_copy.h"

namespace kelvrin::macos {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kResources[] = "Contents/PlugIns/KelvrinToken.appex/Contents/Resources/";

TEST(BundleFilesTest, HoldsItsFilesAndNothingElse) {
  EXPECT_THAT(CheckFileList(Bundle(KELVRIN_MACOS_BUILD)), IsEmpty());
}

TEST(BundleFilesTest, CopiesAreLikeTheirOriginals) {
  EXPECT_THAT(CheckCopiedFiles(Bundle(KELVRIN_MACOS_BUILD), KELVRIN_SOURCE), IsEmpty());
}

TEST(BundleFilesTest, AdaptersHaveTheirConfigurations) {
  EXPECT_THAT(CheckAdapterConfigurations(Bundle(KELVRIN_MACOS_BUILD)), IsEmpty());
}

class SpoiledBundleTest : public testing::Test {
 protected:
  const BundleCopy copy_{KELVRIN_MACOS_BUILD};
};

TEST_F(SpoiledBundleTest, OneFileMoreAndOneLess) {
  fs::rename(copy_.extension() / "Info.plist", copy_.extension() / "Info.plist~");
  const std::string contents = "Contents/PlugIns/KelvrinToken.appex/Contents/";
  EXPECT_THAT(CheckFileList(copy_.bundle()),
              ElementsAre("files: expected " + contents + "Info.plist, got none",
                          "files: expected no " + contents + "Info.plist~"));
}

TEST_F(SpoiledBundleTest, AnEmptyFolder) {
  fs::create_directory(copy_.extension() / "Frameworks");
  EXPECT_THAT(CheckFileList(copy_.bundle()),
              ElementsAre("Contents/PlugIns/KelvrinToken.appex/Contents/Frameworks: expected no "
                          "empty folder"));
}

TEST_F(SpoiledBundleTest, ALinkToAFile) {
  const fs::path adapter = copy_.resources() / "libpkcs11qarn_Vumo_PCSC.dylib";
  fs::remove(adapter);
  fs::create_symlink("libpkcs11qarn_Lindel_PCSC.dylib", adapter);
  EXPECT_THAT(CheckFileList(copy_.bundle()),
              ElementsAre(kResources + std::string("libpkcs11qarn_Vumo_PCSC.dylib: expected a "
                                                   "file, got a link")));
}

TEST_F(SpoiledBundleTest, ALinkToAFolder) {
  fs::remove_all(copy_.resources() / "de.lproj");
  fs::create_directory_symlink("en.lproj", copy_.resources() / "de.lproj");
  EXPECT_THAT(CheckFileList(copy_.bundle()),
              testing::Contains(kResources + std::string("de.lproj: expected a file, got a link")));
}

TEST_F(SpoiledBundleTest, AProgramThatMayNotBeRunAndATextThatMay) {
  fs::permissions(copy_.application() / "MacOS/KelvrinToken", fs::perms::owner_exec,
                  fs::perm_options::remove);
  fs::permissions(copy_.application() / "Info.plist", fs::perms::owner_exec, fs::perm_options::add);
  EXPECT_THAT(
      CheckFileList(copy_.bundle()),
      testing::UnorderedElementsAre("Contents/MacOS/KelvrinToken: may be run: expected yes, got no",
                                    "Contents/Info.plist: may be run: expected no, got yes"));
}

TEST_F(SpoiledBundleTest, AnotherAdapter) {
  std::ofstream(copy_.resources() / "libpkcs11qarn_Vumo_PCSC.dylib", std::ios::app) << '\0';
  EXPECT_THAT(CheckCopiedFiles(copy_.bundle(), KELVRIN_SOURCE),
              ElementsAre("KelvrinToken.app/" + std::string(kResources) +
                          "libpkcs11qarn_Vumo_PCSC.dylib: expected the bytes of "
                          "libkelvrin_adapter.dylib, got others"));
}

TEST_F(SpoiledBundleTest, AnotherText) {
  copy_.Replace(copy_.resources() / "de.lproj/Localizable.strings", "Schlüssels", "Schluessels");
  EXPECT_THAT(CheckCopiedFiles(copy_.bundle(), KELVRIN_SOURCE),
              ElementsAre("KelvrinToken.app/" + std::string(kResources) +
                          "de.lproj/Localizable.strings: expected the bytes of "
                          "Localizable.strings, got others"));
}

TEST_F(SpoiledBundleTest, AnotherLineOfAConfiguration) {
  const fs::path conf = copy_.resources() / "libpkcs11qarn_Lindel_PCSC.conf";
  copy_.Replace(conf, "\nmodule = ", "\nmodule = ../");
  Findings findings = CheckAdapterConfigurations(copy_.bundle());
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_THAT(findings[0],
              testing::HasSubstr("libpkcs11qarn_Lindel_PCSC.conf: expected module = "));
  EXPECT_THAT(findings[0], testing::HasSubstr("got module = ../"));

  copy_.Replace(conf, "\nmodule = ../", "\nmodule = ");
  EXPECT_THAT(CheckAdapterConfigurations(copy_.bundle()), IsEmpty());
  std::ofstream(conf, std::ios::app) << "profile = standard\n";
  findings = CheckAdapterConfigurations(copy_.bundle());
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_THAT(findings[0], testing::EndsWith(", profile = standard"));
}

}  // namespace
}  // namespace kelvrin::macos
