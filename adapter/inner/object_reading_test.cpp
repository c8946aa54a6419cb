#include "adapter/inner/object_reading.h"

#include "adapter/testing/card_fixture.h"
#include "tests/module/faults.h"

namespace kelvrin::adapter {
namespace {

class ObjectReadingTest : public CardTest {
 protected:
  const CK_OBJECT_HANDLE object_ = Add(CKO_DATA, {1, 2, 3}, {{CKA_LABEL, {}}});
};

TEST_F(ObjectReadingTest, WhatTheModuleDoesNotHandOutIsNothing) {
  for (const bool leaves_lengths : {false, true}) {
    if (leaves_lengths) faults::LeavesLengths(module);
    EXPECT_FALSE(ReadAttribute(inner_, session_, object_, CKA_VALUE, 10));
    EXPECT_FALSE(ReadNumber(inner_, session_, object_, CKA_KEY_TYPE));
    EXPECT_FALSE(ReadLength(inner_, session_, object_, CKA_VALUE));
  }
  EXPECT_FALSE(ReadAttribute(inner_, session_, object_, CKA_ID, 2)) << "longer than the room";
  EXPECT_FALSE(ReadNumber(inner_, session_, object_, CKA_ID)) << "no number's length";
}

TEST_F(ObjectReadingTest, BytesNumbersAndLengthsAreReadInOneCallEach) {
  EXPECT_EQ(ReadAttribute(inner_, session_, object_, CKA_ID, 3), (Bytes{1, 2, 3}));
  EXPECT_EQ(ReadAttribute(inner_, session_, object_, CKA_LABEL, 3), Bytes());
  EXPECT_EQ(ReadNumber(inner_, session_, object_, CKA_CLASS), CKO_DATA);
  EXPECT_EQ(ReadLength(inner_, session_, object_, CKA_ID), 3u);
  EXPECT_EQ(module.Count(), 4u);
}

TEST_F(ObjectReadingTest, NumbersAreReadWithExactlyTheirRoom) {
  faults::WantsExactRoom(module);
  EXPECT_EQ(ReadNumber(inner_, session_, object_, CKA_CLASS), CKO_DATA);
}

TEST_F(ObjectReadingTest, LengthsThatTheModuleMakesUpAreNotBelieved) {
  for (const CK_ULONG length : {CK_ULONG{11}, CK_ULONG{CK_UNAVAILABLE_INFORMATION}}) {
    module.over = {};
    faults::Spoils(module, [=](auto*, CK_ATTRIBUTE& attribute, CK_ULONG, CK_RV) {
      attribute.ulValueLen = length;
      return CK_RV{CKR_OK};
    });
    EXPECT_FALSE(ReadAttribute(inner_, session_, object_, CKA_ID, 10));
    EXPECT_FALSE(ReadNumber(inner_, session_, object_, CKA_CLASS));
  }
  EXPECT_FALSE(ReadLength(inner_, session_, object_, CKA_ID));
}

}  // namespace
}  // namespace kelvrin::adapter
