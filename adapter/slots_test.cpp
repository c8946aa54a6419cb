// The one slot that is shown.
#include "adapter/slots.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "adapter/testing/slots_fixture.h"

namespace kelvrin::adapter {
namespace {

TEST_F(SlotsTest, FailureOfTheModulesListIsPassedOn) {
  fake_.FailNext("C_GetSlotList", CKR_DEVICE_REMOVED);
  CK_ULONG count = 5;
  EXPECT_EQ(slots_.GetSlotList(CK_TRUE, nullptr, &count), CKR_DEVICE_REMOVED);
  EXPECT_EQ(count, 5u);
  fake_.FailNext("C_GetSlotList", CKR_DEVICE_REMOVED);
  EXPECT_EQ(slots_.Check(7), CKR_DEVICE_REMOVED);
}

TEST_F(SlotsTest, CountWithoutPlaceIsRefused) {
  EXPECT_EQ(slots_.GetSlotList(CK_TRUE, nullptr, nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(slots_.GetSlotInfo(7, nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(slots_.GetTokenInfo(7, nullptr), CKR_ARGUMENTS_BAD);
  EXPECT_EQ(slots_.GetMechanismList(7, nullptr, nullptr), CKR_ARGUMENTS_BAD);
}

TEST_F(SlotsTest, CountThatCannotBeTrueIsNotBelieved) {
  fake_.claimed_excess = CK_ULONG{1} << 40;
  CK_ULONG count = 0;
  EXPECT_EQ(slots_.GetSlotList(CK_TRUE, nullptr, &count), CKR_DEVICE_ERROR);
}

TEST_F(SlotsTest, RoomForNoSlotIsTooSmallAndLeavesTheListAlone) {
  CK_SLOT_ID list = 1234;
  CK_ULONG count = 0;
  EXPECT_EQ(slots_.GetSlotList(CK_TRUE, &list, &count), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(list, 1234u);
}

TEST_F(SlotsTest, WithoutAnyInitialisedTokenNoSlotIsShown) {
  fake_.slots[0].token_flags = 0;
  EXPECT_TRUE(Shown().empty());
  EXPECT_EQ(slots_.Check(7), CKR_SLOT_ID_INVALID);
}

TEST_F(SlotsTest, SlotWhoseTokenCannotBeReadIsPassedOver) {
  fake_.slots = {{.id = 3}, {.id = 4}};
  fake_.FailNext("C_GetTokenInfo", CKR_TOKEN_NOT_RECOGNIZED);
  EXPECT_EQ(Shown(), std::vector<CK_SLOT_ID>{4});
}

TEST_F(SlotsTest, ShowsTheFirstSlotWithAnInitialisedToken) {
  fake_.slots = {{.id = 3, .token_flags = 0}, {.id = 4}, {.id = 5}};
  EXPECT_EQ(Shown(), std::vector<CK_SLOT_ID>{4});
  EXPECT_EQ(slots_.Check(4), CKR_OK);
  EXPECT_EQ(slots_.Check(5), CKR_SLOT_ID_INVALID);
}

TEST_F(SlotsTest, ShowsTheSlotOfTheConfiguredToken) {
  fake_.slots = {{.id = 3, .label = "A", .serial = "1"},
                 {.id = 4, .label = "B", .serial = "1"},
                 {.id = 5, .label = "B", .serial = "2"}};
  config_.token_label = "B";
  EXPECT_EQ(Shown(), std::vector<CK_SLOT_ID>{4});
  config_.token_serial = "2";
  EXPECT_EQ(Shown(), std::vector<CK_SLOT_ID>{5});
  config_.token_label = "A";
  EXPECT_TRUE(Shown().empty());
  config_.token_label.clear();
  EXPECT_EQ(Shown(), std::vector<CK_SLOT_ID>{5});
}

TEST_F(SlotsTest, ShowsTheSlotWhoseDescriptionContainsTheText) {
  fake_.slots = {{.id = 3, .description = "Reader 00"},
                 {.id = 4, .description = "Reader 01", .token_flags = 0},
                 {.id = 5, .description = "Reader 01", .label = "A"},
                 {.id = 6, .description = "Reader 01", .label = "B", .padding = 0}};
  config_.slot_reader = "er 01";
  EXPECT_EQ(Shown(), std::vector<CK_SLOT_ID>{5});
  config_.token_label = "B";
  EXPECT_EQ(Shown(), std::vector<CK_SLOT_ID>{6});
  config_.token_serial = "9";
  EXPECT_TRUE(Shown().empty());
  config_ = {};
  config_.slot_reader = "ER 01";
  EXPECT_TRUE(Shown().empty());
}

TEST_F(SlotsTest, SlotWhoseDescriptionCannotBeReadIsPassedOver) {
  fake_.slots = {{.id = 3, .description = "Reader"}, {.id = 4, .description = "Reader"}};
  config_.slot_reader = "Reader";
  fake_.FailNext("C_GetSlotInfo", CKR_DEVICE_ERROR);
  EXPECT_EQ(Shown(), std::vector<CK_SLOT_ID>{4});
}

TEST_F(SlotsTest, TextsPaddedInFrontMatch) {
  fake_.slots[0].serial = "        47110815";
  fake_.slots[0].label = "  my card";
  config_.token_serial = "47110815";
  config_.token_label = "my card";
  EXPECT_EQ(Shown(), std::vector<CK_SLOT_ID>{7});
}

TEST_F(SlotsTest, ConfiguredLabelMatchesAsAWholeAndWithAnyPadding) {
  fake_.slots = {{.id = 3, .label = "4711 0815 x"}, {.id = 4, .label = "4711 0815", .padding = 0}};
  config_.token_label = "4711 0815";
  EXPECT_EQ(Shown(), std::vector<CK_SLOT_ID>{4});
}

TEST_F(SlotsTest, AskingForTheNumberChoosesAnew) {
  EXPECT_EQ(Shown(), std::vector<CK_SLOT_ID>{7});
  fake_.slots = {{.id = 9}};
  EXPECT_EQ(slots_.Check(7), CKR_OK);
  EXPECT_EQ(Shown(), std::vector<CK_SLOT_ID>{9});
}

TEST_F(SlotsTest, SlotInfoFailureLeavesTheRecordAlone) {
  CK_SLOT_INFO info = {};
  info.flags = 77;
  EXPECT_EQ(slots_.GetSlotInfo(8, &info), CKR_SLOT_ID_INVALID);
  fake_.FailNext("C_GetSlotInfo", CKR_DEVICE_ERROR);
  EXPECT_EQ(slots_.GetSlotInfo(7, &info), CKR_DEVICE_ERROR);
  EXPECT_EQ(info.flags, 77u);
}

TEST_F(SlotsTest, DescriptionIsTheReaderNamePaddedWithBlanks) {
  config_.reader_name = "Reader B";
  EXPECT_EQ(Description(), Padded("Reader B", 64));
}

TEST_F(SlotsTest, DescriptionWithoutReaderNameIsTheModulesPaddedWithBlanks) {
  fake_.slots[0].description = "NUL padded";
  fake_.slots[0].padding = 0;
  EXPECT_EQ(Description(), Padded("NUL padded", 64));
}

TEST_F(SlotsTest, LabelWithAFirstWordStays) {
  fake_.slots[0].label = "4711 0815";
  EXPECT_EQ(Label(), Padded("4711 0815", 32));
}

TEST_F(SlotsTest, LabelWithoutFirstWordGetsTheSerialNumberInFront) {
  fake_.slots[0].serial = "SN5";
  fake_.slots[0].label = "";
  EXPECT_EQ(Label(), Padded("SN5", 32));
  fake_.slots[0].label = "  my card";
  EXPECT_EQ(Label(), Padded("SN5 my card", 32));
  fake_.slots[0].label = "\tcard";
  EXPECT_EQ(Label(), Padded("SN5 card", 32));
  fake_.slots[0].label = "";
  fake_.slots[0].padding = 0;
  EXPECT_EQ(Label(), Padded("SN5", 32));
  fake_.slots[0].label = " " + std::string(31, 'x');
  EXPECT_EQ(Label(), "SN5 " + std::string(28, 'x'));
}

TEST_F(SlotsTest, SerialNumberGoesInFrontOfEveryLabelOnRequest) {
  config_.serial_in_label = true;
  fake_.slots[0].serial = "SN5";
  fake_.slots[0].label = "4711 0815";
  EXPECT_EQ(Label(), Padded("SN5 4711 0815", 32));
  fake_.slots[0].label = " my card";
  EXPECT_EQ(Label(), Padded("SN5 my card", 32));
  fake_.slots[0].label = "";
  EXPECT_EQ(Label(), Padded("SN5", 32));
  fake_.slots[0].label = "SN5";
  EXPECT_EQ(Label(), Padded("SN5 SN5", 32));
  // 4 bytes of serial number leave 28: the last character has two and does not fit.
  fake_.slots[0].label = std::string(27, 'x') + "\u00fcy";
  EXPECT_EQ(Label(), "SN5 " + std::string(27, 'x') + " ");
}

TEST_F(SlotsTest, SerialNumberPaddedInFrontBeginsTheLabelAllTheSame) {
  fake_.slots[0].serial = "          47 11 ";
  fake_.slots[0].label = "";
  EXPECT_EQ(Label(), Padded("47 11", 32));
}

TEST_F(SlotsTest, LabelStaysWhenThereIsNoSerialNumber) {
  config_.serial_in_label = true;
  fake_.slots[0].serial = "";
  fake_.slots[0].label = " my card";
  EXPECT_EQ(Label(), Padded(" my card", 32));
}

TEST_F(SlotsTest, TokenInfoFailureIsPassedOn) {
  EXPECT_EQ(slots_.Check(7), CKR_OK);
  fake_.FailNext("C_GetTokenInfo", CKR_TOKEN_NOT_PRESENT);
  CK_TOKEN_INFO info = {};
  EXPECT_EQ(slots_.GetTokenInfo(7, &info), CKR_TOKEN_NOT_PRESENT);
  EXPECT_EQ(slots_.GetTokenInfo(8, &info), CKR_SLOT_ID_INVALID);
}

TEST_F(SlotsTest, MechanismsFillTheCallersListOnlyWhenTheyFit) {
  std::array<CK_MECHANISM_TYPE, 3> list = {1, 2, 3};
  CK_ULONG count = 3;
  EXPECT_EQ(slots_.GetMechanismList(7, list.data(), &count), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(count, 4u);
  EXPECT_EQ(list[0], 1u);
  std::array<CK_MECHANISM_TYPE, 4> all = {};
  EXPECT_EQ(slots_.GetMechanismList(7, all.data(), &count), CKR_OK);
  EXPECT_EQ(all[3], CKM_ECDH1_DERIVE);
  EXPECT_EQ(slots_.GetMechanismList(8, all.data(), &count), CKR_SLOT_ID_INVALID);
}

TEST_F(SlotsTest, MechanismCountThatCannotBeTrueIsNotBelieved) {
  std::vector<CK_MECHANISM_TYPE> mechanisms;
  fake_.claimed_excess = CK_ULONG{1} << 50;
  EXPECT_EQ(ReadMechanisms(functions_, 7, &mechanisms), CKR_DEVICE_ERROR);
}

TEST_F(SlotsTest, MechanismCountBeyondTheRoomIsNotBelieved) {
  functions_.C_GetMechanismList = [](CK_SLOT_ID, CK_MECHANISM_TYPE* list, CK_ULONG* count) {
    *count = list == nullptr ? 1 : 5;
    return CK_RV{CKR_OK};
  };
  std::vector<CK_MECHANISM_TYPE> mechanisms;
  EXPECT_EQ(ReadMechanisms(functions_, 7, &mechanisms), CKR_DEVICE_ERROR);
}

TEST_F(SlotsTest, ListThatGrowsInBetweenIsReadAgain) {
  fake_.FailNext("C_GetMechanismList", CKR_OK);
  fake_.FailNext("C_GetMechanismList", CKR_BUFFER_TOO_SMALL);
  std::vector<CK_MECHANISM_TYPE> mechanisms;
  EXPECT_EQ(ReadMechanisms(functions_, 7, &mechanisms), CKR_OK);
  EXPECT_EQ(mechanisms.size(), 4u);
}

TEST_F(SlotsTest, OfSeveralReadersTheOneThatHasTheConfiguredNameIsShown) {
  fake_.slots = {{.id = 7, .description = "Reader A"},
                 {.id = 8, .description = "Reader B", .token_flags = 0},
                 {.id = 9, .description = "My Reader B 00"},
                 {.id = 10, .description = "Reader B"}};
  config_.reader_name = "Reader B";
  EXPECT_EQ(slots_.Check(9), CKR_OK);
  EXPECT_EQ(slots_.Check(7), CKR_SLOT_ID_INVALID);
}

TEST_F(SlotsTest, CardPutInElsewhereDoesNotTakeTheShownOneAway) {
  EXPECT_EQ(slots_.Check(7), CKR_OK);
  fake_.slots = {{.id = 5}, {.id = 7}};
  EXPECT_EQ(slots_.CheckEvent(5), CKR_SLOT_ID_INVALID);
  EXPECT_EQ(slots_.Check(7), CKR_OK);
}

TEST_F(SlotsTest, CardPutInElsewhereTakesThePlaceOfOneThatIsGone) {
  EXPECT_EQ(slots_.Check(7), CKR_OK);
  fake_.slots = {{.id = 5}, {.id = 7, .token_flags = 0}};
  EXPECT_EQ(slots_.CheckEvent(5), CKR_OK);
  EXPECT_EQ(slots_.Check(7), CKR_SLOT_ID_INVALID);
}

TEST_F(SlotsTest, NameThatNoReaderHasShowsTheFirst) {
  fake_.slots = {{.id = 7, .description = "Reader A"}, {.id = 8, .description = "Reader B"}};
  config_.reader_name = "Kelvrin Reader";
  EXPECT_EQ(slots_.Check(7), CKR_OK);
}

}  // namespace
}  // namespace kelvrin::adapter
