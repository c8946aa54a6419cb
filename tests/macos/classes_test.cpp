// The Objective-C metadata of the built programs: the table's and nothing else, and each kind of
// difference is found.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <llvm/Support/Endian.h>

#include <algorithm>
#include <stdexcept>

#include "tests/macos/classes_table.h"
#include "tests/macos/metadata_table.h"
#include "tests/macos/objc_image.h"
#include "tests/macos/testing/built_binaries.h"
#include "tests/macos/testing/spoiled_copy.h"

namespace kelvrin::macos {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(ClassesTest, ExtensionHasItsClasses) {
  EXPECT_THAT(CheckMetadata(MachOFile(Extension().path), ExtensionTable()), IsEmpty());
}

TEST(ClassesTest, ApplicationHasItsClasses) {
  EXPECT_THAT(CheckMetadata(MachOFile(Application().path), kApplicationTable), IsEmpty());
}

// A copy of the extension, whose arm64 slice is spoiled. Bytes that are put elsewhere keep the
// loader's tables right, so that what the check sees is the change alone.
class SpoiledClassesTest : public testing::Test {
 protected:
  static constexpr const char* kArchitecture = "arm64";

  const Metadata& Named(const std::string& name) const {
    const auto found = std::ranges::find(metadata_, name, &Metadata::name);
    if (found == metadata_.end()) throw std::runtime_error("no " + name);
    return *found;
  }

  // Where in the copy the line that begins with a text has its entry.
  size_t Entry(const std::string& name, const std::string& begin) const {
    for (const MetadataLine& line : Named(name).lines) {
      if (line.text.starts_with(begin)) return Offset(line.address);
    }
    throw std::runtime_error(name + " has no line " + begin);
  }

  size_t Offset(uint64_t address) const {
    return copy_.Begin(kArchitecture) + image_.Offset(address);
  }

  // Where in the copy the text lies that a pointer leads to.
  size_t TextOf(size_t pointer_offset) {
    return Offset(llvm::support::endian::read64le(copy_.bytes().data() + pointer_offset));
  }

  // Puts a copy of some bytes elsewhere.
  void Copy(size_t from, size_t to, size_t size) {
    copy_.bytes().replace(to, size, copy_.bytes().substr(from, size));
  }

  Findings Check() const { return CheckMetadata(copy_.Open(), ExtensionTable()); }

