#include "modulecheck/slot_choice.h"

#include <algorithm>

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

bool IsSameToken(const std::string& serial, const std::string& label,
                 const std::string& serial_behind, const std::string& label_behind) {
  if (serial != serial_behind) return false;
  if (label == label_behind) return true;
  // What does not fit behind the number is cut.
  const std::string own = label.substr(std::min(label.find_first_not_of(' '), label.size()));
  return !serial.empty() && label_behind.starts_with(serial) &&
         (serial + " " + own).starts_with(label_behind);
}

}  // namespace kelvrin::modulecheck
