// Object IDs there and back.
#import "token/ObjectId.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>

#include <numeric>

#include "token/testing/token_fixture.h"

namespace {

using scripted::Bytes;
using token_testing::BytesOf;
using token_testing::Data;

class ObjectIdTest : public testing::Test {
 protected:
  ObjectIdTest() { wrapped::Reset(); }
  ~ObjectIdTest() override { wrapped::Reset(); }

  token_testing::Pool pool_;
};

// 1, 2, 3, ... so that a byte in the wrong place shows.
Bytes Counting(size_t size) {
  Bytes bytes(size);
  std::iota(bytes.begin(), bytes.end(), CK_BYTE{1});
  return bytes;
}

// An object ID of this size whose bytes from the 513th on are given.
Bytes ObjectIdWithTail(const Bytes &tail) {
  Bytes bytes = Counting(512);
  bytes.insert(bytes.end(), tail.begin(), tail.end());
  return bytes;
}

Bytes Id(const ObjectIdBuffer &record) { return Bytes(record.bytes, record.bytes + record.length); }

// The first bytes of the record, whatever its length says.
Bytes Front(const ObjectIdBuffer &record, size_t size) {
  return Bytes(record.bytes, record.bytes + size);
}

Bytes From1(const Bytes &bytes, size_t size) {
  return Bytes(bytes.begin() + 1, bytes.begin() + 1 + static_cast<ptrdiff_t>(size));
}

TEST_F(ObjectIdTest, KindsAreOneForCertificatesAndTwoForKeys) {
  EXPECT_EQ(kObjectKindCertificate, 1);
  EXPECT_EQ(kObjectKindKey, 2);
}

TEST_F(ObjectIdTest, KindByteComesBeforeTheUnchangedId) {
  const Bytes id = {0x00, 0xFF, 0x4A, 0x00};
  EXPECT_EQ(BytesOf(idToData(1, id.data(), id.size())), (Bytes{1, 0x00, 0xFF, 0x4A, 0x00}));
  EXPECT_EQ(BytesOf(idToData(2, id.data(), id.size())), (Bytes{2, 0x00, 0xFF, 0x4A, 0x00}));
}

TEST_F(ObjectIdTest, EmptyIdGivesTheKindByteAlone) {
  const CK_BYTE byte = 0x55;
  EXPECT_EQ(BytesOf(idToData(2, &byte, 0)), Bytes{0x02});
}

TEST_F(ObjectIdTest, OnlyTheLowEightBitsOfTheKindCount) {
  const CK_BYTE byte = 7;
  EXPECT_EQ(BytesOf(idToData(0x102, &byte, 1)), (Bytes{0x02, 7}));
  EXPECT_EQ(BytesOf(idToData(-1, &byte, 1)), (Bytes{0xFF, 7}));
  EXPECT_EQ(BytesOf(idToData(0x7FFFFF00, &byte, 1)), (Bytes{0x00, 7}));
}

TEST_F(ObjectIdTest, NullIdGivesNil) {
  EXPECT_EQ(idToData(1, nullptr, 0), nil);
  EXPECT_EQ(idToData(1, nullptr, 5), nil);
}

TEST_F(ObjectIdTest, NoMemoryGivesNil) {
  const CK_BYTE byte = 7;
  wrapped::calls().fail_malloc = 1;
  EXPECT_EQ(idToData(1, &byte, 1), nil);
  EXPECT_EQ(wrapped::calls().fail_malloc, 0u);
  EXPECT_EQ(BytesOf(idToData(1, &byte, 1)), (Bytes{1, 7}));
}

TEST_F(ObjectIdTest, MoreBytesThanCanBeCountedGiveNil) {
  const CK_BYTE byte = 7;
  EXPECT_EQ(idToData(1, &byte, SIZE_MAX), nil);
}

TEST_F(ObjectIdTest, LaterChangesOfTheIdDoNotReachTheObjectId) {
  Bytes id = {1, 2, 3};
  NSData *data = idToData(2, id.data(), id.size());
  id.assign(3, 0);
  EXPECT_EQ(BytesOf(data), (Bytes{2, 1, 2, 3}));
}

TEST_F(ObjectIdTest, IdComesBackWhateverTheKind) {
  const Bytes id = {0x4A, 0x00, 0x17};
  for (int kind : {1, 2, 0, 0xFF}) {
    EXPECT_EQ(Id(dataToId(idToData(kind, id.data(), id.size()))), id) << kind;
  }
}

TEST_F(ObjectIdTest, EveryIdThatTheRecordHoldsComesBack) {
  for (size_t size = 0; size <= 511; ++size) {
    const Bytes id = Counting(size + 1);  // never null
    const ObjectIdBuffer record = dataToId(idToData(2, id.data(), size));
    EXPECT_EQ(Id(record), Counting(size));
  }
}

TEST_F(ObjectIdTest, EmptyObjectIdGivesLengthZero) {
  EXPECT_EQ(dataToId([NSData data]).length, 0u);
  EXPECT_EQ(dataToId(nil).length, 0u);
}

TEST_F(ObjectIdTest, KindByteAloneGivesLengthZero) { EXPECT_EQ(dataToId(Data({0x02})).length, 0u); }

TEST_F(ObjectIdTest, FullRecordGivesOneByteLess) {
  const Bytes bytes = Counting(512);
  const ObjectIdBuffer record = dataToId(Data(bytes));
  EXPECT_EQ(record.length, 511u);
  EXPECT_EQ(Id(record), From1(bytes, 511));
}

// The 513th byte becomes the low byte of the length 513 (0x0201) that was stored before the copy.
TEST_F(ObjectIdTest, The513thByteOverwritesTheLowByteOfTheLength) {
  const Bytes none = ObjectIdWithTail({0x00});
  EXPECT_EQ(dataToId(Data(none)).length, 0x200u - 1);
  EXPECT_EQ(Id(dataToId(Data(none))), From1(none, 511));

  const ObjectIdBuffer most = dataToId(Data(ObjectIdWithTail({0xFF})));
  EXPECT_EQ(most.length, 0x2FFu - 1);
  EXPECT_EQ(Front(most, 511), From1(none, 511));
  EXPECT_EQ(most.bytes[511], 0xFE) << "the length's own low byte";
}

// What the 513th byte and those behind it make of the length, and how far the ID moves for that:
// never out of the record, and not at all for a length of 0.
TEST_F(ObjectIdTest, MoreBytesOverwriteMoreOfTheLength) {
  const struct {
    Bytes tail;
    CK_ULONG length;
    Bytes id;
  } kRows[] = {{{0x03, 0x00}, 2, From1(Counting(512), 2)},
               {{0x05, 0, 0, 0, 0, 0, 0x01}, 0x01000000000005u - 1, From1(Counting(512), 511)},
               {{0x05, 0, 0, 0, 0, 0, 0, 0x80}, 0x8000000000000005u - 1, From1(Counting(512), 511)},
               {{1, 0, 0, 0, 0, 0, 0, 0}, 0, {}},
               {Bytes(8, 0), 0, Counting(512)},
               {Bytes(8, 0xFF), static_cast<CK_ULONG>(-2), From1(Counting(512), 511)}};
  for (const auto &[tail, length, id] : kRows) {
    const ObjectIdBuffer record = dataToId(Data(ObjectIdWithTail(tail)));
    EXPECT_EQ(record.length, length);
    EXPECT_EQ(Front(record, id.size()), id);
  }
}

using ObjectIdDeathTest = ObjectIdTest;

TEST_F(ObjectIdDeathTest, MoreBytesThanTheRecordEndTheProcess) {
  for (size_t size : {521U, 522U, 4096U}) {
    EXPECT_EXIT(dataToId(Data(Counting(size))), testing::KilledBySignal(SIGABRT), "^$") << size;
  }
}

}  // namespace
