#include "adapter/objects/token_objects.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <utility>

#include "adapter/inner/object_reading.h"
#include "adapter/objects/certificate_choice.h"
#include "adapter/slots/slots.h"

namespace kelvrin::adapter {
namespace {

// What a search asks for, as far as the adapter has something to add.
struct Wanted {
  std::optional<CK_OBJECT_CLASS> object_class;
  std::optional<Bytes> id;
  bool nothing_else = true;
};

Wanted ReadWanted(std::span<const CK_ATTRIBUTE> attributes) {
  Wanted wanted;
  for (const CK_ATTRIBUTE& attribute : attributes) {
    const auto* value = static_cast<const CK_BYTE*>(attribute.pValue);
    if (attribute.type == CKA_CLASS && value != nullptr && !wanted.object_class &&
        attribute.ulValueLen == sizeof(CK_OBJECT_CLASS)) {
      std::memcpy(&wanted.object_class.emplace(), value, sizeof(CK_OBJECT_CLASS));
    } else if (attribute.type == CKA_ID && (value != nullptr || attribute.ulValueLen == 0) &&
               !wanted.id && attribute.ulValueLen <= kMaxId) {
      wanted.id = Bytes(value, value + attribute.ulValueLen);
    } else {
      wanted.nothing_else = false;
    }
  }
  return wanted;
}

CK_RV FindClass(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                CK_OBJECT_CLASS object_class, Handles* found) {
  CK_ATTRIBUTE attribute = {CKA_CLASS, &object_class, sizeof(object_class)};
  return FindAll(inner, session, {&attribute, 1}, found);
}

}  // namespace

void TokenObjects::Forget() {
  cache_.Forget();
  facts_.clear();
  without_public_key_.clear();
  mechanisms_.clear();
}

CK_RV TokenObjects::Find(CK_SESSION_HANDLE session, std::span<CK_ATTRIBUTE> attributes,
                         Handles* found) {
  found->clear();
  const Wanted wanted = ReadWanted(attributes);
  if (wanted.id && wanted.id->size() > kMaxShownId) return CKR_OK;
  if (wanted.object_class && wanted.id && wanted.nothing_else) {
    const ObjectName name = {*wanted.object_class, *wanted.id};
    const CK_RV result = name.object_class == CKO_PUBLIC_KEY ? FindPublicKey(session, name, found)
                                                             : FindNamed(session, name, found);
    if (name.object_class == CKO_CERTIFICATE) HideOversize(session, found);
    return result;
  }
  const CK_RV result = FindAll(inner_, session, attributes, found);
  if (result != CKR_OK) {
    Forget();
    return result;
  }
  HideLongIds(session, found);
  if (wanted.object_class == CKO_CERTIFICATE) *found = Arrange(session, *found);
  if (wanted.object_class == CKO_PUBLIC_KEY && wanted.nothing_else) AddVirtualKeys(session, found);
  return CKR_OK;
}

// An object whose CKA_ID the extension has no room for would end it, or be read past its end.
void TokenObjects::HideLongIds(CK_SESSION_HANDLE session, Handles* found) const {
  std::erase_if(*found, [&](CK_OBJECT_HANDLE object) {
    const auto id = ReadAttribute(inner_, session, object, CKA_ID, kMaxId);
    return id ? id->size() > kMaxShownId
              : ReadLength(inner_, session, object, CKA_ID).value_or(0) > kMaxShownId;
  });
}

void TokenObjects::HideOversize(CK_SESSION_HANDLE session, Handles* found) const {
  if (!rules_.Has(Rule::kOversizeCertificates)) return;
  std::erase_if(*found, [&](CK_OBJECT_HANDLE object) {
    return ReadLength(inner_, session, object, CKA_VALUE).value_or(0) > kMaxCertificate;
  });
}

CK_RV TokenObjects::FindNamed(CK_SESSION_HANDLE session, const ObjectName& name, Handles* found) {
  if (const Handles* const known = cache_.Recall(session, name)) {
    *found = *known;
    return CKR_OK;
  }
  return AskModule(session, name, found);
}

CK_RV TokenObjects::AskModule(CK_SESSION_HANDLE session, const ObjectName& name, Handles* found) {
  CK_OBJECT_CLASS object_class = name.object_class;
  Bytes id = name.id;
  std::array<CK_ATTRIBUTE, 2> wanted = {{
      {CKA_CLASS, &object_class, sizeof(object_class)},
      {CKA_ID, id.data(), id.size()},
  }};
  const CK_RV result = FindAll(inner_, session, wanted, found);
  if (object_class == CKO_PRIVATE_KEY) {
    // Nothing is signed with another key than the one asked for, whatever the module finds.
    std::erase_if(*found, [&](CK_OBJECT_HANDLE key) {
      return ReadAttribute(inner_, session, key, CKA_ID, kMaxId).value_or(name.id) != name.id;
    });
  }
  if (result == CKR_OK) {
    cache_.Learn(name, *found);
  } else {
    Forget();
  }
  return result;
}

CK_RV TokenObjects::FindPublicKey(CK_SESSION_HANDLE session, const ObjectName& name,
                                  Handles* found) {
  if (!rules_.Has(Rule::kVirtualPublicKeys)) return FindNamed(session, name, found);
  // With every certificate a search that finds nothing would make set-up grow with the square.
  const bool is_known_to_lack = without_public_key_.contains(name.id);
  if (!is_known_to_lack) {
    const CK_RV result = FindNamed(session, name, found);
    if (result != CKR_OK || !found->empty()) return result;
  }
  Handles certificates;
  const CK_RV result = FindNamed(session, {CKO_CERTIFICATE, name.id}, &certificates);
  if (result != CKR_OK) return result;
  for (const CK_OBJECT_HANDLE certificate : certificates) {
    if (const auto key = MakeVirtualKey(session, certificate)) {
      found->push_back(*key);
      without_public_key_.insert(name.id);
      return CKR_OK;
    }
  }
  return is_known_to_lack ? FindNamed(session, name, found) : CKR_OK;
}

std::optional<CK_OBJECT_HANDLE> TokenObjects::MakeVirtualKey(CK_SESSION_HANDLE session,
                                                             CK_OBJECT_HANDLE certificate) {
  const auto der = ReadAttribute(inner_, session, certificate, CKA_VALUE, kMaxCertificateRead);
  if (!der) return std::nullopt;
  const auto read = [&](CK_ATTRIBUTE_TYPE type) {
    return ReadAttribute(inner_, session, certificate, type, kMaxId).value_or(Bytes());
  };
  return virtual_keys_.Make(*der, read(CKA_ID), read(CKA_LABEL));
}

void TokenObjects::AddVirtualKeys(CK_SESSION_HANDLE session, Handles* found) {
  if (!rules_.Has(Rule::kVirtualPublicKeys)) return;
  std::set<Bytes> ids;
  for (const CK_OBJECT_HANDLE key : *found) {
    ids.insert(ReadAttribute(inner_, session, key, CKA_ID, kMaxId).value_or(Bytes()));
  }
  Handles certificates;
  if (FindClass(inner_, session, CKO_CERTIFICATE, &certificates) != CKR_OK) return;
  HideLongIds(session, &certificates);
  for (const CK_OBJECT_HANDLE certificate : certificates) {
    const Bytes id = ReadAttribute(inner_, session, certificate, CKA_ID, kMaxId).value_or(Bytes());
    if (!ids.insert(id).second) continue;
    if (const auto key = MakeVirtualKey(session, certificate)) found->push_back(*key);
  }
}

// Certificates with a key first and without those that are hidden; on the way the cache learns
// which keys there are.
Handles TokenObjects::Arrange(CK_SESSION_HANDLE session, const Handles& certificates) {
  const std::set<Bytes> public_keys = LearnKeys(session, CKO_PUBLIC_KEY);
  std::set<Bytes> keys = LearnKeys(session, CKO_PRIVATE_KEY);
  keys.insert(public_keys.begin(), public_keys.end());
  without_public_key_ = Learn(session, CKO_CERTIFICATE, certificates);
  for (const Bytes& id : public_keys) without_public_key_.erase(id);
  return ArrangeCertificates(inner_, session, rules_, keys, certificates);
}

std::set<Bytes> TokenObjects::LearnKeys(CK_SESSION_HANDLE session, CK_OBJECT_CLASS object_class) {
  Handles keys;
  if (FindClass(inner_, session, object_class, &keys) != CKR_OK) return {};
  return Learn(session, object_class, keys);
}

// Reads the CKA_IDs of all objects of a class, and remembers which object has which.
std::set<Bytes> TokenObjects::Learn(CK_SESSION_HANDLE session, CK_OBJECT_CLASS object_class,
                                    const Handles& objects) {
  std::map<Bytes, Handles> by_id;
  for (const CK_OBJECT_HANDLE object : objects) {
    const auto id = ReadAttribute(inner_, session, object, CKA_ID, kMaxId);
    if (id) by_id[*id].push_back(object);
  }
  std::set<Bytes> ids;
  for (auto& [id, handles] : by_id) {
    ids.insert(id);
    cache_.Learn({object_class, id}, std::move(handles));
  }
  return ids;
}

std::optional<CK_OBJECT_HANDLE> TokenObjects::FindAgain(CK_SESSION_HANDLE session,
                                                        CK_OBJECT_HANDLE object) {
  const ObjectName* const known = cache_.NameOf(object);
  if (known == nullptr) return std::nullopt;
  const ObjectName name = *known;
  Forget();
  Handles found;
  if (AskModule(session, name, &found) != CKR_OK || found.empty()) return std::nullopt;
  return found.front();
}

KeyFacts TokenObjects::Facts(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key, bool is_rsa) {
  if (const auto facts = facts_.find(key); facts != facts_.end()) return facts->second;
  std::vector<CK_MECHANISM_TYPE> offered;
  if (is_rsa && GetMechanisms(&offered) != CKR_OK) offered.clear();
  const KeyFacts facts = ReadKeyFacts(inner_, session, key, is_rsa, offered);
  // Without the slot's mechanisms it is not known what an RSA key lacks.
  const bool is_whole = !is_rsa || !offered.empty();
  if (is_whole && cache_.NameOf(key) != nullptr) facts_[key] = facts;
  return facts;
}

void TokenObjects::LearnSize(CK_OBJECT_HANDLE key, std::size_t size) {
  if (const auto facts = facts_.find(key); facts != facts_.end()) facts->second.size = size;
}

CK_RV TokenObjects::GetMechanisms(std::vector<CK_MECHANISM_TYPE>* mechanisms) {
  if (mechanisms_.empty()) {
    // A card that is still coming up may give an empty list once: that is not remembered.
    const CK_RV result = ReadMechanisms(inner_, slot_, &mechanisms_);
    if (result != CKR_OK) {
      mechanisms_.clear();
      return result;
    }
  }
  *mechanisms = mechanisms_;
  return CKR_OK;
}

}  // namespace kelvrin::adapter
