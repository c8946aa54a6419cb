// The one slot that the adapter shows, and how it describes it.
#pragma once

#include <p11-kit/pkcs11.h>

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "adapter/config/config.h"
#include "adapter/slots/token_identity.h"

namespace kelvrin::adapter {

// Chooses a slot of the module behind and answers the slot functions for it. A set-up takes the
// first slot that the configuration allows. A re-initialisation means the token that a set-up has
// chosen before; while that token is absent a slot stands in for it on which there is none, so that
// bringing the module up never fails for want of a card. Not synchronised.
//
// Results are those of the functions of the same name. Counts that the module cannot mean are
// CKR_DEVICE_ERROR, and a function that fails leaves the caller's records and lists alone.
class Slots {
 public:
  // Far from the numbers that modules give their slots.
  static constexpr CK_SLOT_ID kAbsent = CK_SLOT_ID{0x4b560000} << 32;

  // What the last choice saw: the slots with a token, and the tokens that it looked at.
  struct Look {
    std::vector<CK_SLOT_ID> present;
    std::map<CK_SLOT_ID, TokenIdentity> tokens;
  };

  // `inner` and `config` must outlive the object. `meant`: the token that a re-initialisation
  // means; nothing in a set-up.
  Slots(const CK_FUNCTION_LIST& inner, const Config& config, std::optional<TokenIdentity> meant)
      : inner_(inner), config_(config), meant_(std::move(meant)) {}

  // C_GetSlotList: no slot or the chosen one, whatever the flag asks for.
  // Asking for the number (null list) chooses anew. The first time that no slot can be chosen, a
  // line on standard error says what was looked for and what there was.
  CK_RV GetSlotList(CK_SLOT_ID* list, CK_ULONG* count);

  // C_GetSlotInfo: the description is the module's own, or the configured reader name where any
  // reader will do; padded with blanks either way.
  CK_RV GetSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO* info);

  // C_GetTokenInfo: a label whose first word is empty gets the serial number in front; every label
  // does when so configured. `identity` gets what the module said before that.
  CK_RV GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO* info, TokenIdentity* identity);

  CK_RV GetMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE* list, CK_ULONG* count);
  CK_RV GetMechanismInfo(CK_SLOT_ID slot, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO* info);

  // CKR_OK for the chosen slot, CKR_TOKEN_NOT_PRESENT for the one that stands in for an absent
  // token, CKR_SLOT_ID_INVALID for others, or what the module answered when it was asked for its
  // slots.
  CK_RV Check(CK_SLOT_ID slot);

  // The token that was seen in the chosen slot, which is one with a token.
  const TokenIdentity& chosen_token() const { return look_.tokens.at(chosen_.value_or(kAbsent)); }

  // The token that a re-initialisation means; null in a set-up.
  const TokenIdentity* meant() const { return meant_ ? &*meant_ : nullptr; }

  const Look& last_look() const { return look_; }

 private:
  CK_RV Choose();
  bool Fits(CK_SLOT_ID slot);
  bool IsDescribed(CK_SLOT_ID slot, const std::string& text) const;
  void TellThatNoneFits() const;

  const CK_FUNCTION_LIST& inner_;
  const Config& config_;
  std::optional<TokenIdentity> meant_;
  bool asked_ = false;
  bool told_ = false;
  std::optional<CK_SLOT_ID> chosen_;
  Look look_;
};

// The mechanisms of a slot of the module behind.
CK_RV ReadMechanisms(const CK_FUNCTION_LIST& inner, CK_SLOT_ID slot,
                     std::vector<CK_MECHANISM_TYPE>* mechanisms);

}  // namespace kelvrin::adapter
