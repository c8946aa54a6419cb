// By which search a caller found an object.
#ifndef KELVRIN_ADAPTER_ASKED_FOR_H_
#define KELVRIN_ADAPTER_ASKED_FOR_H_

#include <p11-kit/pkcs11.h>

#include <optional>
#include <span>
#include <unordered_map>

#include "adapter/search.h"
#include "adapter/search_memory.h"

namespace kelvrin::adapter {

// What a search asks for, as far as the adapter has something to add.
struct Wanted {
  std::optional<CK_OBJECT_CLASS> object_class;
  std::optional<Bytes> id;
  bool nothing_else = true;

  bool operator==(const Wanted&) const = default;

  // Whether it asks for a class and a CKA_ID and nothing else: for what `name` says.
  bool IsName() const { return object_class && id && nothing_else; }
  ObjectName Name() const { return {object_class.value_or(0), id.value_or(Bytes())}; }
};

Wanted ReadWanted(std::span<const CK_ATTRIBUTE> attributes);

// The searches for a CKA_ID that gave the caller his handles: what he means by them. Unlike what is
// known of the objects this stays true whatever becomes of them. The handles that are out of use
// the longest are dropped, when there are thousands.
class AskedFor {
 public:
  // `object` was found by a search that asks for a CKA_ID.
  void Remember(CK_OBJECT_HANDLE object, const Wanted& wanted);

  // Null when no search for a CKA_ID found the object. Valid until the next call.
  const Wanted* Find(CK_OBJECT_HANDLE object) const;

  // The handle means its object, whatever that is.
  void Drop(CK_OBJECT_HANDLE object);

 private:
  using ByHandle = std::unordered_map<CK_OBJECT_HANDLE, Wanted>;

  ByHandle recent_;
  ByHandle older_;
};

}  // namespace kelvrin::adapter

#endif  // KELVRIN_ADAPTER_ASKED_FOR_H_
