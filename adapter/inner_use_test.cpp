#include "adapter/inner_use.h"

#include <gtest/gtest.h>

#include "adapter/testing/fake_module.h"

namespace kelvrin::adapter {
namespace {

class InnerUseTest : public testing::Test {
 protected:
  CK_RV Join(InnerUse* use) {
    return use->Join(functions_, [this] { return functions_.C_Initialize(nullptr); });
  }

  FakeModule fake_;
  CK_FUNCTION_LIST functions_ = FakeModule::functions();
  ModuleUses uses_;
  InnerUse first_{&uses_};
  InnerUse second_{&uses_};
};

TEST_F(InnerUseTest, FailureToInitialiseIsPassedOnAndNotCounted) {
  fake_.FailNext("C_Initialize", CKR_DEVICE_ERROR);
  EXPECT_EQ(Join(&first_), CKR_DEVICE_ERROR);
  EXPECT_FALSE(first_.IsCurrent());
  EXPECT_FALSE(first_.Leave());
  EXPECT_EQ(Join(&second_), CKR_OK);
  EXPECT_TRUE(second_.Leave());
}

TEST_F(InnerUseTest, TheFirstInitialisesAndTheLastFinalises) {
  EXPECT_EQ(Join(&first_), CKR_OK);
  EXPECT_TRUE(first_.IsAlone());
  EXPECT_EQ(Join(&second_), CKR_OK);
  EXPECT_FALSE(first_.IsAlone());
  EXPECT_EQ(fake_.Calls("C_Initialize"), 1u);
  EXPECT_FALSE(first_.Leave());
  EXPECT_FALSE(first_.Leave());
  EXPECT_TRUE(second_.IsCurrent());
  EXPECT_TRUE(second_.IsAlone());
  EXPECT_TRUE(second_.Leave());
}

TEST_F(InnerUseTest, ModuleThatWasUpAlreadyIsNobodysToFinalise) {
  fake_.FailNext("C_Initialize", CKR_CRYPTOKI_ALREADY_INITIALIZED);
  fake_.initialized = true;
  EXPECT_EQ(Join(&first_), CKR_OK);
  EXPECT_FALSE(first_.IsAlone());
  EXPECT_EQ(Join(&second_), CKR_OK);
  EXPECT_FALSE(first_.Leave());
  EXPECT_FALSE(second_.Leave());
}

TEST_F(InnerUseTest, ModuleFinalisedByOthersIsInitialisedAnewAndLostToTheRest) {
  Join(&first_);
  Join(&second_);
  fake_.initialized = false;
  EXPECT_EQ(Join(&first_), CKR_OK);
  EXPECT_EQ(fake_.Calls("C_Initialize"), 2u);
  EXPECT_FALSE(second_.IsCurrent());
  EXPECT_FALSE(second_.Leave());
  EXPECT_TRUE(first_.Leave());
}

// Who has not noticed yet wipes its PIN when it does.
TEST_F(InnerUseTest, PinOfAModuleThatIsBroughtUpAnewIsNotTheOneFromBefore) {
  Join(&first_);
  const auto before = first_.PinOf(7);
  fake_.initialized = false;
  Join(&second_);
  EXPECT_NE(second_.PinOf(7), before);
}

TEST_F(InnerUseTest, ModulesAreCountedApart) {
  CK_FUNCTION_LIST other = functions_;
  other.C_Initialize = [](void*) { return CK_RV{CKR_OK}; };
  EXPECT_EQ(Join(&first_), CKR_OK);
  int calls = 0;
  EXPECT_EQ(second_.Join(other, [&] { return ++calls, CK_RV{CKR_OK}; }), CKR_OK);
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(first_.Leave());
  EXPECT_TRUE(second_.Leave());
}

TEST_F(InnerUseTest, EveryUserIsToldEachSlotsLastEventOnce) {
  Join(&first_);
  first_.NoteEvent(9);
  Join(&second_);
  EXPECT_EQ(second_.NextEvent(), std::nullopt) << "it was not there";
  for (const CK_SLOT_ID slot : {1u, 2u, 1u}) first_.NoteEvent(slot);
  for (InnerUse* const use : {&second_, &first_}) {
    if (use == &first_) EXPECT_EQ(use->NextEvent(), 9u);
    EXPECT_EQ(use->NextEvent(), 2u);
    EXPECT_EQ(use->NextEvent(), 1u);
    EXPECT_EQ(use->NextEvent(), std::nullopt);
  }
}

TEST_F(InnerUseTest, ModuleThatInventsSlotsFillsNoMemory) {
  Join(&first_);
  for (CK_SLOT_ID slot = 0; slot < 10000; ++slot) first_.NoteEvent(slot);
  EXPECT_LT(uses_.begin()->second.events.size(), 5000u);
  EXPECT_EQ(uses_.begin()->second.events.rbegin()->second, 9999u);
}

TEST_F(InnerUseTest, WithoutSharedCountsEachCountsAlone) {
  InnerUse alone(nullptr);
  EXPECT_EQ(Join(&first_), CKR_OK);
  EXPECT_EQ(Join(&alone), CKR_OK);
  EXPECT_EQ(fake_.Calls("C_Initialize"), 2u);
  EXPECT_TRUE(alone.Leave());
}

}  // namespace
}  // namespace kelvrin::adapter
