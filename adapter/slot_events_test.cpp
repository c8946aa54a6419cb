// Slot events where several adapters use one module, and slots that are in use while another one is
// chosen.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "adapter/testing/adapter_fixture.h"

namespace kelvrin::adapter {
namespace {

constexpr CK_SLOT_ID kOne = 3;
constexpr CK_SLOT_ID kOther = 8;

class SlotEventsTest : public testing::Test {
 protected:
  SlotEventsTest() {
    fake_.slots = {{.id = kOne, .serial = "1"}, {.id = kOther, .serial = "2"}};
    for (Adapter* const adapter : {&one_, &other_}) {
      EXPECT_EQ(adapter->Initialize(nullptr), CKR_OK);
    }
  }

  static std::function<Backend()> With(const std::string& serial) {
    return [serial] {
      Backend backend{.config = {}, .functions = FakeModule::functions()};
      backend.config.token_serial = serial;
      return backend;
    };
  }
  // What the adapter tells; the module has no event of its own.
  CK_SLOT_ID Told(Adapter& adapter) {
    fake_.FailNext("C_WaitForSlotEvent", CKR_NO_EVENT);
    return ToldByModule(adapter);
  }
  // What it tells when the module has an event in its last slot, kOther.
  static CK_SLOT_ID ToldByModule(Adapter& adapter) {
    CK_SLOT_ID slot = 0;
    adapter.CatchUp();
    const CK_RV result = adapter.PollSlotEvent(&slot);
    EXPECT_EQ(result, slot == 0 ? CKR_NO_EVENT : CKR_OK);
    return slot;
  }

  FakeModule fake_;
  ModuleUses uses_;
  Adapter one_{With("1"), &uses_};
  Adapter other_{With("2"), &uses_};
};

TEST_F(SlotEventsTest, EventThatOneHasNoUseForReachesTheOther) {
  EXPECT_EQ(ToldByModule(one_), 0u) << "it does not show that slot";
  EXPECT_EQ(ToldByModule(other_), kOther);
  EXPECT_EQ(fake_.Calls("C_WaitForSlotEvent"), 1u);
  EXPECT_EQ(Told(other_), 0u) << "once";
  EXPECT_EQ(Told(one_), 0u);
}

TEST_F(SlotEventsTest, EventOfASlotThatBothShowReachesBoth) {
  Adapter third(With("2"), &uses_);
  ASSERT_EQ(third.Initialize(nullptr), CKR_OK);
  EXPECT_EQ(ToldByModule(other_), kOther);
  EXPECT_EQ(Told(third), kOther);
  EXPECT_EQ(Told(third), 0u);
}

TEST_F(SlotEventsTest, ManyEventsOfASlotAreOneForWhoWasNotAsking) {
  for (int i = 0; i < 3; ++i) ToldByModule(one_);
  EXPECT_EQ(ToldByModule(other_), kOther);
  EXPECT_EQ(Told(other_), 0u);
}

TEST_F(SlotEventsTest, EventFromBeforeItWasThereIsNoEvent) {
  ToldByModule(one_);
  ASSERT_EQ(other_.Finalize(nullptr), CKR_OK);
  ASSERT_EQ(other_.Initialize(nullptr), CKR_OK);
  EXPECT_EQ(Told(other_), 0u);
}

class MovedChoiceTest : public AdapterTest {
 protected:
  MovedChoiceTest() {
    fake_.slots = {{.id = 7}, {.id = 8, .token_flags = 0}};
    EXPECT_EQ(adapter_.Initialize(nullptr), CKR_OK);
  }

  // Another token is the first that fits; whoever counts the slots finds it.
  void MoveTheChoice() {
    fake_.slots[0].token_flags = 0;
    fake_.slots[1].token_flags = CKF_TOKEN_INITIALIZED;
    CK_ULONG count = 1;
    EXPECT_EQ(adapter_.GetSlotList(CK_TRUE, nullptr, &count), CKR_OK);
  }
};

TEST_F(MovedChoiceTest, SlotWithSessionsStaysUsable) {
  const CK_SESSION_HANDLE session = Open();
  MoveTheChoice();
  std::array<CK_SLOT_ID, 2> list = {};
  CK_ULONG count = list.size();
  EXPECT_EQ(adapter_.GetSlotList(CK_TRUE, list.data(), &count), CKR_OK);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(list[0], 8u);
  CK_SLOT_INFO slot = {};
  EXPECT_EQ(adapter_.GetSlotInfo(7, &slot), CKR_OK);
  CK_TOKEN_INFO token = {};
  EXPECT_EQ(adapter_.GetTokenInfo(7, &token), CKR_OK);
  EXPECT_EQ(token.ulSessionCount, 1u);
  EXPECT_EQ(SignInit(session), CKR_OK);
  Open();
  EXPECT_EQ(adapter_.CloseAllSessions(7), CKR_OK);
  EXPECT_TRUE(fake_.sessions.empty());
}

TEST_F(MovedChoiceTest, SlotWithoutSessionsIsHidden) {
  const CK_SESSION_HANDLE session = Open();
  MoveTheChoice();
  ASSERT_EQ(adapter_.CloseSession(session), CKR_OK);
  CK_TOKEN_INFO token = {};
  EXPECT_EQ(adapter_.GetTokenInfo(7, &token), CKR_SLOT_ID_INVALID);
  EXPECT_EQ(adapter_.CloseAllSessions(7), CKR_SLOT_ID_INVALID);
  CK_SESSION_HANDLE none = 0;
  EXPECT_EQ(adapter_.OpenSession(7, kAdapterFlags, nullptr, nullptr, &none), CKR_SLOT_ID_INVALID);
}

TEST_F(MovedChoiceTest, CardThatComesIntoASlotInUseIsChosenWhereNoneIsShown) {
  std::swap(fake_.slots[0], fake_.slots[1]);  // the module's events are in the last one
  Open();
  fake_.slots[1].token_flags = 0;
  fake_.slots[0].token_flags = CKF_TOKEN_INITIALIZED;
  CK_ULONG count = 1;
  ASSERT_EQ(adapter_.GetSlotList(CK_TRUE, nullptr, &count), CKR_OK);
  std::swap(fake_.slots[0].token_flags, fake_.slots[1].token_flags);
  CK_SLOT_ID slot = 0;
  EXPECT_EQ(adapter_.PollSlotEvent(&slot), CKR_OK);
  EXPECT_EQ(slot, 7u);
  EXPECT_EQ(adapter_.GetSlotList(CK_TRUE, &slot, &count), CKR_OK);
  EXPECT_EQ(slot, 7u) << "shown again, not in use alone";
}

}  // namespace
}  // namespace kelvrin::adapter
