// Which slot is shown.
#include "adapter/slots/slots.h"

#include <string>
#include <vector>

#include "adapter/slots/testing/slots_fixture.h"

namespace kelvrin::adapter {
namespace {

using Shows = std::vector<CK_SLOT_ID>;

TEST_F(SlotsTest, FailureOfTheModulesListIsPassedOn) {
  module.AddCard();
  CK_ULONG count = 5;
  for (const bool at_once : {true, false}) {
    if (!at_once) module.FailNext("C_GetSlotList", CKR_OK);
    module.FailNext("C_GetSlotList", CKR_DEVICE_REMOVED);
    EXPECT_EQ(slots_->GetSlotList(nullptr, &count), CKR_DEVICE_REMOVED);
    EXPECT_EQ(count, 5u);
    module.FailNext("C_GetSlotList", CKR_DEVICE_REMOVED);
    EXPECT_EQ(slots_->Check(7), CKR_DEVICE_REMOVED);
  }
}

TEST_F(SlotsTest, ListIsGivenWithoutBeingAskedForItsNumberWhereItFits) {
  module.AddCard();
  CK_SLOT_ID list = 1234;
  CK_ULONG count = 0;
  EXPECT_EQ(slots_->GetSlotList(&list, &count), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(list, 1234u);
  module.ForgetCalls();
  EXPECT_EQ(slots_->GetSlotList(&list, &count), CKR_OK);
  EXPECT_EQ(list, 7u);
  EXPECT_EQ(slots_->Check(7), CKR_OK);
  EXPECT_EQ(module.Count(), 0u) << "the choice stands";
}

TEST_F(SlotsTest, OnlySlotsWithAnInitialisedTokenThatCanBeReadAreShown) {
  module.AddReader("Empty");
  module.AddCard().flags = 0;
  EXPECT_EQ(Shown(), Shows{});
  EXPECT_EQ(slots_->Check(8), CKR_SLOT_ID_INVALID);
  EXPECT_EQ(slots_->Check(Slots::kAbsent), CKR_SLOT_ID_INVALID);
  EXPECT_EQ(slots_->meant(), nullptr);
  module.AddCard();
  module.AddCard();
  EXPECT_EQ(Shown(), Shows{9});
  EXPECT_EQ(slots_->Check(9), CKR_OK);
  EXPECT_EQ(slots_->Check(10), CKR_SLOT_ID_INVALID);
  EXPECT_EQ(slots_->last_look().present, (Shows{8, 9, 10}));
  module.FailNext("C_GetTokenInfo", CKR_OK);
  module.FailNext("C_GetTokenInfo", CKR_TOKEN_NOT_RECOGNIZED);
  EXPECT_EQ(Shown(), Shows{10});
}

TEST_F(SlotsTest, ConfigurationChoosesByReaderLabelAndSerialNumber) {
  module.AddCard({.reader = "Reader A", .label = "A", .serial = "1"});
  module.AddCard({.reader = "Reader B"}).flags = 0;
  module.AddCard({.reader = "My Reader B 00", .label = "B", .serial = "1"});
  module.AddCard({.reader = "Reader B", .label = "B", .serial = "2"});
  module.FindReader(10)->padding = 0;
  module.AddCard({.label = "C x", .serial = "1"});
  module.AddCard({.label = "  my card", .serial = "        47110815"});
  struct Row {
    std::string reader;
    std::string label;
    std::string serial;
    Shows shown;
    bool any_reader = false;
  };
  const std::vector<Row> rows = {
      {"", "", "", {7}},
      {"", "B", "", {9}},
      {"", "B", "2", {10}},
      {"", "", "2", {10}},
      {"", "A", "2", {}},
      {"", "C", "", {}},
      {"", "C x", "", {11}},
      {"", "my card", "", {12}},
      {"", "", "47110815", {12}},
      {"Reader B", "", "", {9}},
      {"Reader B", "", "2", {10}},
      {"READER B", "", "", {}},
      {"READER B", "", "", {7}, true},
  };
  for (const Row& row : rows) {
    config_.reader_name = row.reader;
    config_.token_label = row.label;
    config_.token_serial = row.serial;
    config_.any_reader = row.any_reader;
    EXPECT_EQ(Shown(), row.shown) << row.reader << "/" << row.label << "/" << row.serial;
  }
}

TEST_F(SlotsTest, ReaderThatDoesNotFitCostsItsCardNoRoundTrip) {
  module.AddCard({.reader = "Reader A"});
  module.AddCard({.reader = "Reader B"});
  config_.reader_name = "Reader B";
  EXPECT_EQ(Shown(), Shows{8});
  EXPECT_EQ(module.Count("C_GetTokenInfo"), 1u);
  EXPECT_FALSE(slots_->last_look().tokens.contains(7));
  module.FailNext("C_GetSlotInfo", CKR_OK);
  module.FailNext("C_GetSlotInfo", CKR_DEVICE_ERROR);
  EXPECT_EQ(Shown(), Shows{}) << "what cannot be read does not fit";
}

TEST_F(SlotsTest, SlotStandsInForATokenThatIsAbsent) {
  MemoryCard& meant = module.AddCard({.serial = "1"});
  module.AddCard({.serial = "2"});
  module.Pull(meant);
  Mean(meant);
  EXPECT_EQ(Told(), "") << "that is nobody's mistake";
  EXPECT_EQ(Shown(), Shows{Slots::kAbsent});
  module.ForgetCalls();
  EXPECT_EQ(slots_->Check(Slots::kAbsent), CKR_TOKEN_NOT_PRESENT);
  EXPECT_EQ(slots_->Check(8), CKR_SLOT_ID_INVALID);
  for (const std::string name : {"Kelvrin Reader", ""}) {
    config_.reader_name = name;
    CK_SLOT_INFO info = {};
    info.flags = CKF_TOKEN_PRESENT;
    EXPECT_EQ(slots_->GetSlotInfo(Slots::kAbsent, &info), CKR_OK);
    EXPECT_EQ(Text(info.slotDescription), Padded(name, 64));
    EXPECT_EQ(info.flags, 0u);
  }
  CK_TOKEN_INFO token = {};
  TokenIdentity identity;
  CK_ULONG count = 0;
  CK_MECHANISM_INFO mechanism = {};
  EXPECT_EQ(slots_->GetTokenInfo(Slots::kAbsent, &token, &identity), CKR_TOKEN_NOT_PRESENT);
  EXPECT_EQ(slots_->GetMechanismList(Slots::kAbsent, nullptr, &count), CKR_TOKEN_NOT_PRESENT);
  EXPECT_EQ(slots_->GetMechanismInfo(Slots::kAbsent, CKM_ECDSA, &mechanism), CKR_TOKEN_NOT_PRESENT);
  EXPECT_EQ(module.Count(), 0u) << "nothing of it reaches the module";
  module.Insert(meant);
  EXPECT_EQ(Shown(), Shows{7}) << "back again";
  ASSERT_NE(slots_->meant(), nullptr);
  EXPECT_EQ(*slots_->meant(), Identity(meant));
  config_.token_serial = "2";
  EXPECT_EQ(Shown(), Shows{Slots::kAbsent}) << "the configuration holds for it too";
}

}  // namespace
}  // namespace kelvrin::adapter
