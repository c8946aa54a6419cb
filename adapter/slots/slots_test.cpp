// The one slot that is shown.
#include "adapter/slots/slots.h"

#include <array>
#include <string>
#include <vector>

#include "adapter/slots/testing/slots_fixture.h"

namespace kelvrin::adapter {
namespace {

using Shows = std::vector<CK_SLOT_ID>;
using Mechanisms = std::vector<CK_MECHANISM_TYPE>;

TEST_F(SlotsTest, FailureOfTheModulesListIsPassedOn) {
  module.AddCard();
  for (const bool at_once : {true, false}) {
    if (!at_once) module.FailNext("C_GetSlotList", CKR_OK);
    module.FailNext("C_GetSlotList", CKR_DEVICE_REMOVED);
    CK_ULONG count = 5;
    EXPECT_EQ(slots_->GetSlotList(nullptr, &count), CKR_DEVICE_REMOVED);
    EXPECT_EQ(count, 5u);
    module.FailNext("C_GetSlotList", CKR_DEVICE_REMOVED);
    EXPECT_EQ(slots_->Check(7), CKR_DEVICE_REMOVED);
  }
}

TEST_F(SlotsTest, CountThatCannotBeTrueIsNotBelieved) {
  module.over.C_GetSlotList = [](CK_BBOOL, CK_SLOT_ID*, CK_ULONG* count) {
    *count = CK_ULONG{1} << 40;
    return CK_RV{CKR_OK};
  };
  CK_ULONG count = 0;
  EXPECT_EQ(slots_->GetSlotList(nullptr, &count), CKR_DEVICE_ERROR);
}

TEST_F(SlotsTest, RoomForNoSlotIsTooSmallAndLeavesTheListAlone) {
  module.AddCard();
  CK_SLOT_ID list = 1234;
  CK_ULONG count = 0;
  EXPECT_EQ(slots_->GetSlotList(&list, &count), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(list, 1234u);
}

TEST_F(SlotsTest, ListIsGivenWithoutBeingAskedForItsNumber) {
  module.AddCard();
  CK_SLOT_ID list = 0;
  CK_ULONG count = 1;
  EXPECT_EQ(slots_->GetSlotList(&list, &count), CKR_OK);
  EXPECT_EQ(list, 7u);
  module.ForgetCalls();
  EXPECT_EQ(slots_->GetSlotList(&list, &count), CKR_OK);
  EXPECT_EQ(slots_->Check(7), CKR_OK);
  EXPECT_EQ(module.Count(), 0u) << "the choice stands";
}

TEST_F(SlotsTest, OnlySlotsWithAnInitialisedTokenThatCanBeReadAreShown) {
  module.AddReader("Empty");
  module.AddCard().flags = 0;
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

TEST_F(SlotsTest, WithoutAnySlotThatFitsNoneIsShown) {
  module.AddCard().flags = 0;
  EXPECT_EQ(Shown(), Shows{});
  EXPECT_EQ(slots_->Check(7), CKR_SLOT_ID_INVALID);
  EXPECT_EQ(slots_->Check(Slots::kAbsent), CKR_SLOT_ID_INVALID);
  EXPECT_EQ(slots_->chosen_token(), nullptr);
}

TEST_F(SlotsTest, ConfiguredLabelAndSerialNumberChoose) {
  module.AddCard({.label = "A", .serial = "1"});
  module.AddCard({.label = "B", .serial = "1"});
  module.AddCard({.label = "B", .serial = "2"});
  module.AddCard({.label = "C x", .serial = "1"});
  module.AddCard({.label = "  my card", .serial = "        47110815"});
  struct Row {
    std::string label;
    std::string serial;
    Shows shown;
  };
  const std::vector<Row> rows = {{"", "", {7}},     {"B", "", {8}},        {"B", "2", {9}},
                                 {"", "2", {9}},    {"A", "2", {}},        {"C", "", {}},
                                 {"C x", "", {10}}, {"my card", "", {11}}, {"", "47110815", {11}}};
  for (const Row& row : rows) {
    config_.token_label = row.label;
    config_.token_serial = row.serial;
    EXPECT_EQ(Shown(), row.shown) << row.label << "/" << row.serial;
  }
}

TEST_F(SlotsTest, ReaderNameIsAConditionUnlessAnyReaderWillDo) {
  module.AddCard({.reader = "Reader A"});
  module.AddCard({.reader = "Reader B"}).flags = 0;
  module.AddCard({.reader = "My Reader B 00"});
  module.AddCard({.reader = "Reader B", .label = "B"});
  module.FindReader(10)->padding = 0;
  config_.reader_name = "Reader B";
  EXPECT_EQ(Shown(), Shows{9});
  config_.token_label = "B";
  EXPECT_EQ(Shown(), Shows{10});
  config_.token_label.clear();
  config_.reader_name = "READER B";
  EXPECT_EQ(Shown(), Shows{});
  config_.any_reader = true;
  EXPECT_EQ(Shown(), Shows{7});
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

TEST_F(SlotsTest, AskingForTheNumberChoosesAnew) {
  MemoryCard& first = module.AddCard();
  EXPECT_EQ(Shown(), Shows{7});
  module.Pull(first);
  module.AddCard();
  EXPECT_EQ(slots_->Check(7), CKR_OK);
  EXPECT_EQ(Shown(), Shows{8});
}

TEST_F(SlotsTest, ReInitialisationShowsTheTokenThatItMeansWhereverItIs) {
  const MemoryCard& other = module.AddCard({.label = "A", .serial = "1"});
  const MemoryCard& same_label = module.AddCard({.label = "A", .serial = "2"});
  const MemoryCard& same_serial = module.AddCard({.label = "B", .serial = "1"});
  for (const MemoryCard* card : {&other, &same_label, &same_serial}) {
    Mean(*card);
    EXPECT_EQ(Shown(), Shows{card->slot});
    ASSERT_NE(slots_->chosen_token(), nullptr);
    EXPECT_EQ(*slots_->chosen_token(), Identity(*card));
  }
  config_.token_label = "A";
  EXPECT_EQ(Shown(), Shows{Slots::kAbsent}) << "the configuration holds for it too";
}

TEST_F(SlotsTest, SlotStandsInForATokenThatIsAbsent) {
  MemoryCard& meant = module.AddCard({.serial = "1"});
  module.AddCard({.serial = "2"});
  module.Pull(meant);
  config_.reader_name = "Kelvrin Reader";
  config_.any_reader = true;
  Mean(meant);
  EXPECT_EQ(Told(), "") << "that is nobody's mistake";
  EXPECT_EQ(Shown(), Shows{Slots::kAbsent});
  EXPECT_EQ(slots_->chosen_token(), nullptr);
  module.ForgetCalls();
  EXPECT_EQ(slots_->Check(Slots::kAbsent), CKR_TOKEN_NOT_PRESENT);
  EXPECT_EQ(slots_->Check(8), CKR_SLOT_ID_INVALID);
  CK_SLOT_INFO info = {};
  info.flags = CKF_TOKEN_PRESENT;
  EXPECT_EQ(slots_->GetSlotInfo(Slots::kAbsent, &info), CKR_OK);
  EXPECT_EQ(std::string(std::begin(info.slotDescription), std::end(info.slotDescription)),
            Padded("Kelvrin Reader", 64));
  EXPECT_EQ(std::string(std::begin(info.manufacturerID), std::end(info.manufacturerID)),
            Padded("", 32));
  EXPECT_EQ(info.flags, 0u);
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
}

TEST_F(SlotsTest, AbsentTokensSlotHasTheReaderNameWithoutAnyReaderToo) {
  MemoryCard& meant = module.AddCard({.reader = "Reader B"});
  module.Pull(meant);
  Mean(meant);
  for (const std::string name : {"Reader B", ""}) {
    config_.reader_name = name;
    CK_SLOT_INFO info = {};
    EXPECT_EQ(slots_->GetSlotInfo(Slots::kAbsent, &info), CKR_OK);
    EXPECT_EQ(std::string(std::begin(info.slotDescription), std::end(info.slotDescription)),
              Padded(name, 64));
  }
}

TEST_F(SlotsTest, FailuresLeaveTheCallersRecordsAlone) {
  module.AddCard();
  CK_SLOT_INFO slot = {};
  CK_TOKEN_INFO token = {};
  CK_MECHANISM_INFO mechanism = {};
  TokenIdentity identity = {"s", "l"};
  slot.flags = token.flags = mechanism.flags = 77;
  EXPECT_EQ(slots_->GetSlotInfo(8, &slot), CKR_SLOT_ID_INVALID);
  EXPECT_EQ(slots_->GetTokenInfo(8, &token, &identity), CKR_SLOT_ID_INVALID);
  EXPECT_EQ(slots_->GetMechanismInfo(8, CKM_ECDSA, &mechanism), CKR_SLOT_ID_INVALID);
  module.FailNext("C_GetSlotInfo", CKR_DEVICE_ERROR);
  module.FailNext("C_GetTokenInfo", CKR_TOKEN_NOT_PRESENT);
  EXPECT_EQ(slots_->GetSlotInfo(7, &slot), CKR_DEVICE_ERROR);
  EXPECT_EQ(slots_->GetTokenInfo(7, &token, &identity), CKR_TOKEN_NOT_PRESENT);
  EXPECT_EQ(slots_->GetMechanismInfo(7, CKM_AES_CBC, &mechanism), CKR_MECHANISM_INVALID);
  EXPECT_EQ(slot.flags + token.flags + mechanism.flags, 3 * 77u);
  EXPECT_EQ(identity, (TokenIdentity{"s", "l"}));
}

TEST_F(SlotsTest, DescriptionIsTheModulesOrTheReaderNameWhereAnyReaderWillDo) {
  module.AddCard({.reader = "Reader B 00"});
  module.FindReader(7)->padding = 0;
  struct Row {
    const char* reader_name;
    bool any_reader;
    std::string description;
  };
  for (const Row& row : {Row{"", false, "Reader B 00"}, Row{"", true, "Reader B 00"},
                         Row{"Reader B", false, "Reader B 00"}, Row{"Mine", true, "Mine"}}) {
    config_.reader_name = row.reader_name;
    config_.any_reader = row.any_reader;
    CK_SLOT_INFO info = {};
    EXPECT_EQ(slots_->GetSlotInfo(7, &info), CKR_OK);
    EXPECT_EQ(std::string(std::begin(info.slotDescription), std::end(info.slotDescription)),
              Padded(row.description, 64));
    EXPECT_EQ(std::string(std::begin(info.manufacturerID), std::end(info.manufacturerID)),
              Padded("Memory", 32));
    EXPECT_NE(info.flags & CKF_TOKEN_PRESENT, 0u);
  }
}

TEST_F(SlotsTest, SerialNumberGoesInFrontOfLabelsWithoutAFirstWordOrOnRequest) {
  MemoryCard& card = module.AddCard();
  struct Row {
    bool on_request;
    std::string serial;
    std::string label;
    std::string shown;
  };
  const std::string x27(27, 'x');
  const std::vector<Row> rows = {
      {false, "SN5", "4711 0815", "4711 0815"},
      {false, "SN5", "", "SN5"},
      {false, "SN5", "  my card", "SN5 my card"},
      {false, "SN5", "\tcard", "SN5 card"},
      {false, "SN5", std::string(32, '\0'), "SN5"},
      {false, "SN5", " " + x27 + "xxxx", "SN5 " + x27 + "x"},
      {false, "          47 11 ", "", "47 11"},
      {false, "", " my card", " my card"},
      {true, "SN5", "4711 0815", "SN5 4711 0815"},
      {true, "SN5", " my card", "SN5 my card"},
      {true, "SN5", "SN5", "SN5 SN5"},
      {true, "", "4711", "4711"},
      // 4 bytes of serial number leave 28: the last character has two and does not fit.
      {true, "SN5", x27 + "\u00fcy", "SN5 " + x27},
  };
  for (const Row& row : rows) {
    config_.serial_in_label = row.on_request;
    card.serial = row.serial;
    card.label = row.label;
    CK_TOKEN_INFO info = {};
    TokenIdentity identity;
    EXPECT_EQ(slots_->GetTokenInfo(7, &info, &identity), CKR_OK);
    EXPECT_EQ(std::string(std::begin(info.label), std::end(info.label)), Padded(row.shown, 32));
    EXPECT_EQ(identity, Identity(card)) << "as the module has it";
  }
}

TEST_F(SlotsTest, MechanismsFillTheCallersListOnlyWhenTheyFit) {
  module.AddCard();
  std::array<CK_MECHANISM_TYPE, 4> list = {1, 2, 3, 4};
  CK_ULONG count = 3;
  EXPECT_EQ(slots_->GetMechanismList(7, list.data(), &count), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(count, 4u);
  EXPECT_EQ(list[0], 1u);
  EXPECT_EQ(slots_->GetMechanismList(7, list.data(), &count), CKR_OK);
  EXPECT_EQ(list[3], CKM_ECDH1_DERIVE);
  EXPECT_EQ(slots_->GetMechanismList(8, list.data(), &count), CKR_SLOT_ID_INVALID);
  module.FailNext("C_GetMechanismList", CKR_DEVICE_ERROR);
  EXPECT_EQ(slots_->GetMechanismList(7, list.data(), &count), CKR_DEVICE_ERROR);
  CK_MECHANISM_INFO info = {};
  EXPECT_EQ(slots_->GetMechanismInfo(7, CKM_RSA_PKCS, &info), CKR_OK);
  EXPECT_EQ(info.ulMinKeySize, 2048u);
}

TEST_F(SlotsTest, NoModuleHasMoreThan4096Mechanisms) {
  MemoryCard& card = module.AddCard();
  Mechanisms mechanisms;
  card.mechanisms.assign(4096, CKM_ECDSA);
  EXPECT_EQ(ReadMechanisms(inner_, 7, &mechanisms), CKR_OK);
  EXPECT_EQ(mechanisms.size(), 4096u);
  card.mechanisms.push_back(CKM_ECDSA);
  EXPECT_EQ(ReadMechanisms(inner_, 7, &mechanisms), CKR_DEVICE_ERROR);
}

TEST_F(SlotsTest, MechanismCountBeyondTheRoomIsNotBelieved) {
  for (const CK_ULONG claimed : {CK_ULONG{0}, CK_ULONG{1}, CK_ULONG{2}}) {
    module.over.C_GetMechanismList = [=](CK_SLOT_ID, CK_MECHANISM_TYPE* list, CK_ULONG* count) {
      *count = list == nullptr ? 1 : claimed;
      return CK_RV{CKR_OK};
    };
    Mechanisms mechanisms;
    EXPECT_EQ(ReadMechanisms(inner_, 7, &mechanisms), claimed == 2 ? CKR_DEVICE_ERROR : CKR_OK);
    if (claimed < 2) EXPECT_EQ(mechanisms.size(), claimed);
  }
}

TEST_F(SlotsTest, ListThatGrowsInBetweenIsReadAgainUpToFourTimes) {
  module.AddCard();
  for (const int grows : {1, 3, 4}) {
    for (int i = 0; i < grows; ++i) {
      module.FailNext("C_GetMechanismList", CKR_OK);
      module.FailNext("C_GetMechanismList", CKR_BUFFER_TOO_SMALL);
    }
    Mechanisms mechanisms;
    EXPECT_EQ(ReadMechanisms(inner_, 7, &mechanisms), grows == 4 ? CKR_BUFFER_TOO_SMALL : CKR_OK);
    if (grows < 4) EXPECT_EQ(mechanisms.size(), 4u);
  }
}

TEST_F(SlotsTest, EmptyListIsAskedForOnce) {
  module.AddCard().mechanisms.clear();
  Mechanisms mechanisms = {1};
  EXPECT_EQ(ReadMechanisms(inner_, 7, &mechanisms), CKR_OK);
  EXPECT_TRUE(mechanisms.empty());
  EXPECT_EQ(module.Count(), 1u);
}

}  // namespace
}  // namespace kelvrin::adapter
