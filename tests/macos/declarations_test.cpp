// What our headers of Apple's frameworks declare is the table's, declarations.txt, and nothing
// else; and each kind of difference is found.
#include "tests/macos/declarations.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

#include "tests/macos/metadata_table.h"
#include "tests/macos/objc_image.h"
#include "tests/macos/testing/spoiled_headers.h"
#include "tests/macos/text_file.h"

namespace kelvrin::macos {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

// Compiles the headers into a probe.
MachOFile Probe(const HeaderFolders& headers, const std::string& linker_option = "",
                const fs::path& sdk = KELVRIN_MACOS_SDK) {
  const TemporaryFolder folder;
  const ProbeSettings settings{.compiler = {.program = KELVRIN_MACOS_COMPILER, .sdk = sdk},
                               .probe = KELVRIN_SOURCE "/tests/macos/declarations_probe.mm",
                               .linker_option = linker_option};
  return MachOFile(CompileProbe(headers, settings, folder.path()));
}

// Compares the headers with the table.
Findings Check(const HeaderFolders& headers) {
  const MachOFile probe = Probe(headers);
  return Compare(ParseTable(ReadFile(KELVRIN_SOURCE "/tests/macos/declarations.txt")),
                 Declarations(probe.slices().at(0)), probe.slices().at(0).architecture);
}

TEST(DeclarationsTest, AreTheTables) { EXPECT_THAT(Check(Headers()), IsEmpty()); }

TEST(DeclarationsTest, AreNoneOfNewerSystems) {
  EXPECT_THAT(CheckNothingNewer(Headers()), IsEmpty());
}

TEST(DeclarationsTest, NeedTheSdk) {
  EXPECT_THAT([] { Probe(Headers(), "", "/nowhere/macos-sdk"); },
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
  const MachOFile absolute = Probe(Headers());
  const MachOFile relative = Probe(Headers(), "-Wl,-objc_relative_method_lists");
  ASSERT_FALSE(ObjcImage(absolute.slices().at(0)).Section("__objc_methlist"));
  ASSERT_TRUE(ObjcImage(relative.slices().at(0)).Section("__objc_methlist"));
  const std::vector<Metadata> metadata = ReadMetadata(relative.slices().at(0));
  EXPECT_THAT(Compare(ReadMetadata(absolute.slices().at(0)), metadata, "arm64"), IsEmpty());
  const auto token = std::ranges::find(metadata, "class TKToken", &Metadata::name);
  ASSERT_NE(token, metadata.end());
  EXPECT_EQ(std::ranges::count(token->lines, "- setDelegate: v24@0:8@16", &MetadataLine::text), 1);
}

TEST(MetadataTest, AreNotReadThroughChainedFixups) {
  const MachOFile probe = Probe(Headers(), "-Wl,-fixup_chains");
  EXPECT_THAT([&] { ReadMetadata(probe.slices().at(0)); },
              testing::ThrowsMessage<std::runtime_error>(
                  "expected tables of rebases and bindings, got chained fixups"));
}

using SpoiledHeadersTest = SpoiledHeaders;

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
  Append(TokenKit("TKTokenAuthOperation.h"),
         "@interface TKTokenPasswordAuthOperation : TKTokenAuthOperation\n@end\n");
  EXPECT_THAT(Check(copy_), ElementsAre("arm64: expected no class TKTokenPasswordAuthOperation"));
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
