// Listing slots and reading what is printed on them.
#include <cstdlib>
#include <memory>

#include "p11/bringup.h"
#include "tests/module/p11_fixture.h"

namespace {

using scripted::Effect;
using scripted::Function;
using testing::ElementsAre;
using testing::IsEmpty;

struct Free {
  void operator()(void* address) const { free(address); }
};
using SlotArray = std::unique_ptr<CK_SLOT_ID[], Free>;

class ListSlotsTest : public scripted::P11Test {
 protected:
  SlotArray List(CK_BBOOL token_present = CK_FALSE) {
    return SlotArray(list_slots(p11_, token_present, &count_));
  }

  CK_ULONG count_ = 0;
};

TEST_F(ListSlotsTest, FailedCountIsLoggedAndIgnored) {
  card_.AddSlot(4, "Reader A");
  module_.ReturnOnce(Function::C_GetSlotList, CKR_DEVICE_ERROR, Effect::kPerform);
  const SlotArray slots = List();
  EXPECT_THAT(Log(), ElementsAre("error: PKCS11 function C_GetSlotList(NULL) failed: rv = "
                                 "CKR_DEVICE_ERROR (0x30)"));
  EXPECT_THAT(module_.Texts(),
              ElementsAre("C_GetSlotList(0, NULL[0])", "C_GetSlotList(0, room[1])"));
  EXPECT_EQ(count_, 1u);
  EXPECT_EQ(slots[0], 4u);
}

TEST_F(ListSlotsTest, FailedListIsLoggedAndIgnored) {
  card_.AddSlot(4, "Reader A");
  module_.ReturnAt(Function::C_GetSlotList, 2, CKR_DEVICE_ERROR);
  const SlotArray slots = List();
  EXPECT_THAT(Log(), ElementsAre("error: PKCS11 function C_GetSlotList() failed: rv = "
                                 "CKR_DEVICE_ERROR (0x30)"));
  EXPECT_EQ(count_, 1u);
  EXPECT_EQ(slots[0], 0u);  // zero-filled
}

TEST_F(ListSlotsTest, BothCallsMayFail) {
  module_.Return(Function::C_GetSlotList, CKR_CRYPTOKI_NOT_INITIALIZED);
  const SlotArray slots = List();
  EXPECT_THAT(Log(), ElementsAre("error: PKCS11 function C_GetSlotList(NULL) failed: rv = "
                                 "CKR_CRYPTOKI_NOT_INITIALIZED (0x190)",
                                 "error: PKCS11 function C_GetSlotList() failed: rv = "
                                 "CKR_CRYPTOKI_NOT_INITIALIZED (0x190)"));
  EXPECT_EQ(count_, 0u);
}

TEST_F(ListSlotsTest, ListsIntoAZeroFilledArrayOfTheCallers) {
  card_.AddSlot(4, "Reader A");
  card_.AddSlot(9, "Reader B").token_present = false;
  const SlotArray slots = List();
  EXPECT_EQ(count_, 2u);
  EXPECT_EQ(slots[0], 4u);
  EXPECT_EQ(slots[1], 9u);
  ASSERT_EQ(wrapped::calls().calloc_count, 1u);
  EXPECT_EQ(wrapped::calls().callocs[0].address, slots.get());
  EXPECT_EQ(wrapped::calls().callocs[0].count * wrapped::calls().callocs[0].size, 16u);
  EXPECT_FALSE(wrapped::calls().callocs[0].freed);
  EXPECT_EQ(module_.At(Function::C_GetSlotList, 1).arguments[1].address, slots.get());
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(ListSlotsTest, HandsTheFlagToBothCalls) {
  card_.AddSlot(4, "Reader A");
  card_.AddSlot(9, "Reader B").token_present = false;
  const SlotArray slots = List(CK_TRUE);
  EXPECT_EQ(count_, 1u);
  EXPECT_THAT(module_.Texts(),
              ElementsAre("C_GetSlotList(1, NULL[0])", "C_GetSlotList(1, room[1])"));
}

TEST_F(ListSlotsTest, CountIsWhatTheSecondCallLeaves) {
  card_.slot_list_answers = {{CKR_OK, 3}, {CKR_OK, 1, {5}}};
  const SlotArray fewer = List();
  EXPECT_EQ(count_, 1u);
  count_ = 0;
  card_.slot_list_answers = {{CKR_OK, 1}, {CKR_BUFFER_TOO_SMALL, 3}};
  const SlotArray more = List();
  EXPECT_EQ(count_, 3u);
}

TEST_F(ListSlotsTest, NoSlotIsNoFailedAllocationEvenIfNothingIsAllocated) {
  wrapped::calls().empty_calloc_is_null = true;
  const SlotArray slots = List();
  EXPECT_EQ(slots, nullptr);
  EXPECT_EQ(count_, 0u);
  EXPECT_THAT(module_.Texts(),
              ElementsAre("C_GetSlotList(0, NULL[0])", "C_GetSlotList(0, NULL[0])"));
}

using ListSlotsDeathTest = ListSlotsTest;

TEST_F(ListSlotsDeathTest, FailedAllocationEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  card_.AddSlot(4, "Reader A");
  EXPECT_EXIT(
      {
        wrapped::calls().fail_calloc = 1;
        list_slots(p11_, CK_FALSE, &count_);
      },
      testing::ExitedWithCode(1), "^calloc failed: Cannot allocate memory\n$");
}

TEST_F(ListSlotsDeathTest, AbsurdCountEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  card_.slot_list_answers = {{CKR_OK, ~CK_ULONG{0} / 2}};
  EXPECT_EXIT(list_slots(p11_, CK_FALSE, &count_), testing::ExitedWithCode(1),
              "calloc failed: Cannot allocate memory\n");
}

class ReaderNameTest : public scripted::P11Test {
 protected:
  std::string description_ = std::string(66, '#');
};

TEST_F(ReaderNameTest, CopiesThe64BytesAsTheModulePadsThem) {
  card_.AddSlot(4, "Reader A");
  EXPECT_EQ(get_reader_name(p11_, 4, description_.data()), CKR_OK);
  EXPECT_EQ(description_, "Reader A" + std::string(56, ' ') + "##");
  EXPECT_THAT(module_.Texts(), ElementsAre("C_GetSlotInfo(4, out)"));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(ReaderNameTest, FullDescriptionIsNotTerminated) {
  card_.AddSlot(4, std::string(64, 'x'));
  EXPECT_EQ(get_reader_name(p11_, 4, description_.data()), CKR_OK);
  EXPECT_EQ(description_, std::string(64, 'x') + "##");
}

TEST_F(ReaderNameTest, FailureGivesZeros) {
  EXPECT_EQ(get_reader_name(p11_, 4, description_.data()), CKR_SLOT_ID_INVALID);
  EXPECT_EQ(description_, std::string(64, '\0') + "##");
  EXPECT_THAT(Log(), ElementsAre("error: PKCS11 function C_GetSlotInfo failed: rv = "
                                 "CKR_SLOT_ID_INVALID (0x3)"));
}

TEST_F(ReaderNameTest, WhatAFailingModuleWroteIsCopiedAllTheSame) {
  card_.AddSlot(4, "Reader A");
  module_.Return(Function::C_GetSlotInfo, CKR_DEVICE_ERROR, Effect::kPerform);
  EXPECT_EQ(get_reader_name(p11_, 4, description_.data()), CKR_DEVICE_ERROR);
  EXPECT_EQ(description_, "Reader A" + std::string(56, ' ') + "##");
}

TEST_F(ListSlotsTest, CountThatNoCallWritesIsTheCallers) {
  module_.Return(Function::C_GetSlotList, CKR_DEVICE_ERROR);
  count_ = 3;
  const SlotArray slots = List();
  EXPECT_EQ(count_, 3u);
  EXPECT_EQ(wrapped::calls().callocs[0].count * wrapped::calls().callocs[0].size, 24u);
}
TEST_F(ReaderNameTest, FailureShowsNothingOfTheSlotBefore) {
  card_.AddSlot(4, "Reader A");
  module_.ReturnAt(Function::C_GetSlotInfo, 2, CKR_DEVICE_ERROR);
  EXPECT_EQ(get_reader_name(p11_, 4, description_.data()), CKR_OK);
  EXPECT_EQ(get_reader_name(p11_, 4, description_.data()), CKR_DEVICE_ERROR);
  EXPECT_EQ(description_, std::string(64, 0) + "##");
}

}  // namespace
