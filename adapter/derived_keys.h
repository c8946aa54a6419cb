// Derived objects that their caller never destroys.
#ifndef KELVRIN_ADAPTER_DERIVED_KEYS_H_
#define KELVRIN_ADAPTER_DERIVED_KEYS_H_

#include <p11-kit/pkcs11.h>

#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kelvrin::adapter {

// The last object that each thread derived on one session: what is to be destroyed before the
// thread's next one. Each has its own, so that no thread destroys what another is about to read.
class DerivedKeys {
 public:
  // To be called before the others with the identity of the token in the slot: what was derived on
  // another is forgotten, since its handles mean nothing there.
  void BelongTo(const std::optional<std::string>& token);

  // Remembers the calling thread's object. Returns one that is to be destroyed since too many
  // threads left theirs, or nothing.
  std::optional<CK_OBJECT_HANDLE> Remember(CK_OBJECT_HANDLE key);

  // Takes the calling thread's object out; nothing when it has none.
  std::optional<CK_OBJECT_HANDLE> Take();

  // Forgets an object that its caller destroys.
  void Drop(CK_OBJECT_HANDLE key);

  void Clear() { keys_.clear(); }

 private:
  std::optional<std::string> token_;
  std::vector<std::pair<std::thread::id, CK_OBJECT_HANDLE>> keys_;  // the oldest first
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_DERIVED_KEYS_H_
