// The slots that the adapter shows, and how it describes them.
#ifndef KELVRIN_ADAPTER_SLOTS_H_
#define KELVRIN_ADAPTER_SLOTS_H_

#include <p11-kit/pkcs11.h>

#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "adapter/config.h"

namespace kelvrin::adapter {

// Chooses a slot of the module behind and answers the slot functions for it; without the rule
// one-slot it shows all slots as they are. Not synchronised: the owner lets one call in at a time.
// Results are those of the functions of the same name. Counts that the module cannot mean are
// CKR_DEVICE_ERROR, and a function that fails leaves the caller's records and lists alone.
class Slots {
 public:
  // Both must outlive the object. `is_in_use` tells whether the caller has sessions on a slot.
  Slots(
      const CK_FUNCTION_LIST& inner, const Config& config,
      std::function<bool(CK_SLOT_ID)> is_in_use = [](CK_SLOT_ID) { return false; })
      : inner_(inner), config_(config), is_in_use_(std::move(is_in_use)) {}

  // C_GetSlotList: no slot or the chosen one, with or without the flag, since a token is in it.
  // Asking for the number (null list) chooses anew. The first time that no slot can be chosen, a
  // line on standard error says what was looked for and what there was.
  CK_RV GetSlotList(CK_BBOOL token_present, CK_SLOT_ID* list, CK_ULONG* count);

  // C_GetSlotInfo: the description is the configured reader name, or the module's own; padded with
  // blanks either way.
  CK_RV GetSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO* info);

  // C_GetTokenInfo: a label whose first word is empty gets the serial number in front; every label
  // does when so configured.
  CK_RV GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO* info);

  // C_GetMechanismList.
  CK_RV GetMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE* list, CK_ULONG* count);

  // CKR_OK when the slot is the chosen one, or was and is in use still; CKR_SLOT_ID_INVALID when it
  // is not, or what the module answered when it was asked for its slots. When all are shown: always
  // CKR_OK, the module itself knows its slots.
  CK_RV Check(CK_SLOT_ID slot);

  // The same for a slot whose token has just come or gone. Where no token is shown, or the one that
  // was is no longer there, this one is chosen if it fits.
  CK_RV CheckEvent(CK_SLOT_ID slot);

 private:
  bool ShowsAll() const { return !config_.rules.Has(Rule::kOneSlot); }
  CK_RV ListAll(CK_BBOOL token_present, CK_SLOT_ID* list, CK_ULONG* count) const;
  CK_RV Choose();
  bool Fits(CK_SLOT_ID slot) const;
  // Whether the module's own description of the slot contains the text.
  bool IsDescribed(CK_SLOT_ID slot, const std::string& text) const;
  void TellThatNoneOf(const std::vector<CK_SLOT_ID>& slots);

  const CK_FUNCTION_LIST& inner_;
  const Config& config_;
  std::function<bool(CK_SLOT_ID)> is_in_use_;
  bool asked_ = false;
  bool told_ = false;
  std::optional<CK_SLOT_ID> chosen_;
};

// The mechanisms of a slot of the module behind.
CK_RV ReadMechanisms(const CK_FUNCTION_LIST& inner, CK_SLOT_ID slot,
                     std::vector<CK_MECHANISM_TYPE>* mechanisms);

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_SLOTS_H_
