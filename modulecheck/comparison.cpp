#include "modulecheck/comparison.h"

#include <algorithm>

#include "modulecheck/text.h"

namespace kelvrin::modulecheck {
namespace {

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

bool FallsBack(const Listing* listing) {
  return listing != nullptr && listing->is_fallback && !listing->slots.empty();
}

std::string LastSlot(const Listing& listing) {
  return "the extension would use the LAST slot, " + Quoted(listing.slots.back().reader_name) +
         ", without a word";
}

std::string TokenText(const SlotListing& slot) {
  return "the token " + Quoted(slot.label) + ", serial number " + Quoted(slot.serial);
}

const SlotListing* JudgedSlot(const Listing* listing) {
  if (listing == nullptr || listing->judged == 0 || listing->judged > listing->slots.size()) {
    return nullptr;
  }
  return &listing->slots[listing->judged - 1];
}

}  // namespace

std::vector<std::string> FallbackWarnings(const std::string& reader_name, const Listing* alone,
                                          const Listing* behind, bool is_slot_chosen) {
  std::vector<std::string> warnings;
  const std::string reason =
      "no slot's description contains " + Quoted(Printable(reader_name)) + ": ";
  if (FallsBack(alone)) warnings.push_back(reason + LastSlot(*alone));
  if (FallsBack(behind)) {
    warnings.push_back(reason + "behind the adapter " + LastSlot(*behind));
  } else if (FallsBack(alone) && JudgedSlot(behind) != nullptr && !is_slot_chosen) {
    warnings.push_back(
        reason + "the adapter takes the FIRST slot with a token and shows it under that name");
  }
  return warnings;
}

bool IsSameToken(const SlotListing& alone, const SlotListing& behind) {
  if (alone.serial != behind.serial) return false;
  if (alone.label == behind.label) return true;
  // What does not fit behind the number is cut.
  const std::string label =
      alone.label.substr(std::min(alone.label.find_first_not_of(' '), alone.label.size()));
  return !alone.serial.empty() && behind.label.starts_with(alone.serial) &&
         (alone.serial + " " + label).starts_with(behind.label);
}

std::string AnotherTokenWarning(const Listing* alone, const Listing* behind) {
  const SlotListing* const one = JudgedSlot(alone);
  const SlotListing* const other = JudgedSlot(behind);
  if (one == nullptr || other == nullptr || IsSameToken(*one, *other)) return "";
  return "two different tokens were judged: as it is " + TokenText(*one) + "; behind the adapter " +
         TokenText(*other);
}

}  // namespace kelvrin::modulecheck
