#include "adapter/kept_pin.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kelvrin::adapter {
namespace {

void Keep(KeptPin& kept, const std::string& pin) {
  kept.Keep(reinterpret_cast<const CK_BYTE*>(pin.data()), pin.size());
}

std::string Text(KeptPin& kept) { return {kept.data(), kept.data() + kept.size()}; }

TEST(KeptPinTest, NothingIsKeptAtFirst) {
  KeptPin kept;
  EXPECT_FALSE(kept.has_pin());
  EXPECT_EQ(kept.data(), nullptr);
  EXPECT_EQ(kept.size(), 0u);
  kept.Wipe();
}

TEST(KeptPinTest, EmptyAndOverlongPinsAreNotKept) {
  KeptPin kept;
  for (const std::string& pin : {std::string(), std::string(256, '1'), std::string(100000, '1')}) {
    Keep(kept, "1234");
    Keep(kept, pin);
    EXPECT_FALSE(kept.has_pin());
    EXPECT_EQ(kept.data(), nullptr);
  }
  Keep(kept, std::string(255, '1'));
  EXPECT_EQ(Text(kept), std::string(255, '1'));
}

TEST(KeptPinTest, WipingOverwritesTheMemory) {
  KeptPin kept;
  Keep(kept, "123456");
  const CK_BYTE* const memory = kept.data();
  kept.Wipe();
  EXPECT_FALSE(kept.has_pin());
  EXPECT_EQ(std::vector<CK_BYTE>(memory, memory + 6), std::vector<CK_BYTE>(6, 0));
}

TEST(KeptPinTest, NewPinLeavesNothingOfTheOld) {
  KeptPin kept;
  Keep(kept, "123456");
  const CK_BYTE* const memory = kept.data();
  Keep(kept, "9");
  EXPECT_EQ(Text(kept), "9");
  EXPECT_EQ(std::vector<CK_BYTE>(memory + 1, memory + 6), std::vector<CK_BYTE>(5, 0));
}

TEST(KeptPinTest, PinOfTheReaderHasNoBytes) {
  KeptPin kept;
  Keep(kept, "1234");
  const CK_BYTE* const memory = kept.data();
  kept.Keep(nullptr, 0);
  EXPECT_TRUE(kept.has_pin());
  EXPECT_EQ(kept.data(), nullptr);
  EXPECT_EQ(memory[0], 0);
}

TEST(KeptPinTest, PinIsACopy) {
  KeptPin kept;
  std::string pin = "1234";
  Keep(kept, pin);
  pin = "0000";
  EXPECT_EQ(Text(kept), "1234");
}

}  // namespace
}  // namespace kelvrin::adapter
