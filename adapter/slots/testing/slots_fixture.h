// The slots of an adapter over the module in memory.
#pragma once

#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "adapter/slots/slots.h"
#include "tests/module/memory_fixture.h"

namespace kelvrin::adapter {

class SlotsTest : public MemoryModuleTest {
 protected:
  SlotsTest() { module.is_initialized = true; }

  // The next choice is a re-initialisation's, which means this token.
  void Mean(const MemoryCard& card) { slots_.emplace(inner_, config_, Identity(card)); }
  static TokenIdentity Identity(const MemoryCard& card) {
    return {Padded(card.serial, 16), Padded(card.label, 32)};
  }
  // The slots that are shown, in the usual two steps.
  std::vector<CK_SLOT_ID> Shown() {
    CK_ULONG count = 99;
    EXPECT_EQ(slots_->GetSlotList(nullptr, &count), CKR_OK);
    std::vector<CK_SLOT_ID> shown(count);
    // An empty list's null pointer would ask for the number once more.
    if (count != 0) EXPECT_EQ(slots_->GetSlotList(shown.data(), &count), CKR_OK);
    EXPECT_EQ(count, shown.size());
    return shown;
  }
  // What standard error says while the slots are listed.
  std::string Told() {
    testing::internal::CaptureStderr();
    Shown();
    return testing::internal::GetCapturedStderr();
  }
  // All of a field, with its padding.
  template <std::size_t size>
  static std::string Text(const CK_UTF8CHAR (&field)[size]) {
    return {std::begin(field), std::end(field)};
  }
  static std::string Padded(std::string text, std::size_t size) {
    text.resize(size, ' ');
    return text;
  }

  const CK_FUNCTION_LIST& inner_ = *module.functions();
  Config config_;
  std::optional<Slots> slots_{std::in_place, inner_, config_, std::nullopt};
};

}  // namespace kelvrin::adapter