  const MachOFile original_{Extension().path};
  const Slice& slice_ = original_.slices().at(1);
  const ObjcImage image_{slice_};
  const std::vector<Metadata> metadata_ = ReadMetadata(slice_);
  SpoiledCopy copy_{Extension().path};
};

TEST_F(SpoiledClassesTest, FindsRenamedClass) {
  copy_.Replace(kArchitecture, std::string("\0TokenDriver\0", 13),
                std::string("\0TokenDriven\0", 13));
  EXPECT_THAT(Check(), ElementsAre("arm64: expected class TokenDriver, got none",
                                   "arm64: expected no class TokenDriven"));
}

TEST_F(SpoiledClassesTest, FindsRenamedSelector) {
  copy_.bytes()[TextOf(Entry("class TokenSession", "- asHex:"))] = 'A';
  EXPECT_THAT(
      Check(),
      ElementsAre(
          "arm64: class TokenSession: expected - asHex: @24@0:8@16, got - AsHex: @24@0:8@16"));
}

TEST_F(SpoiledClassesTest, FindsChangedTypeEncoding) {
  Copy(Entry("class TokenSession", "- dealloc") + 8, Entry("class TokenSession", "- asHex:") + 8,
       8);
  EXPECT_THAT(
      Check(),
      ElementsAre("arm64: class TokenSession: expected - asHex: @24@0:8@16, got - asHex: v16@0:8"));
}

TEST_F(SpoiledClassesTest, FindsBoolOfTheOtherProcessor) {
  const size_t types = TextOf(Entry("class TSAuthOperation", "- finishWithError:") + 8);
  copy_.bytes()[types] = 'c';
  EXPECT_THAT(Check(), ElementsAre("arm64: class TSAuthOperation: expected - finishWithError: "
                                   "B24@0:8^@16, got - finishWithError: c24@0:8^@16"));
}

TEST_F(SpoiledClassesTest, FindsSwappedMethods) {
  const size_t sign = Entry("class TokenSession", "- tokenSession:signData:");
  const size_t decrypt = Entry("class TokenSession", "- tokenSession:decryptData:");
  const std::string kept = copy_.bytes().substr(sign, 24);
  Copy(decrypt, sign, 24);
  copy_.bytes().replace(decrypt, kept.size(), kept);
  const std::string signing =
      "- tokenSession:signData:usingKey:algorithm:error: @56@0:8@16@24@32@40^@48";
  const std::string decrypting =
      "- tokenSession:decryptData:usingKey:algorithm:error: @56@0:8@16@24@32@40^@48";
  EXPECT_THAT(Check(), ElementsAre("arm64: class TokenSession, line 10: expected " + signing +
                                       ", got " + decrypting,
                                   "arm64: class TokenSession, line 11: expected " + decrypting +
                                       ", got " + signing));
}

TEST_F(SpoiledClassesTest, FindsMissingMethod) {
  // The list of the category begins with the size of its entries and their number.
  copy_.PutWord(Entry("category TKTokenKeychainItem(KelvrinDataFormat)", "- setName:") - 4, 0);
  EXPECT_THAT(Check(), ElementsAre("arm64: category TKTokenKeychainItem(KelvrinDataFormat): "
                                   "expected - setName: v24@0:8@16, got none"));
}

TEST_F(SpoiledClassesTest, FindsRenamedInstanceVariable) {
  copy_.bytes()[TextOf(Entry("class TokenSession", "ivar _tsToken") + 8) + 1] = 'm';
  EXPECT_THAT(Check(), ElementsAre("arm64: class TokenSession: expected ivar _tsToken @\"Token\", "
                                   "got ivar _msToken @\"Token\""));
}

TEST_F(SpoiledClassesTest, FindsChangedPropertyAttributes) {
  copy_.bytes()[TextOf(Entry("class TokenSession", "property tsToken") + 8) + 10] = 'C';
  EXPECT_THAT(Check(),
              ElementsAre("arm64: class TokenSession: expected property tsToken "
                          "T@\"Token\",R,V_tsToken, got property tsToken T@\"Token\",C,V_tsToken"));
}

TEST_F(SpoiledClassesTest, FindsProtocolThatIsNotAdopted) {
  // class_ro_t's list of protocols begins with their number.
  const uint64_t list = image_.AddressAt(Named("class Token").address + 40);
  copy_.PutWord(Offset(list), 0);
  EXPECT_THAT(Check(), ElementsAre("arm64: expected class Token : TKSmartCardToken "
                                   "<TKTokenDelegate>, got class Token : TKSmartCardToken"));
}

TEST_F(SpoiledClassesTest, FindsProtocolThatRefinesNoOther) {
  const Metadata& protocol = Named("protocol TKTokenDriverDelegate");
  const uint64_t list = image_.AddressAt(protocol.address + 16);
  copy_.PutWord(Offset(list), 0);
  EXPECT_THAT(Check(), ElementsAre("arm64: expected protocol TKTokenDriverDelegate <NSObject>, got "
                                   "protocol TKTokenDriverDelegate"));
}

TEST_F(SpoiledClassesTest, FindsOtherSuperclass) {
  // One name, since class and metaclass are bound to their own symbols.
  copy_.Replace(kArchitecture, "_OBJC_CLASS_$_TKSmartCardTokenSession",
                "_OBJC_CLASS_$_TKSmartCardTokenSessiom");
  EXPECT_THAT(
      Check(),
      ElementsAre("arm64: expected class TokenSession : TKSmartCardTokenSession "
                  "<TKTokenSessionDelegate>, got class TokenSession : TKSmartCardTokenSessiom (of "
                  "the metaclass: TKSmartCardTokenSession) <TKTokenSessionDelegate>"));
}

TEST_F(SpoiledClassesTest, FindsRenamedCategory) {
  copy_.Replace(kArchitecture, "KelvrinDataFormat", "KelvrinDataFormal");
  EXPECT_THAT(
      Check(),
      ElementsAre("arm64: expected category TKTokenKeychainItem(KelvrinDataFormat), got none",
                  "arm64: expected no category TKTokenKeychainItem(KelvrinDataFormal)"));
}

TEST_F(SpoiledClassesTest, FindsChangedExtendedType) {
  // The same text with another class's name; the method list's plain type does not know it.
  copy_.Replace(kArchitecture, "v32@0:8@\"TKTokenDriver\"16@\"TKToken\"24",
                "v32@0:8@\"TKTokenDriven\"16@\"TKToken\"24");
  EXPECT_THAT(
      Check(),
      ElementsAre(
          "arm64: protocol TKTokenDriverDelegate: expected optional - tokenDriver:terminateToken: "
          "v32@0:8@\"TKTokenDriver\"16@\"TKToken\"24, got optional - tokenDriver:terminateToken: "
          "v32@0:8@\"TKTokenDriven\"16@\"TKToken\"24"));
}

TEST_F(SpoiledClassesTest, FindsPlainTypeThatDiffersFromTheExtendedOne) {
  Copy(Entry("class TokenSession", "- dealloc") + 8,
       Entry("protocol TKTokenDriverDelegate", "optional - tokenDriver:terminateToken:") + 8, 8);
  EXPECT_THAT(
      Check(),
      ElementsAre(
          "arm64: protocol TKTokenDriverDelegate: expected optional - tokenDriver:terminateToken: "
          "v32@0:8@\"TKTokenDriver\"16@\"TKToken\"24, got optional - tokenDriver:terminateToken: "
          "v32@0:8@\"TKTokenDriver\"16@\"TKToken\"24 (without names: v16@0:8)"));
}

TEST_F(SpoiledClassesTest, FindsNullWhereThereHasToBeAPointer) {
  const size_t name = Entry("class TokenSession", "- asHex:");
  copy_.bytes().replace(name, 8, std::string(8, '\0'));
  EXPECT_THAT(Check(),
              ElementsAre(testing::StartsWith("arm64: expected a pointer, got null at 0x")));
}

TEST_F(SpoiledClassesTest, FindsPointerThatTheLoaderLeavesAsItIs) {
  // category_t's list of protocols, of which there are none.
  const Metadata& category = Named("category TKTokenKeychainItem(KelvrinDataFormat)");
  copy_.PutWord(Offset(category.address + 32), 0x1000);
  EXPECT_THAT(Check(),
              ElementsAre(testing::StartsWith("arm64: expected a rebase, got none at 0x")));
}

TEST_F(SpoiledClassesTest, FindsMissingSlice) {
  // The universal header's count of slices, which begins with the x86-64 one.
  copy_.bytes()[7] = 1;
  EXPECT_THAT(Check(), ElementsAre("slices: expected x86_64, arm64, got x86_64"));
}

}  // namespace
}  // namespace kelvrin::macos
