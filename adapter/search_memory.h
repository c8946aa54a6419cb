// What searches for a class and a CKA_ID found before.
#ifndef KELVRIN_ADAPTER_SEARCH_MEMORY_H_
#define KELVRIN_ADAPTER_SEARCH_MEMORY_H_

#include <p11-kit/pkcs11.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

#include "adapter/bytes.h"
#include "adapter/search.h"

namespace kelvrin::adapter {

// By what the extension searches for an object.
struct ObjectName {
  CK_OBJECT_CLASS object_class = 0;
  Bytes id;

  auto operator<=>(const ObjectName&) const = default;
};

// A module's search is linear in the token's objects, and the extension searches for every request.
// The memory answers instead, as long as the objects it knows are still what they were: it looks
// again at an object's class and CKA_ID when its last look is kObjectTrust ago, and at the token's
// serial number and label when that look is kTokenTrust ago. Anything else than before, and it
// forgets everything.
class SearchMemory {
 public:
  using Clock = std::chrono::steady_clock;
  using Now = std::function<Clock::time_point()>;

  // For so long a look is trusted: less than another process needs to come up and change an object,
  // or a person to change the card, and enough that the looks of a busy caller hardly count.
  static constexpr std::chrono::milliseconds kObjectTrust{2};
  static constexpr std::chrono::milliseconds kTokenTrust{50};

  SearchMemory(const CK_FUNCTION_LIST& inner, CK_SLOT_ID slot, Now now = Clock::now)
      : inner_(inner), slot_(slot), now_(std::move(now)) {}

  // The objects of that name, looked at on `session`; null when they are not known or no longer
  // what they were. Valid until the next call.
  const Handles* Recall(CK_SESSION_HANDLE session, const ObjectName& name);

  // Whether the object is remembered and, looked at on `session`, still what it was. When it is not
  // what it was, everything is forgotten.
  bool IsTrue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object);

  // Remembers what a search has just found. Nothing found is not remembered: what another program
  // adds is to be seen.
  void Learn(const ObjectName& name, Handles found);

  void Forget();

  // Serial number and label of the token in the slot; nothing when the module does not tell. Looked
  // at anew only when nothing is remembered or the last look is too old.
  std::optional<std::string> TokenIdentity();

  bool is_empty() const { return entries_.empty(); }

  // The name under which the object is remembered; null when it is not. Valid until the next call.
  const ObjectName* NameOf(CK_OBJECT_HANDLE object) const;

 private:
  struct Entry {
    Handles found;
    Clock::time_point seen;
  };
  using Entries = std::map<ObjectName, Entry>;

  bool LookAgain(CK_SESSION_HANDLE session, Entries::value_type& entry);
  bool IsSameToken(Clock::time_point now);

  const CK_FUNCTION_LIST& inner_;
  CK_SLOT_ID slot_;
  Now now_;
  Entries entries_;
  std::unordered_map<CK_OBJECT_HANDLE, Entries::value_type*> by_object_;
  std::string token_;  // whose objects these are
  Clock::time_point token_seen_;
};

// Whether the object has that class and CKA_ID now.
bool HasName(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
             const ObjectName& name);

// Serial number and label of the token in the slot; nothing when the module does not tell.
std::optional<std::string> ReadTokenIdentity(const CK_FUNCTION_LIST& inner, CK_SLOT_ID slot);

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_SEARCH_MEMORY_H_
