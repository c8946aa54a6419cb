// What our headers of Apple's frameworks declare is the table's, declarations.txt, and nothing
// else; and each kind of difference is found.
#include "tests/macos/declarations.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "tests/macos/metadata_table.h"
#include "tests/macos/objc_image.h"
#include "tests/temporary_folder.h"

namespace kelvrin::macos {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

std::string Contents(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

const HeaderFolders kHeaders{
    KELVRIN_SOURCE "/platform/include",
    KELVRIN_SOURCE "/platform/macos/sdk/System/Library/Frameworks",
};

// Compiles the headers into a probe.
MachOFile Probe(const HeaderFolders& headers, const std::string& linker_option = "",
                const fs::path& sdk = KELVRIN_MACOS_SDK) {
  const TemporaryFolder folder;
  const ProbeSettings settings{.compiler = KELVRIN_MACOS_COMPILER,
                               .sdk = sdk,
                               .probe = KELVRIN_SOURCE "/tests/macos/declarations_probe.mm",
                               .linker_option = linker_option};
  return MachOFile(CompileProbe(headers, settings, folder.path()));
}

// Compares the headers with the table.
Findings Check(const HeaderFolders& headers) {
  const MachOFile probe = Probe(headers);
  return Compare(ParseTable(Contents(KELVRIN_SOURCE "/tests/macos/declarations.txt")),
                 Declarations(probe.slices().at(0)), probe.slices().at(0).architecture);
}

TEST(DeclarationsTest, AreTheTables) { EXPECT_THAT(Check(kHeaders), IsEmpty()); }

TEST(DeclarationsTest, AreNoneOfNewerSystems) {
  EXPECT_THAT(CheckNothingNewer(kHeaders), IsEmpty());
}

TEST(DeclarationsTest, NeedTheSdk) {
  EXPECT_THAT([] { Probe(kHeaders, "", "/nowhere/macos-sdk"); },
              testing::ThrowsMessage<std::runtime_error>(
                  "/nowhere/macos-sdk is missing: run ./dev macos first"));
}

TEST(DeclarationsTest, AreRefusedInAFormThatIsNotUnderstood) {
  const TemporaryFolder folder;
  folder.Write("Odd.h", "#pragma once\n/* */ @interface Odd : NSObject\n@end\n");
  EXPECT_THAT([&] { ProbeText({folder.path(), folder.path()}); },
              testing::ThrowsMessage<std::runtime_error>(testing::HasSubstr("Odd.h")));
}

// The reader of metadata, on what the linker can make of a probe.
TEST(MetadataTest, AreTheSameFromRelativeMethodLists) {
  const MachOFile absolute = Probe(kHeaders);
  const MachOFile relative = Probe(kHeaders, "-Wl,-objc_relative_method_lists");
  ASSERT_FALSE(ObjcImage(absolute.slices().at(0)).Section("__objc_methlist"));
  ASSERT_TRUE(ObjcImage(relative.slices().at(0)).Section("__objc_methlist"));
  const std::vector<Metadata> metadata = ReadMetadata(relative.slices().at(0));
  EXPECT_THAT(Compare(ReadMetadata(absolute.slices().at(0)), metadata, "arm64"), IsEmpty());
  const auto token = std::ranges::find(metadata, "class TKToken", &Metadata::name);
  ASSERT_NE(token, metadata.end());
  EXPECT_EQ(std::ranges::count(token->lines, "- setDelegate: v24@0:8@16", &MetadataLine::text), 1);
}

TEST(MetadataTest, AreNotReadThroughChainedFixups) {
  const MachOFile probe = Probe(kHeaders, "-Wl,-fixup_chains");
  EXPECT_THAT([&] { ReadMetadata(probe.slices().at(0)); },
              testing::ThrowsMessage<std::runtime_error>(
                  "expected tables of rebases and bindings, got chained fixups"));
}

// A copy of the headers to spoil.
class SpoiledHeadersTest : public testing::Test {
 protected:
  SpoiledHeadersTest() {
    fs::copy(kHeaders.includes, copy_.includes, fs::copy_options::recursive);
    fs::copy(kHeaders.frameworks, copy_.frameworks, fs::copy_options::recursive);
  }

  // Puts a text in the place of another, which must be there once.
  void Replace(const fs::path& header, const std::string& from, const std::string& to) {
    std::string text = Contents(header);
    const size_t at = text.find(from);
    if (at == std::string::npos || text.find(from, at + 1) != std::string::npos) {
      throw std::runtime_error("not once in " + header.string() + ": " + from);
    }
    std::ofstream(header, std::ios::binary) << text.replace(at, from.size(), to);
  }

  fs::path TokenKit(const std::string& name) const {
    return copy_.includes / "CryptoTokenKit" / name;
  }

  const TemporaryFolder folder_;
  const HeaderFolders copy_{folder_ / "include", folder_ / "frameworks"};
};

TEST_F(SpoiledHeadersTest, FindsOtherSelector) {
  Replace(TokenKit("TKTokenKeychain.h"), "fillWithItems:", "fillByItems:");
  EXPECT_THAT(Check(copy_),
              ElementsAre("arm64: class TKTokenKeychainContents: expected - fillWithItems: "
                          "v24@0:8@\"NSArray\"16, got - fillByItems: v24@0:8@\"NSArray\"16"));
}

TEST_F(SpoiledHeadersTest, FindsOtherTypeOfAnArgument) {
  Replace(TokenKit("TKToken.h"), "supportsAlgorithm:(SecKeyAlgorithm)",
          "supportsAlgorithm:(NSInteger)");
  EXPECT_THAT(Check(copy_),
              ElementsAre("arm64: class TKTokenKeyAlgorithm: expected - supportsAlgorithm: "
                          "B24@0:8^{__CFString=}16, got - supportsAlgorithm: B24@0:8q16"));
}

TEST_F(SpoiledHeadersTest, FindsOtherClassOfAnArgument) {
  Replace(TokenKit("TKSmartCardToken.h"), "initWithToken:(TKToken *)token",
          "initWithToken:(TKTokenSession *)token");
  EXPECT_THAT(
      Check(copy_),
      ElementsAre("arm64: class TKSmartCardTokenSession: expected - initWithToken: "
                  "@24@0:8@\"TKToken\"16, got - initWithToken: @24@0:8@\"TKTokenSession\"16"));
}

TEST_F(SpoiledHeadersTest, FindsOtherAttributeOfAProperty) {
  Replace(TokenKit("TKTokenKeychain.h"), "(readonly, copy) NSData *data",
          "(readonly) NSData *data");
  EXPECT_THAT(Check(copy_),
              ElementsAre("arm64: class TKTokenKeychainCertificate: expected property data "
                          "T@\"NSData\",R,C, got property data T@\"NSData\",R"));
}

TEST_F(SpoiledHeadersTest, FindsOtherSuperclass) {
  Replace(copy_.frameworks / "Foundation.framework/Headers/NSString.h",
          "NSMutableString : NSString", "NSMutableString : NSObject");
  EXPECT_THAT(Check(copy_), ElementsAre("arm64: expected class NSMutableString : NSString, got "
                                        "class NSMutableString : NSObject"));
}

TEST_F(SpoiledHeadersTest, FindsProtocolThatIsNotAdopted) {
  Replace(TokenKit("TKTokenAuthOperation.h"), " <NSSecureCoding>", "");
  EXPECT_THAT(Check(copy_),
              ElementsAre("arm64: expected class TKTokenAuthOperation : NSObject <NSSecureCoding>, "
                          "got class TKTokenAuthOperation : NSObject"));
}

TEST_F(SpoiledHeadersTest, FindsMethodThatIsNoLongerRequired) {
  Replace(TokenKit("TKToken.h"), "@protocol TKTokenDelegate <NSObject>\n",
          "@protocol TKTokenDelegate <NSObject>\n@optional\n");
  EXPECT_THAT(
      Check(copy_),
      ElementsAre("arm64: protocol TKTokenDelegate: expected - token:createSessionWithError: "
                  "@\"TKTokenSession\"32@0:8@\"TKToken\"16^@24, got optional - "
                  "token:createSessionWithError: @\"TKTokenSession\"32@0:8@\"TKToken\"16^@24"));
}

TEST_F(SpoiledHeadersTest, FindsInitialiserThatIsNoLongerUnavailable) {
  Replace(TokenKit("TKSmartCardToken.h"), "instanceID TK_UNAVAILABLE;", "instanceID;");
  EXPECT_THAT(
      Check(copy_),
      ElementsAre("arm64: class TKSmartCardToken: expected unavailable - "
                  "initWithTokenDriver:instanceID: @32@0:8@\"TKTokenDriver\"16@\"NSString\"24, got "
                  "- initWithTokenDriver:instanceID: @32@0:8@\"TKTokenDriver\"16@\"NSString\"24"));
}

TEST_F(SpoiledHeadersTest, FindsClassThatIsNotInTheTable) {
  std::ofstream(TokenKit("TKTokenAuthOperation.h"), std::ios::app)
      << "@interface TKTokenPasswordAuthOperation : TKTokenAuthOperation\n@end\n";
  EXPECT_THAT(Check(copy_), ElementsAre("arm64: expected no class TKTokenPasswordAuthOperation"));
}

TEST_F(SpoiledHeadersTest, FindsOtherNumberOfAnError) {
  Replace(TokenKit("TKBase.h"), "TKErrorCodeCorruptedData = -3", "TKErrorCodeCorruptedData = -33");
  EXPECT_THAT([this] { Probe(copy_); }, testing::ThrowsMessage<std::runtime_error>(
                                            testing::HasSubstr("TKErrorCodeCorruptedData == -3")));
}

TEST_F(SpoiledHeadersTest, FindsDeclarationsOfNewerSystems) {
  Replace(TokenKit("TKToken.h"), "@property (readonly) TKTokenDriver *tokenDriver;",
          "@property (readonly) TKTokenDriver *tokenDriver;\n@property (readonly) "
          "TKTokenConfiguration *configuration;");
  EXPECT_THAT(CheckNothingNewer(copy_), ElementsAre("TKToken.h: expected no TKTokenConfiguration",
                                                    "TKToken.h: expected no configuration"));
}

}  // namespace
}  // namespace kelvrin::macos
