// The module as it is beside the module behind the adapter: do both show the slot that was meant?
#pragma once

#include <string>
#include <vector>

#include "modulecheck/listing.h"

namespace kelvrin::modulecheck {

// What is to be said of a reader name that no slot has. `alone` is the module's listing, `behind`
// the one behind the adapter; null when there is none. `is_slot_chosen` says that the adapter's
// configuration chooses the slot by keys of its own.
std::vector<std::string> FallbackWarnings(const std::string& reader_name, const Listing* alone,
                                          const Listing* behind, bool is_slot_chosen);

// Whether the slots hold one token, as far as serial number and label tell. The adapter may put
// the serial number in front of the label.
bool IsSameToken(const SlotListing& alone, const SlotListing& behind);

// A warning when two different tokens were judged, else an empty text. Null or judged == 0: none.
std::string AnotherTokenWarning(const Listing* alone, const Listing* behind);

}  // namespace kelvrin::modulecheck
