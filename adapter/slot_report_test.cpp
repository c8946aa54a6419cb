// What is told of a choice that fits no slot.
#include "adapter/slot_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "adapter/testing/slots_fixture.h"

namespace kelvrin::adapter {
namespace {

using testing::HasSubstr;

using SlotReportTest = SlotsTest;

TEST_F(SlotReportTest, ChoiceThatFitsNoSlotIsToldWithWhatThereIs) {
  fake_.slots = {{.id = 3, .description = "Reader 00", .label = "A", .serial = "1"},
                 {.id = 4, .description = "Reader 01", .token_flags = 0}};
  config_.file = "/x/lib.conf";
  config_.token_label = "B";
  config_.token_serial = "2";
  config_.slot_reader = "Reader 02";
  EXPECT_EQ(Told(),
            "Kelvrin adapter: /x/lib.conf: no slot has an initialised token and "
            "token-label = 'B' and token-serial = '2' and slot-reader = 'Reader 02'; there is "
            "slot 'Reader 00' with the token 'A', serial number '1', "
            "slot 'Reader 01' with a token that is not initialised; "
            "insert the card, or correct the configuration\n");
  EXPECT_EQ(Told(), "");  // once is enough
}

TEST_F(SlotReportTest, WithoutAnySlotTheLineSaysSo) {
  fake_.slots.clear();
  EXPECT_THAT(Told(), HasSubstr(": no slot has an initialised token; there is no slot at all; "
                                "insert a card that is initialised\n"));
}

TEST_F(SlotReportTest, WhatCannotBeReadIsToldAsSuch) {
  config_.token_label = "B";
  fake_.FailNext("C_GetTokenInfo", CKR_OK);
  fake_.FailNext("C_GetTokenInfo", CKR_DEVICE_ERROR);
  fake_.FailNext("C_GetSlotInfo", CKR_DEVICE_REMOVED);
  EXPECT_THAT(Told(), HasSubstr("slot (result 50) with a token that cannot be read (result 48);"));
}

TEST_F(SlotReportTest, EmptySlotsAreToldToo) {
  fake_.slots = {{.id = 3, .description = "Reader"}};
  config_.token_label = "B";
  fake_.FailNext("C_GetTokenInfo", CKR_OK);
  fake_.FailNext("C_GetTokenInfo", CKR_TOKEN_NOT_PRESENT);
  EXPECT_THAT(Told(), HasSubstr("there is slot 'Reader' with no token;"));
}

TEST_F(SlotReportTest, ControlCharactersOfACardAreNotTold) {
  fake_.slots[0] = {
      .id = 7, .description = "Rea\nder", .label = "l\x1b[2Jl", .serial = "\x7f-\xc2\x9b"};
  config_.token_label = "B";
  EXPECT_THAT(Told(), HasSubstr("slot 'Rea?der' with the token 'l?[2Jl', serial number '?-?'"));
}

TEST_F(SlotReportTest, ManySlotsAreToldInPart) {
  fake_.slots.assign(40, {.id = 3, .token_flags = 0});
  const std::string line = Told();
  EXPECT_THAT(line, HasSubstr(", and 24 more; insert"));
  EXPECT_LT(line.size(), 2000u);
}

TEST_F(SlotReportTest, WithoutTheListOfAllSlotsThoseWithATokenAreTold) {
  fake_.slots[0].description = "Reader";
  config_.token_label = "B";
  // The choice asks twice.
  for (const CK_RV result : {CKR_OK, CKR_OK, CKR_DEVICE_ERROR}) {
    fake_.FailNext("C_GetSlotList", result);
  }
  EXPECT_THAT(Told(), HasSubstr("there is slot 'Reader' with the token 'Fake token'"));
}

TEST_F(SlotReportTest, ChosenSlotIsNotTold) { EXPECT_EQ(Told(), ""); }

}  // namespace
}  // namespace kelvrin::adapter
