// What searches for a class and a CKA_ID found before.
#pragma once

#include <p11-kit/pkcs11.h>

#include <map>
#include <unordered_map>

#include "adapter/inner/object_reading.h"
#include "adapter/objects/search.h"

namespace kelvrin::adapter {

// By what the extension searches for an object.
struct ObjectName {
  CK_OBJECT_CLASS object_class = 0;
  Bytes id;

  bool operator==(const ObjectName&) const = default;
  // Written out, since the vectors of older C++ libraries on macOS have no <=>.
  bool operator<(const ObjectName& other) const {
    return object_class != other.object_class ? object_class < other.object_class : id < other.id;
  }
};

// A module's search is linear in the token's objects, and the extension searches for every request.
// The cache answers instead, as long as the object that it knows still has its class and CKA_ID,
// which one read on the caller's session shows. Anything else than before, and it forgets
// everything.
class SearchCache {
 public:
  // `inner` must outlive the object.
  explicit SearchCache(const CK_FUNCTION_LIST& inner) : inner_(inner) {}

  // Objects that are asked for more than kSteady times in a row are looked at only every
  // kLookEvery-th time: who signs thousands of times with one key need not read it thousands of
  // times. After any other request in between each one looks again.
  static constexpr unsigned kSteady = 8;
  static constexpr unsigned kLookEvery = 64;

  // The objects of that name, the first of them looked at on `session`; null when they are not
  // known or the first is no longer what it was. Valid until the next call.
  const Handles* Recall(CK_SESSION_HANDLE session, const ObjectName& name);

  // Remembers what a search has just found. Nothing found is not remembered: what another program
  // adds is to be seen, and what a login shows.
  void Learn(const ObjectName& name, Handles found);

  void Forget();

  // The name under which the object is remembered; null when it is not. Valid until the next call.
  const ObjectName* NameOf(CK_OBJECT_HANDLE object) const;

 private:
  const CK_FUNCTION_LIST& inner_;
  std::map<ObjectName, Handles> entries_;
  std::unordered_map<CK_OBJECT_HANDLE, const ObjectName*> by_object_;
  const ObjectName* last_ = nullptr;  // asked for
  unsigned in_a_row_ = 0;
};

}  // namespace kelvrin::adapter
