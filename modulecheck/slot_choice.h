// Which slot the extension picks, and why; and which tokens are the same.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace kelvrin::modulecheck {

enum class Choice {
  kNoSlot,    // there is none
  kOnlySlot,  // no name, one slot
  kMatch,     // the first slot whose description contains the name
  kFallback,  // no description contains the name: the last slot, without a word
  kRefused,   // no name, several slots
};

struct SlotChoice {
  Choice choice = Choice::kNoSlot;
  std::size_t index = 0;  // of the slot; 0 for kNoSlot and kRefused
};

// Chooses as the extension does among slots with these descriptions, 64 bytes each, in the order of
// the module's list. An empty name means that none is configured.
SlotChoice ChooseSlot(std::span<const std::string> descriptions, std::string_view reader_name);

// Whether two slots' serial numbers and labels are of one token, as far as they tell. Behind the
// adapter the serial number may stand in front of the label.
bool IsSameToken(const std::string& serial, const std::string& label,
                 const std::string& serial_behind, const std::string& label_behind);

}  // namespace kelvrin::modulecheck
