// A token's objects as the adapter shows them.
#pragma once

#include <p11-kit/pkcs11.h>

#include <optional>
#include <set>
#include <span>
#include <unordered_map>
#include <vector>

#include "adapter/config/rules.h"
#include "adapter/objects/key_facts.h"
#include "adapter/objects/search.h"
#include "adapter/objects/search_cache.h"
#include "adapter/objects/virtual_keys.h"

namespace kelvrin::adapter {

// The longest CKA_ID that the extension's object IDs have room for, in bytes: objects with a longer
// one are not shown.
inline constexpr CK_ULONG kMaxShownId = 255;

// Whether the module does not know the handle, as an object's or a key's.
inline bool IsRefusedHandle(CK_RV result) {
  return result == CKR_OBJECT_HANDLE_INVALID || result == CKR_KEY_HANDLE_INVALID;
}

// Searches and facts for all sessions on one token. Not synchronised.
class TokenObjects {
 public:
  // `inner` and `rules` must outlive the object.
  TokenObjects(const CK_FUNCTION_LIST& inner, const Rules& rules, CK_SLOT_ID slot)
      : inner_(inner), rules_(rules), slot_(slot), cache_(inner) {}

  // A whole search, with results from the cache, virtual keys and a choice of certificates as the
  // rules say.
  CK_RV Find(CK_SESSION_HANDLE session, std::span<CK_ATTRIBUTE> wanted, Handles* found);

  // Calls action(key), and once more with what the search for the key finds now when the module
  // refuses the handle. Returns what the module says.
  template <typename Action>
  CK_RV WithCurrent(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key, const Action& action) {
    const CK_RV result = action(key);
    if (!IsRefusedHandle(result)) return result;
    const std::optional<CK_OBJECT_HANDLE> again = FindAgain(session, key);
    return again ? action(*again) : result;
  }

  // What the search that found the object finds now, for a handle that the module has just refused.
  // Nothing when there is none, or when the cache does not know the object.
  std::optional<CK_OBJECT_HANDLE> FindAgain(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object);

  // The facts of a private key, RSA or EC.
  KeyFacts Facts(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key, bool is_rsa);

  // Remembers the size of a key that the module told by the length of a result.
  void LearnSize(CK_OBJECT_HANDLE key, std::size_t size);

  // What the slot offers.
  CK_RV GetMechanisms(std::vector<CK_MECHANISM_TYPE>* mechanisms);

  // Null when the object is the module's.
  const VirtualKey* FindVirtual(CK_OBJECT_HANDLE object) const {
    return virtual_keys_.Find(object);
  }

  // Forgets what was learned: the objects may have changed.
  void Forget();

  const CK_FUNCTION_LIST& inner() const { return inner_; }
  const Rules& rules() const { return rules_; }
  CK_SLOT_ID slot() const { return slot_; }

 private:
  CK_RV FindNamed(CK_SESSION_HANDLE session, const ObjectName& name, Handles* found);
  CK_RV FindPublicKey(CK_SESSION_HANDLE session, const ObjectName& name, Handles* found);
  CK_RV AskModule(CK_SESSION_HANDLE session, const ObjectName& name, Handles* found);
  void AddVirtualKeys(CK_SESSION_HANDLE session, Handles* found);
  std::optional<CK_OBJECT_HANDLE> MakeVirtualKey(CK_SESSION_HANDLE session,
                                                 CK_OBJECT_HANDLE certificate);
  void HideLongIds(CK_SESSION_HANDLE session, Handles* found) const;
  void HideOversize(CK_SESSION_HANDLE session, Handles* found) const;
  Handles Arrange(CK_SESSION_HANDLE session, const Handles& certificates);
  std::set<Bytes> LearnKeys(CK_SESSION_HANDLE session, CK_OBJECT_CLASS object_class);
  std::set<Bytes> Learn(CK_SESSION_HANDLE session, CK_OBJECT_CLASS object_class,
                        const Handles& objects);

  const CK_FUNCTION_LIST& inner_;
  const Rules& rules_;
  CK_SLOT_ID slot_;
  SearchCache cache_;
  VirtualKeys virtual_keys_;
  std::unordered_map<CK_OBJECT_HANDLE, KeyFacts> facts_;  // of keys that the cache knows
  // CKA_IDs that had no public key object when the certificates were listed.
  std::set<Bytes> without_public_key_;
  std::vector<CK_MECHANISM_TYPE> mechanisms_;  // empty: not known
};

}  // namespace kelvrin::adapter
