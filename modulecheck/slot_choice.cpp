#include "modulecheck/slot_choice.h"

namespace kelvrin::modulecheck {

SlotChoice ChooseSlot(std::span<const std::string> descriptions, std::string_view reader_name) {
  if (descriptions.empty()) return {Choice::kNoSlot};
  if (reader_name.empty()) {
    return {descriptions.size() == 1 ? Choice::kOnlySlot : Choice::kRefused};
  }
  for (std::size_t i = 0; i < descriptions.size(); ++i) {
    const std::string_view description = descriptions[i];
    // The search ends at a NUL.
    const std::string_view text = description.substr(0, description.find('\0'));
    if (text.find(reader_name) != std::string_view::npos) return {Choice::kMatch, i};
  }
  return {Choice::kFallback, descriptions.size() - 1};
}

}  // namespace kelvrin::modulecheck
