#include "adapter/token_objects.h"

#include <algorithm>
#include <array>
#include <map>

#include "adapter/certificate_choice.h"
#include "adapter/object_reading.h"
#include "adapter/slots.h"

namespace kelvrin::adapter {
namespace {

CK_RV FindClass(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                CK_OBJECT_CLASS object_class, Handles* found) {
  CK_ATTRIBUTE attribute = {CKA_CLASS, &object_class, sizeof(object_class)};
  return FindAll(inner, session, {&attribute, 1}, found);
}

bool IsLoggedIn(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session) {
  CK_SESSION_INFO info = {};
  return inner.C_GetSessionInfo(session, &info) == CKR_OK &&
         (info.state == CKS_RO_USER_FUNCTIONS || info.state == CKS_RW_USER_FUNCTIONS);
}

}  // namespace

void TokenObjects::Forget() {
  memory_.Forget();
  facts_.clear();
  without_public_key_.clear();
  mechanisms_.reset();
}

CK_RV TokenObjects::Find(CK_SESSION_HANDLE session, std::span<CK_ATTRIBUTE> attributes,
                         Handles* found) {
  const Wanted wanted = ReadWanted(attributes);
  const CK_RV result = FindWanted(session, attributes, wanted, found);
  if (result != CKR_OK || !rules_.Has(Rule::kRenewedHandles)) return result;
  for (const CK_OBJECT_HANDLE object : *found) {
    if (wanted.id) {
      asked_for_.Remember(object, wanted);
    } else if (!IsWhatWasAskedFor(session, object)) {
      // Who lists objects means what he sees.
      asked_for_.Drop(object);
    }
  }
  return CKR_OK;
}

CK_RV TokenObjects::FindWanted(CK_SESSION_HANDLE session, std::span<CK_ATTRIBUTE> attributes,
                               const Wanted& wanted, Handles* found) {
  if (wanted.IsName()) {
    const ObjectName name = wanted.Name();
    const CK_RV result = name.object_class == CKO_PUBLIC_KEY ? FindPublicKey(session, name, found)
                                                             : FindNamed(session, name, found);
    if (result != CKR_OK || name.object_class != CKO_CERTIFICATE) return result;
    std::erase_if(*found, [&](CK_OBJECT_HANDLE object) {
      return rules_.Has(Rule::kOversizeCertificates) &&
             ReadLength(inner_, session, object, CKA_VALUE).value_or(0) > kMaxCertificate;
    });
    return result;
  }
  const CK_RV result = FindAll(inner_, session, attributes, found);
  if (result != CKR_OK) {
    Forget();
    return result;
  }
  if (wanted.object_class == CKO_CERTIFICATE) *found = Arrange(session, *found);
  if (wanted.object_class == CKO_PUBLIC_KEY && wanted.nothing_else) AddVirtualKeys(session, found);
  return CKR_OK;
}

CK_RV TokenObjects::FindNamed(CK_SESSION_HANDLE session, const ObjectName& name, Handles* found) {
  if (rules_.Has(Rule::kSearchMemory)) {
    if (const Handles* known = memory_.Recall(session, name); known != nullptr) {
      *found = *known;
      return CKR_OK;
    }
  }
  if (memory_.is_empty()) Forget();
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
  if (result != CKR_OK) {
    Forget();
  } else {
    memory_.Learn(name, *found);
  }
  return result;
}

CK_RV TokenObjects::FindPublicKey(CK_SESSION_HANDLE session, const ObjectName& name,
                                  Handles* found) {
  if (!rules_.Has(Rule::kVirtualPublicKeys)) return FindNamed(session, name, found);
  Handles certificates;
  const ObjectName certificate = {CKO_CERTIFICATE, name.id};
  // With every certificate a search that finds nothing would make set-up grow with the square.
  const bool is_known_to_lack = without_public_key_.contains(name.id);
  if (!is_known_to_lack) {
    const CK_RV result = FindNamed(session, name, found);
    if (result != CKR_OK || !found->empty()) return result;
  }
  const CK_RV result = FindNamed(session, certificate, &certificates);
  if (result != CKR_OK) return result;
  found->clear();
  for (const CK_OBJECT_HANDLE object : certificates) {
    const auto key = MakeVirtualKey(session, object);
    if (!key) continue;
    found->push_back(*key);
    break;
  }
  return found->empty() && is_known_to_lack ? FindNamed(session, name, found) : CKR_OK;
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
  for (const CK_OBJECT_HANDLE certificate : certificates) {
    const Bytes id = ReadAttribute(inner_, session, certificate, CKA_ID, kMaxId).value_or(Bytes());
    if (!ids.insert(id).second) continue;
    if (const auto key = MakeVirtualKey(session, certificate)) found->push_back(*key);
  }
}

Handles TokenObjects::Arrange(CK_SESSION_HANDLE session, const Handles& certificates) {
  const bool needs_keys =
      rules_.Has(Rule::kKeylessCertificates) || rules_.Has(Rule::kKeyedCertificatesFirst);
  if (!needs_keys && !rules_.Has(Rule::kOversizeCertificates)) return certificates;
  KeysSeen keys;
  if (needs_keys) {
    const std::set<Bytes> public_keys = LearnKeys(session, CKO_PUBLIC_KEY);
    keys.ids = LearnKeys(session, CKO_PRIVATE_KEY);
    keys.all = !keys.ids.empty() && IsLoggedIn(inner_, session);
    keys.ids.insert(public_keys.begin(), public_keys.end());
    without_public_key_ = Learn(session, CKO_CERTIFICATE, certificates);
    for (const Bytes& id : public_keys) {
      // A token that has public keys beside its certificates has them beside all.
      keys.all = without_public_key_.erase(id) != 0 || keys.all;
    }
  }
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
    memory_.Learn({object_class, id}, std::move(handles));
  }
  return ids;
}

