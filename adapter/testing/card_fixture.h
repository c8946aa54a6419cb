// A card in its reader, somebody logged in to it and a session on it, for the adapter's unit tests.
#pragma once

#include <string>

#include "adapter/config/rules.h"
#include "tests/module/memory_fixture.h"

namespace kelvrin::adapter {

class CardTest : public MemoryModuleTest {
 protected:
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

  const CK_FUNCTION_LIST& inner_ = *module.functions();
  MemoryCard& card_ = module.AddCard();
  const CK_SLOT_ID slot_ = card_.slot;
  CK_SESSION_HANDLE session_ = 0;
  Rules rules_;
};

}  // namespace kelvrin::adapter
