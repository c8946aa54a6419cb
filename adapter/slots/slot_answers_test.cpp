// How the slot that is shown and its token are described.
#include <array>
#include <string>
#include <vector>

#include "adapter/slots/testing/slots_fixture.h"

namespace kelvrin::adapter {
namespace {

using Mechanisms = std::vector<CK_MECHANISM_TYPE>;

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
    EXPECT_EQ(Text(info.slotDescription), Padded(row.description, 64));
    EXPECT_EQ(Text(info.manufacturerID), Padded("Memory", 32));
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
    EXPECT_EQ(Text(info.label), Padded(row.shown, 32));
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
}

TEST_F(SlotsTest, MechanismCountsThatCannotBeTrueAreNotBelieved) {
  struct Row {
    CK_ULONG announced;
    CK_ULONG given;
    bool is_believed;
  };
  for (const Row& row : {Row{1, 0, true}, Row{1, 1, true}, Row{1, 2, false}, Row{4096, 4096, true},
                         Row{4097, 4097, false}}) {
    module.over.C_GetMechanismList = [=](CK_SLOT_ID, CK_MECHANISM_TYPE* list, CK_ULONG* count) {
      *count = list == nullptr ? row.announced : row.given;
      return CK_RV{CKR_OK};
    };
    Mechanisms mechanisms;
    EXPECT_EQ(ReadMechanisms(inner_, 7, &mechanisms), row.is_believed ? CKR_OK : CKR_DEVICE_ERROR)
        << row.given;
    if (row.is_believed) EXPECT_EQ(mechanisms.size(), row.given);
  }
}

TEST_F(SlotsTest, ListThatGrowsInBetweenIsReadAgainUpToFourTimesAndAnEmptyOneOnce) {
  MemoryCard& card = module.AddCard();
  for (const int grows : {1, 3, 4}) {
    for (int i = 0; i < grows; ++i) {
      module.FailNext("C_GetMechanismList", CKR_OK);
      module.FailNext("C_GetMechanismList", CKR_BUFFER_TOO_SMALL);
    }
    Mechanisms mechanisms;
    EXPECT_EQ(ReadMechanisms(inner_, 7, &mechanisms), grows == 4 ? CKR_BUFFER_TOO_SMALL : CKR_OK);
    if (grows < 4) EXPECT_EQ(mechanisms.size(), 4u) << grows;
  }
  card.mechanisms.clear();
  module.ForgetCalls();
  Mechanisms mechanisms = {1};
  EXPECT_EQ(ReadMechanisms(inner_, 7, &mechanisms), CKR_OK);
  EXPECT_TRUE(mechanisms.empty());
  EXPECT_EQ(module.Count(), 1u);
}

}  // namespace
}  // namespace kelvrin::adapter