// Whether the object is still what the search that found it asked for, as far as one can see.
bool TokenObjects::IsWhatWasAskedFor(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object) {
  const Wanted* const asked = asked_for_.Find(object);
  if (asked == nullptr) return true;
  const ObjectName name = asked->Name();
  if (!asked->IsName()) {
    return ReadAttribute(inner_, session, object, CKA_ID, kMaxId).value_or(name.id) == name.id;
  }
  const ObjectName* const known = memory_.NameOf(object);
  if (known != nullptr && *known == name) {
    if (memory_.IsTrue(session, object)) return true;
    Forget();
  }
  return HasName(inner_, session, object, name);
}

CK_OBJECT_HANDLE TokenObjects::Current(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key) {
  if (!rules_.Has(Rule::kRenewedHandles) || IsWhatWasAskedFor(session, key)) return key;
  return FindAgain(session, key);
}

CK_OBJECT_HANDLE TokenObjects::FindAgain(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key) {
  if (!rules_.Has(Rule::kRenewedHandles)) return CK_INVALID_HANDLE;
  if (const Wanted* const asked = asked_for_.Find(key); asked != nullptr) {
    return asked->IsName() ? SearchAgain(session, asked->Name()) : CK_INVALID_HANDLE;
  }
  const ObjectName* const known = memory_.NameOf(key);
  return known != nullptr ? SearchAgain(session, ObjectName(*known)) : CK_INVALID_HANDLE;
}

CK_OBJECT_HANDLE TokenObjects::SearchAgain(CK_SESSION_HANDLE session, const ObjectName& name) {
  Forget();
  Handles found;
  if (AskModule(session, name, &found) != CKR_OK || found.empty()) return CK_INVALID_HANDLE;
  return found.front();
}

KeyFacts TokenObjects::Facts(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key, bool is_rsa) {
  // Facts of a remembered object are true as long as the memory is.
  const bool is_known = memory_.IsTrue(session, key);
  if (!is_known) facts_.clear();
  if (const auto facts = facts_.find(key); facts != facts_.end()) return facts->second;
  std::vector<CK_MECHANISM_TYPE> offered;
  if (is_rsa && GetMechanisms(&offered) != CKR_OK) offered.clear();
  const KeyFacts facts = ReadKeyFacts(inner_, session, key, is_rsa, offered);
  if (is_known && facts.size != 0) facts_[key] = facts;
  return facts;
}

CK_RV TokenObjects::GetMechanisms(std::vector<CK_MECHANISM_TYPE>* mechanisms) {
  if (!mechanisms_) {
    std::vector<CK_MECHANISM_TYPE> read;
    const CK_RV result = ReadMechanisms(inner_, slot_, &read);
    if (result != CKR_OK) return result;
    mechanisms_ = std::move(read);
  }
  *mechanisms = *mechanisms_;
  return CKR_OK;
}

}  // namespace kelvrin::adapter
