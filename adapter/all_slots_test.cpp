// Slots without the rule one-slot.
#include <gtest/gtest.h>

#include <array>
#include <iterator>
#include <string>
#include <vector>

#include "adapter/testing/slots_fixture.h"

namespace kelvrin::adapter {
namespace {

class AllSlotsTest : public SlotsTest {
 protected:
  AllSlotsTest() {
    config_.rules.SwitchOff(Rule::kOneSlot);
    fake_.slots = {{.id = 3, .label = " A", .padding = 0}, {.id = 4, .token_flags = 0}, {.id = 7}};
  }
};

TEST_F(AllSlotsTest, AreListedWhateverIsConfigured) {
  config_.token_label = "none such";
  config_.slot_reader = "none such";
  const std::vector<CK_SLOT_ID> all = {3, 4, 7};
  EXPECT_EQ(Shown(), all);
  EXPECT_EQ(Told(), "");
}

TEST_F(AllSlotsTest, AreListedWithTheCallersFlag) {
  static CK_BBOOL flag;
  functions_.C_GetSlotList = [](CK_BBOOL token_present, CK_SLOT_ID*, CK_ULONG* count) {
    flag = token_present;
    *count = 0;
    return CK_RV{CKR_OK};
  };
  for (const CK_BBOOL expected : {CK_BBOOL{CK_TRUE}, CK_BBOOL{CK_FALSE}}) {
    CK_ULONG count = 9;
    flag = 99;
    EXPECT_EQ(slots_.GetSlotList(expected, nullptr, &count), CKR_OK);
    EXPECT_EQ(flag, expected);
    EXPECT_EQ(count, 0u);
  }
}

TEST_F(AllSlotsTest, ArePassedByEveryCheck) {
  for (const CK_SLOT_ID slot : {3u, 4u, 7u, 1000u}) EXPECT_EQ(slots_.Check(slot), CKR_OK);
  EXPECT_EQ(fake_.Calls("C_GetSlotList"), 0u);
}

TEST_F(AllSlotsTest, AreDescribedAsTheModuleDoes) {
  config_.reader_name = "Reader B";
  config_.serial_in_label = true;
  CK_SLOT_INFO slot = {};
  EXPECT_EQ(slots_.GetSlotInfo(3, &slot), CKR_OK);
  EXPECT_EQ(std::string(slot.slotDescription, std::end(slot.slotDescription)),
            "Fake reader" + std::string(53, '\0'));
  CK_TOKEN_INFO token = {};
  EXPECT_EQ(slots_.GetTokenInfo(3, &token), CKR_OK);
  EXPECT_EQ(std::string(token.label, std::end(token.label)), " A" + std::string(30, '\0'));
  EXPECT_EQ(slots_.GetTokenInfo(1000, &token), CKR_SLOT_ID_INVALID);
}

TEST_F(AllSlotsTest, RoomThatIsTooSmallLeavesTheListAlone) {
  std::array<CK_SLOT_ID, 2> list = {100, 101};
  for (const CK_ULONG room : {0u, 2u}) {
    CK_ULONG count = room;
    EXPECT_EQ(slots_.GetSlotList(CK_FALSE, list.data(), &count), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(count, 3u);
  }
  EXPECT_EQ(list[0], 100u);
  EXPECT_EQ(list[1], 101u);
}

TEST_F(AllSlotsTest, MoreRoomThanSlotsIsFilledInPart) {
  std::array<CK_SLOT_ID, 4> list = {};
  list.fill(99);
  CK_ULONG count = list.size();
  EXPECT_EQ(slots_.GetSlotList(CK_FALSE, list.data(), &count), CKR_OK);
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(list, (std::array<CK_SLOT_ID, 4>{3, 4, 7, 99}));
}

TEST_F(AllSlotsTest, FailureToListThemLeavesTheCountAlone) {
  CK_ULONG count = 5;
  EXPECT_EQ(slots_.GetSlotList(CK_TRUE, nullptr, nullptr), CKR_ARGUMENTS_BAD);
  fake_.FailNext("C_GetSlotList", CKR_DEVICE_REMOVED);
  EXPECT_EQ(slots_.GetSlotList(CK_TRUE, nullptr, &count), CKR_DEVICE_REMOVED);
  EXPECT_EQ(count, 5u);
}

TEST_F(AllSlotsTest, CountThatCannotBeTrueIsNotBelieved) {
  functions_.C_GetSlotList = [](CK_BBOOL, CK_SLOT_ID* list, CK_ULONG* count) {
    *count = list == nullptr ? CK_ULONG{1} << 40 : *count + 1;
    return CK_RV{CKR_OK};
  };
  std::array<CK_SLOT_ID, 2> list = {100, 101};
  CK_ULONG count = 2;
  EXPECT_EQ(slots_.GetSlotList(CK_TRUE, nullptr, &count), CKR_DEVICE_ERROR);
  EXPECT_EQ(slots_.GetSlotList(CK_TRUE, list.data(), &count), CKR_DEVICE_ERROR);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(list[0], 100u);
}

}  // namespace
}  // namespace kelvrin::adapter
