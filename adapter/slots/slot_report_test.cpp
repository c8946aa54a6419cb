// What is told of a choice that fits no slot.
#include "adapter/slots/slot_report.h"

#include <gmock/gmock.h>

#include <string>

#include "adapter/slots/testing/slots_fixture.h"

namespace kelvrin::adapter {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

using SlotReportTest = SlotsTest;

TEST_F(SlotReportTest, ChoiceThatFitsNoSlotIsToldWithWhatThereIs) {
  module.AddCard({.reader = "Reader 00", .label = "A", .serial = "1"});
  module.AddCard({.reader = "Reader 01"}).flags = 0;
  module.AddReader("Reader 02");
  config_.file = "/x/lib.conf";
  config_.token_label = "B";
  config_.token_serial = "2";
  config_.reader_name = "Reader 03";
  EXPECT_EQ(Told(),
            "Kelvrin adapter: /x/lib.conf: no slot has an initialised token and "
            "token-label = 'B' and token-serial = '2' and reader-name = 'Reader 03'; there is "
            "slot 'Reader 00' with the token 'A', serial number '1', "
            "slot 'Reader 01' with a token that is not initialised, "
            "slot 'Reader 02' with no token; "
            "insert the card, or correct the configuration\n");
  EXPECT_EQ(Told(), "");  // once is enough
}

TEST_F(SlotReportTest, ReaderNameIsNoConditionWhereAnyReaderWillDo) {
  config_.reader_name = "Reader 03";
  config_.any_reader = true;
  EXPECT_THAT(Told(), HasSubstr(": no slot has an initialised token; there is no slot at all; "
                                "insert a card that is initialised\n"));
}

TEST_F(SlotReportTest, WhatCannotBeReadIsToldAsSuch) {
  module.AddCard();
  config_.token_label = "B";
  module.FailNext("C_GetTokenInfo", CKR_OK);
  module.FailNext("C_GetTokenInfo", CKR_DEVICE_ERROR);
  module.FailNext("C_GetSlotInfo", CKR_DEVICE_REMOVED);
  EXPECT_THAT(Told(), HasSubstr("slot (result 50) with a token that cannot be read (result 48);"));
}

TEST_F(SlotReportTest, ControlCharactersOfACardAreNotTold) {
  module.AddCard({.reader = "Rea\nder", .label = "l\x1b[2Jl", .serial = "\x7f-\xc2\x9b"});
  config_.token_label = "B";
  EXPECT_THAT(Told(), HasSubstr("slot 'Rea?der' with the token 'l?[2Jl', serial number '?-?'"));
}

TEST_F(SlotReportTest, OfManySlotsSixteenAreTold) {
  for (int i = 0; i < 16; ++i) module.AddReader("R");
  EXPECT_THAT(Told(), EndsWith("slot 'R' with no token; insert a card that is initialised\n"));
  module.AddReader("R");
  slots_.emplace(inner_, config_, std::nullopt);
  EXPECT_THAT(Told(), EndsWith("slot 'R' with no token, and 1 more; insert a card that is "
                               "initialised\n"));
}

TEST_F(SlotReportTest, WithoutTheListOfAllSlotsThoseWithATokenAreTold) {
  module.AddCard({.label = "A"});
  config_.token_label = "B";
  // The choice asks twice.
  for (const CK_RV result : {CKR_OK, CKR_OK, CKR_DEVICE_ERROR}) {
    module.FailNext("C_GetSlotList", result);
  }
  EXPECT_THAT(Told(), HasSubstr("there is slot 'Memory reader' with the token 'A'"));
}

TEST_F(SlotReportTest, ChosenSlotIsNotTold) {
  module.AddCard();
  EXPECT_EQ(Told(), "");
}

}  // namespace
}  // namespace kelvrin::adapter
