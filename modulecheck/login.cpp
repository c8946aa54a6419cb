#include "modulecheck/login.h"

#include <algorithm>

namespace kelvrin::modulecheck {

std::string WhyToWithhold(const Module& module, const std::string& serial,
                          const std::string& label) {
  if (module.choice().choice == Choice::kFallback && module.slots().size() > 1) {
    return "no reader has the name that was given, and the PIN may be another card's";
  }
  if (module.choice().choice == Choice::kRefused &&
      std::ranges::count_if(module.slots(), &SlotFacts::has_card) > 1) {
    return "several cards are there and no reader was named, so the PIN may be another card's; "
           "--reader names one";
  }
  const SlotFacts& slot = module.slot();
  const bool is_known = !serial.empty() || !label.empty();
  if (is_known && !IsSameToken(serial, label, slot.serial(), slot.label())) {
    return "the adapter's configuration chooses another token, and the PIN is not that one's";
  }
  // As it is now: another program may have tried since the slots were listed.
  CK_TOKEN_INFO token = {};
  if (module.p11()->C_GetTokenInfo(slot.id, &token) != CKR_OK) {
    return "the token does not say whether one try is left";
  }
  if ((token.flags & CKF_USER_PIN_LOCKED) != 0) return "the token says that the PIN is locked";
  if ((token.flags & CKF_USER_PIN_FINAL_TRY) != 0) {
    return "the token says that one try of the PIN is left";
  }
  return "";
}

bool IsWrongPin(CK_RV result) {
  return result == CKR_PIN_INCORRECT || result == CKR_PIN_INVALID || result == CKR_PIN_LEN_RANGE ||
         result == CKR_PIN_EXPIRED || result == CKR_PIN_LOCKED;
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
