#include "encoding/der.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace kelvrin::encoding {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// An element whose length is told by these bytes.
Bytes WithLength(const Bytes& length, std::size_t content_size) {
  Bytes bytes = {kDerOctetString};
  bytes.insert(bytes.end(), length.begin(), length.end());
  bytes.resize(bytes.size() + content_size, 7);
  return bytes;
}

bool IsTaken(const Bytes& bytes) {
  DerReader reader(bytes);
  return reader.Take().has_value();
}

TEST(DerReaderTest, TakesOneElementAfterTheOtherAndLeavesThoseWithAnotherTag) {
  const Bytes bytes = {0x02, 1, 5, 0x05, 0, 0x04, 2, 8, 9};
  DerReader reader(bytes);
  EXPECT_FALSE(reader.Take(kDerBoolean));
  const auto number = reader.Take(kDerInteger);
  ASSERT_TRUE(number);
  EXPECT_EQ(number->tag, kDerInteger);
  EXPECT_THAT(number->content, ElementsAre(5));
  EXPECT_THAT(number->whole, ElementsAre(2, 1, 5));
  const auto null = reader.Take();
  ASSERT_TRUE(null);
  EXPECT_EQ(null->tag, kDerNull);
  EXPECT_THAT(null->content, IsEmpty());
  EXPECT_FALSE(reader.IsAtEnd());
  const auto octets = reader.Take();
  ASSERT_TRUE(octets);
  EXPECT_THAT(octets->content, ElementsAre(8, 9));
  EXPECT_TRUE(reader.IsAtEnd());
  EXPECT_FALSE(reader.Take());
}

TEST(DerReaderTest, LengthsInTheirShortestFormAreTaken) {
  for (const auto& [length, size] :
       std::vector<std::pair<Bytes, std::size_t>>{{{0}, 0},
                                                  {{0x7f}, 0x7f},
                                                  {{0x81, 0x80}, 0x80},
                                                  {{0x81, 0xff}, 0xff},
                                                  {{0x82, 1, 0}, 0x100},
                                                  {{0x83, 1, 0, 0}, 0x10000}}) {
    EXPECT_TRUE(IsTaken(WithLength(length, size))) << size;
  }
}

TEST(DerReaderTest, OtherFormsOfLengthAndElementsThatRunPastTheEndAreRefused) {
  for (const Bytes& bytes : std::vector<Bytes>{
           WithLength({0x80}, 4),  // indefinite
           {0x30, 0x80, 0x05, 0, 0, 0},
           WithLength({0x81, 0x7f}, 0x7f),
           WithLength({0x82, 0, 0x80}, 0x80),
           WithLength({0x82, 0, 1}, 1),
           WithLength({0x81, 0}, 0),
           {},
           {0x04},
           {0x04, 1},
           {0x04, 0x81},
           {0x04, 0x82, 1},
           WithLength({0x7f}, 0x7e),
           WithLength({0x81, 0x80}, 0x7f),
           WithLength({0x88, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff}, 20),
           WithLength({0x88, 0x80, 0, 0, 0, 0, 0, 0, 0}, 20),
           WithLength({0x89, 1, 0, 0, 0, 0, 0, 0, 0, 0x85}, 0x85),
           WithLength({0xfe}, 200),
           WithLength({0xff}, 200),
       }) {
    DerReader reader(bytes);
    EXPECT_FALSE(reader.Take()) << testing::PrintToString(bytes);
    EXPECT_EQ(reader.IsAtEnd(), bytes.empty()) << "something was taken";
  }
}

TEST(DerReaderTest, TagsOfSeveralBytesAndNoTagAreRefused) {
  for (const unsigned char tag : Bytes{0x00, 0x1f, 0x3f, 0x9f, 0xbf, 0xff}) {
    EXPECT_FALSE(IsTaken({tag, 0, 0, 0})) << int{tag};
  }
}

TEST(DerReaderTest, OnlyElementFillsTheBytes) {
  const Bytes bytes = {0x30, 2, 0x05, 0};
  const auto element = ReadOnlyElement(kDerSequence, bytes);
  ASSERT_TRUE(element);
  EXPECT_THAT(element->content, ElementsAre(5, 0));
  EXPECT_FALSE(ReadOnlyElement(kDerSet, bytes));
  EXPECT_FALSE(ReadOnlyElement(kDerSequence, Bytes{0x30, 2, 0x05, 0, 0}));
  EXPECT_FALSE(ReadOnlyElement(kDerSequence, {}));
}

TEST(DerIntegerTest, HasItsShortestFormAndPositiveOnesLoseTheirSign) {
  struct Row {
    Bytes content;
    bool is_integer;
    Bytes positive = {};  // empty: it is not above zero
  };
  for (const Row& row :
       {Row{{0}, true}, Row{{1}, true, {1}}, Row{{0x7f}, true, {0x7f}}, Row{{1, 0}, true, {1, 0}},
        Row{{0, 0x80}, true, {0x80}}, Row{{0, 0x80, 0}, true, {0x80, 0}}, Row{{0x80}, true},
        Row{{0xff}, true}, Row{{0xff, 0x7f}, true}, Row{{0x80, 0xff}, true}, Row{{}, false},
        Row{{0, 0}, false}, Row{{0, 0x7f}, false}, Row{{0xff, 0x80}, false},
        Row{{0xff, 0xff}, false}, Row{{0, 0, 0x80}, false}}) {
    EXPECT_EQ(IsDerInteger(row.content), row.is_integer) << testing::PrintToString(row.content);
    const auto positive = ReadPositiveInteger(row.content);
    EXPECT_EQ(positive ? Bytes(positive->begin(), positive->end()) : Bytes(), row.positive)
        << testing::PrintToString(row.content);
    EXPECT_EQ(positive.has_value(), !row.positive.empty());
  }
}

TEST(ObjectIdentifierTest, ConsistsOfWholeNumbers) {
  for (const auto& [content, expected] :
       std::vector<std::pair<Bytes, bool>>{{{0x2a}, true},
                                           {{0x2a, 0x86, 0x48}, true},
                                           {{0x81, 0x80, 0x01}, true},
                                           {{}, false},
                                           {{0x86}, false},
                                           {{0x2a, 0x86}, false},
                                           {{0x80, 0x01}, false},
                                           {{0x2a, 0x80, 0x01}, false}}) {
    EXPECT_EQ(IsObjectIdentifier(content), expected) << testing::PrintToString(content);
  }
}

TEST(BitStringTest, BeginsWithTheBitsThatDoNotCount) {
  const Bytes five = {5, 0xe0};
  const auto bits = ReadBitString(five);
  ASSERT_TRUE(bits);
  EXPECT_EQ(bits->unused, 5u);
  EXPECT_THAT(bits->bytes, ElementsAre(0xe0));
  EXPECT_TRUE(ReadBitString(Bytes{0}));
  EXPECT_FALSE(ReadBitString({}));
  EXPECT_FALSE(ReadBitString(Bytes{1})) << "none of no bits";
  EXPECT_FALSE(ReadBitString(Bytes{8, 0xff}));
}

}  // namespace
}  // namespace kelvrin::encoding
