#include "tests/macos/code_signature.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <llvm/Support/Endian.h>

#include <stdexcept>

#include "tests/macos/testing/built_binaries.h"
#include "tests/macos/testing/spoiled_copy.h"

namespace kelvrin::macos {
namespace {

using testing::ElementsAre;
using testing::MatchesRegex;
using testing::ThrowsMessage;

class CodeSignatureTest : public testing::Test {
 protected:
  CodeSignatureTest() {
    const MachOFile file(Extension().path);
    arm64_ = ReadCodeSignature(file.slices().at(1));
    signature_ = copy_.Begin("arm64") + arm64_.begin;
    directory_ = signature_ + Word(signature_ + 16);
  }

  uint32_t Word(size_t offset) {
    return llvm::support::endian::read32be(copy_.bytes().data() + offset);
  }
  void PutWord(size_t offset, uint32_t value) {
    llvm::support::endian::write32be(copy_.bytes().data() + offset, value);
  }
  Findings Check() { return CheckCodeSignature(copy_.Open()); }

  SpoiledCopy copy_{Extension().path};
  CodeSignature arm64_;
  size_t signature_ = 0;  // in the copy
  size_t directory_ = 0;  // in the copy
};

TEST_F(CodeSignatureTest, FindsAFlippedBitInAPage) {
  const size_t text = copy_.Section("arm64", "__cstring");
  copy_.bytes()[text] ^= 1;
  const size_t page = (text - copy_.Begin("arm64")) / arm64_.directory.page_size;
  EXPECT_THAT(Check(), ElementsAre("arm64: page " + std::to_string(page) + " has another hash"));
}

TEST_F(CodeSignatureTest, FindsAFlippedBitInTheOtherSlice) {
  copy_.bytes()[copy_.Section("x86_64", "__cstring")] ^= 1;
  EXPECT_THAT(Check(), ElementsAre(MatchesRegex("x86_64: page [0-9]+ has another hash")));
}

TEST_F(CodeSignatureTest, FindsAFlippedBitInTheLastPage) {
  copy_.bytes()[signature_ - 1] ^= 0x40;
  const size_t pages = arm64_.directory.page_hashes.size();
  EXPECT_THAT(Check(),
              ElementsAre("arm64: page " + std::to_string(pages - 1) + " has another hash"));
}

TEST_F(CodeSignatureTest, FindsAFlippedBitInAHash) {
  copy_.bytes()[directory_ + Word(directory_ + 16) + 31] ^= 1;
  EXPECT_THAT(Check(), ElementsAre("arm64: page 0 has another hash"));
}

TEST_F(CodeSignatureTest, FindsAHashThatIsMissing) {
  PutWord(directory_ + 28, Word(directory_ + 28) - 1);
  EXPECT_THAT(Check(),
              ElementsAre(MatchesRegex("arm64: number of pages: expected [0-9]+, got [0-9]+")));
}

TEST_F(CodeSignatureTest, FindsAnotherIdentifier) {
  copy_.bytes()[directory_ + Word(directory_ + 20)] = 'k';
  EXPECT_THAT(Check(), ElementsAre("arm64: identifier: expected KelvrinToken, got kelvrinToken"));
}

TEST_F(CodeSignatureTest, FindsAnotherCodeLimit) {
  // The last page is not full, so that the number of pages stays.
  PutWord(directory_ + 32, Word(directory_ + 32) - 1);
  const size_t pages = arm64_.directory.page_hashes.size();
  EXPECT_THAT(Check(),
              ElementsAre(MatchesRegex("arm64: code limit: expected [0-9]+, got [0-9]+"),
                          "arm64: page " + std::to_string(pages - 1) + " has another hash"));
}

TEST_F(CodeSignatureTest, FindsWhatIsNotAdHoc) {
  PutWord(directory_ + 12, llvm::MachO::CS_RUNTIME);
  EXPECT_THAT(Check(), ElementsAre("arm64: signature's flags: expected 131074, got 65536"));
}

TEST_F(CodeSignatureTest, FindsAnotherKindOfHash) {
  copy_.bytes()[directory_ + 37] = llvm::MachO::CS_HASHTYPE_SHA1;
  EXPECT_THAT(Check(), ElementsAre("arm64: hash type: expected 2, got 1"));
}

TEST_F(CodeSignatureTest, FindsAMissingPageSize) {
  copy_.bytes()[directory_ + 39] = 0;
  EXPECT_THAT(Check(),
              ElementsAre("arm64: page size: expected one of 4096, 8192, 16384, got none"));
}

TEST_F(CodeSignatureTest, FindsAnotherExecutableSegment) {
  copy_.bytes()[directory_ + 79] ^= 1;  // the lowest byte of its size
  EXPECT_THAT(Check(),
              ElementsAre(MatchesRegex("arm64: executable segment: expected 0 .*, got 0 .*")));
}

TEST_F(CodeSignatureTest, FindsASegmentThatIsNotTheExecutables) {
  copy_.bytes()[directory_ + 87] = 0;
  EXPECT_THAT(Check(), ElementsAre("arm64: executable segment's flags: expected 1, got 0"));
}

TEST_F(CodeSignatureTest, FindsACertificate) {
  PutWord(signature_ + 8, 2);
  PutWord(signature_ + 20, llvm::MachO::CSSLOT_SIGNATURESLOT);  // what the padding becomes
  EXPECT_THAT(Check(), ElementsAre("arm64: signature's blobs: expected 0, got 0, 65536"));
}

TEST_F(CodeSignatureTest, RefusesASliceWithoutASignature) {
  copy_.PutWord(copy_.Command("x86_64", llvm::MachO::LC_CODE_SIGNATURE), 0x7f);
  EXPECT_THAT([this] { Check(); }, ThrowsMessage<std::runtime_error>("x86_64: no code signature"));
}

TEST_F(CodeSignatureTest, RefusesASignatureBeforeTheEndOfTheSlice) {
  const size_t size = copy_.Command("arm64", llvm::MachO::LC_CODE_SIGNATURE) + 12;
  copy_.PutWord(size, copy_.Word(size) - 16);
  EXPECT_THAT([this] { Check(); },
              ThrowsMessage<std::runtime_error>("code signature: not the end of the slice"));
}

TEST_F(CodeSignatureTest, RefusesADirectoryOfAnOldVersion) {
  PutWord(directory_ + 8, llvm::MachO::CS_SUPPORTSEXECSEG - 1);
  EXPECT_THAT([this] { Check(); },
              ThrowsMessage<std::runtime_error>("code signature: old version"));
}

TEST_F(CodeSignatureTest, RefusesADamagedSignature) {
  copy_.bytes()[directory_] ^= 1;
  EXPECT_THROW(Check(), std::runtime_error);
}

TEST_F(CodeSignatureTest, RefusesADirectoryThatIsLongerThanTheSignature) {
  PutWord(directory_ + 4, 0x7fffffff);
  EXPECT_THROW(Check(), std::runtime_error);
}

}  // namespace
}  // namespace kelvrin::macos
