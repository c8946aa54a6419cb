#include "tests/macos/stub_uses.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/macos/text_file.h"

namespace kelvrin::macos {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::map<std::string, LinkStub> Stubs() {
  return ReadLinkStubs(KELVRIN_SOURCE "/platform/macos/sdk", KELVRIN_MACOS_SDK);
}

std::vector<std::string> Lists() {
  std::vector<std::string> lists;
  for (const auto& entry :
       std::filesystem::directory_iterator(KELVRIN_SOURCE "/tests/macos/imports")) {
    lists.push_back(ReadFile(entry.path()));
  }
  return lists;
}

LinkStub& Foundation(std::map<std::string, LinkStub>& stubs) {
  return stubs.at("/System/Library/Frameworks/Foundation.framework/Versions/C/Foundation");
}

TEST(StubUsesTest, StubsListWhatIsImported) {
  EXPECT_THAT(CheckStubsAreUsed(Stubs(), Lists()), IsEmpty());
}

TEST(StubUsesTest, FindsAFunctionThatNothingImports) {
  auto stubs = Stubs();
  Foundation(stubs).symbols["arm64"].insert("_NSLog");
  EXPECT_THAT(CheckStubsAreUsed(stubs, Lists()),
              ElementsAre("arm64: stub of Foundation: expected no _NSLog"));
}

TEST(StubUsesTest, FindsAStubOfWhichNothingIsImported) {
  auto stubs = Stubs();
  stubs["/usr/lib/libother.dylib"].symbols["x86_64"] = {"_other"};
  EXPECT_THAT(CheckStubsAreUsed(stubs, Lists()),
              ElementsAre("x86_64: stub of libother.dylib: expected no _other"));
}

TEST(StubUsesTest, FindsAnImportThatIsNotInTheStub) {
  auto stubs = Stubs();
  ASSERT_EQ(Foundation(stubs).symbols["x86_64"].erase("_NSLocalizedDescriptionKey"), 1U);
  EXPECT_THAT(CheckStubsAreUsed(stubs, Lists()),
              ElementsAre("x86_64: stub of Foundation: expected _NSLocalizedDescriptionKey, "
                          "got none"));
}

TEST(StubUsesTest, TakesAClassAndItsMetaclassForOne) {
  auto stubs = Stubs();
  auto lists = Lists();
  Foundation(stubs).symbols["arm64"].insert({"_OBJC_CLASS_$_NSDate", "_OBJC_METACLASS_$_NSDate"});
  EXPECT_THAT(CheckStubsAreUsed(stubs, lists),
              ElementsAre("arm64: stub of Foundation: expected no _OBJC_CLASS_$_NSDate",
                          "arm64: stub of Foundation: expected no _OBJC_METACLASS_$_NSDate"));
  lists.push_back("Foundation _OBJC_METACLASS_$_NSDate arm64\n");
  EXPECT_THAT(CheckStubsAreUsed(stubs, lists), IsEmpty());
}

}  // namespace
}  // namespace kelvrin::macos
