// A card in its reader, somebody logged in to it, a session on it and what the adapter makes of its
// objects, for the adapter's unit tests.
#pragma once

#include <cstring>
#include <optional>
#include <string>

#include "adapter/config/rules.h"
#include "adapter/objects/token_objects.h"
#include "tests/module/memory_fixture.h"

namespace kelvrin::adapter {

class CardTest : public MemoryModuleTest {
 protected:
  using Mechanisms = std::vector<CK_MECHANISM_TYPE>;

  CardTest() {
    module.is_initialized = true;
    session_ = Open(card_);
    card_.is_logged_in = true;
    module.ForgetCalls();
  }
  // An object of that class with this CKA_ID, and with more attributes.
  CK_OBJECT_HANDLE Add(CK_OBJECT_CLASS object_class, const Bytes& id,
                       decltype(MemoryObject::attributes) more = {}) {
    more.insert({{CKA_CLASS, MemoryObject::Number(object_class)}, {CKA_ID, id}});
    return card_.Add({.attributes = std::move(more)});
  }
  Bytes& Attribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
    return card_.Attribute(object, type);
  }
  void Erase(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
    card_.objects.at(object).attributes.erase(type);
  }
  // A search by class, and by CKA_ID where one is given.
  CK_RV TryFind(CK_OBJECT_CLASS object_class, std::optional<Bytes> id, Handles* found) {
    std::vector<CK_ATTRIBUTE> wanted = {{CKA_CLASS, &object_class, sizeof(object_class)}};
    if (id) wanted.push_back({CKA_ID, id->data(), id->size()});
    return objects_.Find(session_, wanted, found);
  }
  Handles Find(CK_OBJECT_CLASS object_class, const std::optional<Bytes>& id = std::nullopt) {
    Handles found = {99};
    EXPECT_EQ(TryFind(object_class, id, &found), CKR_OK);
    return found;
  }
  std::size_t Searches() const { return module.Count("C_FindObjectsInit"); }
  // The value of CKA_ALLOWED_MECHANISMS.
  static Bytes List(const Mechanisms& mechanisms) {
    Bytes bytes(mechanisms.size() * sizeof(CK_MECHANISM_TYPE));
    if (!bytes.empty()) std::memcpy(bytes.data(), mechanisms.data(), bytes.size());
    return bytes;
  }

  const CK_FUNCTION_LIST& inner_ = *module.functions();
  MemoryCard& card_ = module.AddCard();
  const CK_SLOT_ID slot_ = card_.slot;
  CK_SESSION_HANDLE session_ = 0;
  Rules rules_;
  TokenObjects objects_{inner_, rules_, slot_};
};

}  // namespace kelvrin::adapter
