// A token's objects as the adapter shows them.
#ifndef KELVRIN_ADAPTER_TOKEN_OBJECTS_H_
#define KELVRIN_ADAPTER_TOKEN_OBJECTS_H_

#include <p11-kit/pkcs11.h>

#include <cstddef>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "adapter/asked_for.h"
#include "adapter/key_facts.h"
#include "adapter/rules.h"
#include "adapter/search.h"
#include "adapter/search_memory.h"
#include "adapter/virtual_keys.h"

namespace kelvrin::adapter {

// Whether the module does not know the handle, as an object's or a key's.
inline bool IsRefusedHandle(CK_RV result) {
  return result == CKR_OBJECT_HANDLE_INVALID || result == CKR_KEY_HANDLE_INVALID;
}

// Searches and facts for all sessions on one token. Not synchronised.
class TokenObjects {
 public:
  // `inner` and `rules` must outlive the object.
  TokenObjects(const CK_FUNCTION_LIST& inner, const Rules& rules, CK_SLOT_ID slot,
               SearchMemory::Now now = SearchMemory::Clock::now)
      : inner_(inner), rules_(rules), slot_(slot), memory_(inner, slot, std::move(now)) {}

  // A whole search, with results from memory, virtual keys and a choice of certificates as the
  // rules say.
  CK_RV Find(CK_SESSION_HANDLE session, std::span<CK_ATTRIBUTE> wanted, Handles* found);

  // Calls action(handle) with the key that is to be used where the caller says `key`, and once more
  // with what the search for it finds now when the module refuses the handle. Returns what the
  // module says, or CKR_KEY_HANDLE_INVALID when there is no such key any more.
  template <typename Action>
  CK_RV WithCurrent(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key, const Action& action) {
    const CK_OBJECT_HANDLE current = Current(session, key);
    if (current == CK_INVALID_HANDLE) return CKR_KEY_HANDLE_INVALID;
    const CK_RV result = action(current);
    if (!IsRefusedHandle(result)) return result;
    const CK_OBJECT_HANDLE again = FindAgain(session, key);
    return again == CK_INVALID_HANDLE ? result : action(again);
  }

  // The key that is to be used where the caller says `key`: that one, unless the last search of his
  // that found it asked for a CKA_ID and it is no longer what was asked for; then what that search
  // finds now. CK_INVALID_HANDLE when it finds nothing.
  CK_OBJECT_HANDLE Current(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key);

  // What the search that found `key` finds now, for a handle that the module has just refused.
  // CK_INVALID_HANDLE when that is nothing, or when the adapter does not know the search.
  CK_OBJECT_HANDLE FindAgain(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key);

  // The facts of a private key, RSA or EC.
  KeyFacts Facts(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key, bool is_rsa);

  // What the slot offers.
  CK_RV GetMechanisms(std::vector<CK_MECHANISM_TYPE>* mechanisms);

  // Null when the object is the module's.
  const VirtualKey* FindVirtual(CK_OBJECT_HANDLE object) const {
    return virtual_keys_.Find(object);
  }

  // Forgets what was learned: the objects may have changed. What the caller means by his handles is
  // not forgotten.
  void Forget();

  // From now on the handle means its object, whatever that is: the caller made or changed it.
  void TakeAsItIs(CK_OBJECT_HANDLE object) { asked_for_.Drop(object); }

  // Serial number and label of the token in the slot; nothing when the module does not tell.
  std::optional<std::string> TokenIdentity() { return memory_.TokenIdentity(); }

  const CK_FUNCTION_LIST& inner() const { return inner_; }
  const Rules& rules() const { return rules_; }
  CK_SLOT_ID slot() const { return slot_; }

 private:
  CK_RV FindWanted(CK_SESSION_HANDLE session, std::span<CK_ATTRIBUTE> attributes,
                   const Wanted& wanted, Handles* found);
  bool IsWhatWasAskedFor(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object);
  CK_OBJECT_HANDLE SearchAgain(CK_SESSION_HANDLE session, const ObjectName& name);
  CK_RV FindNamed(CK_SESSION_HANDLE session, const ObjectName& name, Handles* found);
  CK_RV FindPublicKey(CK_SESSION_HANDLE session, const ObjectName& name, Handles* found);
  CK_RV AskModule(CK_SESSION_HANDLE session, const ObjectName& name, Handles* found);
  void AddVirtualKeys(CK_SESSION_HANDLE session, Handles* found);
  std::optional<CK_OBJECT_HANDLE> MakeVirtualKey(CK_SESSION_HANDLE session,
                                                 CK_OBJECT_HANDLE certificate);
  Handles Arrange(CK_SESSION_HANDLE session, const Handles& certificates);
  std::set<Bytes> LearnKeys(CK_SESSION_HANDLE session, CK_OBJECT_CLASS object_class);
  std::set<Bytes> Learn(CK_SESSION_HANDLE session, CK_OBJECT_CLASS object_class,
                        const Handles& objects);

  const CK_FUNCTION_LIST& inner_;
  const Rules& rules_;
  CK_SLOT_ID slot_;
  SearchMemory memory_;
  AskedFor asked_for_;
  VirtualKeys virtual_keys_;
  std::unordered_map<CK_OBJECT_HANDLE, KeyFacts> facts_;
  // CKA_IDs that had no public key object when the certificates were listed.
  std::set<Bytes> without_public_key_;
  std::optional<std::vector<CK_MECHANISM_TYPE>> mechanisms_;
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_TOKEN_OBJECTS_H_
