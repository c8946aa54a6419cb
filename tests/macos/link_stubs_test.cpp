#include "tests/macos/link_stubs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iterator>

#include "tests/temporary_folder.h"

namespace kelvrin::macos {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;

const std::filesystem::path kStubs = KELVRIN_SOURCE "/platform/macos/sdk";
const std::string kSecurity = "System/Library/Frameworks/Security.framework/Security.tbd";

// A copy of the stubs, for a test to spoil.
class LinkStubsTest : public testing::Test {
 protected:
  LinkStubsTest() {
    std::filesystem::copy(kStubs, Copy(), std::filesystem::copy_options::recursive);
  }

  std::filesystem::path Copy() const { return folder_ / "sdk"; }
  Findings Check() const { return CheckLinkStubs(ReadLinkStubs(Copy(), KELVRIN_MACOS_SDK)); }

  // Puts a text in the place of another in Security's stub.
  void Replace(const std::string& from, const std::string& to) const {
    std::ifstream file(Copy() / kSecurity);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    ASSERT_NE(text.find(from), std::string::npos);
    text.replace(text.find(from), from.size(), to);
    folder_.Write("sdk/" + kSecurity, text);
  }

  TemporaryFolder folder_;
};

TEST_F(LinkStubsTest, HasTheInstallNamesAndVersionsOfTheSystem) { EXPECT_THAT(Check(), IsEmpty()); }

TEST_F(LinkStubsTest, FindsAnotherCompatibilityVersion) {
  Replace("compatibility-version: 1", "compatibility-version: 1.2");
  EXPECT_THAT(Check(), ElementsAre("link stubs: expected /System/Library/Frameworks/"
                                   "Security.framework/Versions/A/Security 1.0.0, got none",
                                   "link stubs: expected no /System/Library/Frameworks/"
                                   "Security.framework/Versions/A/Security 1.2.0"));
}

TEST_F(LinkStubsTest, FindsAnotherInstallName) {
  Replace("Versions/A", "Versions/B");
  EXPECT_THAT(Check(), ElementsAre("link stubs: expected /System/Library/Frameworks/"
                                   "Security.framework/Versions/A/Security 1.0.0, got none",
                                   "link stubs: expected no /System/Library/Frameworks/"
                                   "Security.framework/Versions/B/Security 1.0.0"));
}

TEST_F(LinkStubsTest, FindsAMissingStub) {
  std::filesystem::remove(Copy() / kSecurity);
  EXPECT_THAT(Check(), ElementsAre("link stubs: expected /System/Library/Frameworks/"
                                   "Security.framework/Versions/A/Security 1.0.0, got none"));
}

TEST_F(LinkStubsTest, FindsAStubOfAnotherLibrary) {
  std::filesystem::copy(Copy() / kSecurity, Copy() / "usr/lib/libother.tbd");
  Replace("'/System/Library/Frameworks/Security.framework/Versions/A/Security'",
          "'/usr/lib/libother.dylib'");
  EXPECT_THAT(Check(), ElementsAre("link stubs: expected no /usr/lib/libother.dylib 1.0.0"));
}

TEST_F(LinkStubsTest, RefusesTwoStubsOfOneLibrary) {
  std::filesystem::copy(Copy() / kSecurity, Copy() / "usr/lib/libother.tbd");
  EXPECT_THROW(Check(), std::runtime_error);
}

TEST_F(LinkStubsTest, RefusesWhatIsNoStub) {
  Replace("--- !tapi-tbd", "--- !tapi-abc");
  EXPECT_THROW(Check(), std::runtime_error);
}

TEST_F(LinkStubsTest, RefusesAMissingSdkWithAWordOfAdvice) {
  EXPECT_THAT([&] { ReadLinkStubs(Copy(), folder_ / "none"); },
              testing::ThrowsMessage<std::runtime_error>(
                  testing::HasSubstr("libSystem.tbd is missing: run ./dev macos first")));
}

TEST_F(LinkStubsTest, NamesClassesAndVariablesAsObjectFilesDo) {
  Replace("    symbols: ", "    objc-ivars:      [ SecThing.isa ]\n    symbols: ");
  const auto stubs = ReadLinkStubs(Copy(), KELVRIN_MACOS_SDK);
  for (const char* architecture : {"x86_64", "arm64"}) {
    EXPECT_THAT(
        stubs.at("/usr/lib/libobjc.A.dylib").symbols.at(architecture),
        IsSupersetOf({"_objc_msgSend", "_OBJC_CLASS_$_NSObject", "_OBJC_METACLASS_$_NSObject"}));
    EXPECT_THAT(stubs.at("/System/Library/Frameworks/Security.framework/Versions/A/Security")
                    .symbols.at(architecture),
                Contains("_OBJC_IVAR_$_SecThing.isa"));
  }
}

TEST_F(LinkStubsTest, CountsWhatALibraryPassesOn) {
  const auto stubs = ReadLinkStubs(Copy(), KELVRIN_MACOS_SDK);
  const auto& system = stubs.at("/usr/lib/libSystem.B.dylib").symbols;
  for (const char* architecture : {"x86_64", "arm64"}) {
    EXPECT_THAT(system.at(architecture), IsSupersetOf({"_dlopen", "_memcpy", "__Unwind_Resume"}));
    EXPECT_THAT(system.at(architecture), Not(Contains("_objc_msgSend")));
  }
  EXPECT_THAT(system.at("x86_64"), Contains("_fopen$DARWIN_EXTSN"));
  EXPECT_THAT(system.at("x86_64"), Contains("_opendir$INODE64"));
  EXPECT_THAT(system.at("arm64"), Not(Contains("_opendir$INODE64")));
}

TEST_F(LinkStubsTest, LeavesOutWhatIsHiddenFromTheOldestSystem) {
  const auto stubs = ReadLinkStubs(Copy(), KELVRIN_MACOS_SDK);
  const auto& system = stubs.at("/usr/lib/libSystem.B.dylib").symbols;
  EXPECT_THAT(system.at("x86_64"), Not(Contains("___chkstk_darwin")));
  EXPECT_THAT(system.at("arm64"), Contains("___chkstk_darwin"));
  EXPECT_THAT(system.at("x86_64"), Not(Contains(testing::StartsWith("$ld$"))));
}

}  // namespace
}  // namespace kelvrin::macos
