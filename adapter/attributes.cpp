#include "adapter/attributes.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>

#include "adapter/slots.h"

namespace kelvrin::adapter {
namespace {

using Mechanisms = std::vector<CK_MECHANISM_TYPE>;

// As many mechanisms of a key as the extension has room for.
constexpr std::size_t kMaxAllowedMechanisms = 20;
// More room, to see that a list is too long.
constexpr std::size_t kMechanismRoom = 128 * sizeof(CK_MECHANISM_TYPE);

bool Offers(const Mechanisms& offered, CK_MECHANISM_TYPE mechanism) {
  return std::find(offered.begin(), offered.end(), mechanism) != offered.end();
}

// What a key of this type can be used for through the adapter.
Mechanisms UsableMechanisms(CK_KEY_TYPE key_type, const Mechanisms& offered) {
  struct Row {
    CK_KEY_TYPE key_type;
    CK_MECHANISM_TYPE mechanism;
    CK_MECHANISM_TYPE served_by;
  };
  constexpr Row kRows[] = {
      {CKK_RSA, CKM_RSA_X_509, CKM_RSA_X_509},
      {CKK_RSA, CKM_RSA_PKCS, CKM_RSA_PKCS},
      {CKK_EC, CKM_ECDSA, CKM_ECDSA},
      {CKK_EC, CKM_ECDSA_SHA1, CKM_ECDSA},
      {CKK_EC, CKM_ECDH1_DERIVE, CKM_ECDH1_DERIVE},
  };
  Mechanisms usable;
  for (const Row& row : kRows) {
    if (row.key_type == key_type && Offers(offered, row.served_by)) usable.push_back(row.mechanism);
  }
  return usable;
}

// Answers one attribute as C_GetAttributeValue does, but with length 0 after a failure.
CK_RV Answer(const void* value, std::size_t size, CK_ATTRIBUTE* attribute) {
  if (attribute->pValue != nullptr) {
    if (attribute->ulValueLen < size) {
      attribute->ulValueLen = 0;
      return CKR_BUFFER_TOO_SMALL;
    }
    if (size != 0) std::memcpy(attribute->pValue, value, size);
  }
  attribute->ulValueLen = size;
  return CKR_OK;
}

// The attributes of one public key that the adapter answers in the module's place.
class PublicKey {
 public:
  PublicKey(const CK_FUNCTION_LIST& inner, CK_SLOT_ID slot, CK_SESSION_HANDLE session,
            CK_OBJECT_HANDLE object, CK_KEY_TYPE type)
      : inner_(inner), slot_(slot), session_(session), object_(object), type_(type) {}

  bool Handles(CK_ATTRIBUTE_TYPE type) const {
    if (type == CKA_ALLOWED_MECHANISMS) return true;
    return type_ == CKK_EC && (type == CKA_ENCRYPT || type == CKA_WRAP || type == CKA_DERIVE);
  }

  CK_RV Get(CK_ATTRIBUTE* attribute) const {
    switch (attribute->type) {
      case CKA_ALLOWED_MECHANISMS:
        return GetAllowedMechanisms(attribute);
      case CKA_DERIVE:
        return GetDerive(attribute);
      default:
        return Answer(&kFalse, sizeof(kFalse), attribute);
    }
  }

 private:
  static constexpr CK_BBOOL kFalse = CK_FALSE;

  CK_RV GetAllowedMechanisms(CK_ATTRIBUTE* attribute) const {
    const auto own =
        ReadAttribute(inner_, session_, object_, CKA_ALLOWED_MECHANISMS, kMechanismRoom);
    if (own && !own->empty() && own->size() % sizeof(CK_MECHANISM_TYPE) == 0 &&
        own->size() <= kMaxAllowedMechanisms * sizeof(CK_MECHANISM_TYPE)) {
      return Answer(own->data(), own->size(), attribute);
    }
    Mechanisms offered;
    const CK_RV result = ReadMechanisms(inner_, slot_, &offered);
    if (result != CKR_OK) return Fail(result, attribute);
    const Mechanisms usable = UsableMechanisms(type_, offered);
    return Answer(usable.data(), usable.size() * sizeof(CK_MECHANISM_TYPE), attribute);
  }

  CK_RV GetDerive(CK_ATTRIBUTE* attribute) const {
    Mechanisms offered;
    const CK_RV result = ReadMechanisms(inner_, slot_, &offered);
    if (result != CKR_OK) return Fail(result, attribute);
    const CK_BBOOL derives = Offers(offered, CKM_ECDH1_DERIVE) ? CK_TRUE : CK_FALSE;
    return Answer(&derives, sizeof(derives), attribute);
  }

  static CK_RV Fail(CK_RV result, CK_ATTRIBUTE* attribute) {
    attribute->ulValueLen = 0;
    return result;
  }

  const CK_FUNCTION_LIST& inner_;
  CK_SLOT_ID slot_;
  CK_SESSION_HANDLE session_;
  CK_OBJECT_HANDLE object_;
  CK_KEY_TYPE type_;
};

bool MayNeedAnAnswer(const CK_ATTRIBUTE& attribute) {
  const std::initializer_list<CK_ATTRIBUTE_TYPE> types = {CKA_ALLOWED_MECHANISMS, CKA_ENCRYPT,
                                                          CKA_WRAP, CKA_DERIVE};
  return std::find(types.begin(), types.end(), attribute.type) != types.end();
}

std::optional<PublicKey> FindPublicKey(const CK_FUNCTION_LIST& inner, CK_SLOT_ID slot,
                                       CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object) {
  if (ReadNumber(inner, session, object, CKA_CLASS) != CKO_PUBLIC_KEY) return std::nullopt;
  const std::optional<CK_ULONG> type = ReadNumber(inner, session, object, CKA_KEY_TYPE);
  if (!type) return std::nullopt;
  return PublicKey(inner, slot, session, object, *type);
}

// Asks the module and takes no length on trust: after a failure, or for an attribute that it calls
// unavailable, and where it claims more than there was room for, the length is 0.
CK_RV AskModule(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                std::span<CK_ATTRIBUTE> attributes) {
  std::vector<CK_ATTRIBUTE> asked(attributes.begin(), attributes.end());
  CK_RV result = inner.C_GetAttributeValue(session, object, asked.data(), asked.size());
  for (std::size_t i = 0; i < attributes.size(); ++i) {
    CK_ULONG length = asked[i].ulValueLen;
    const bool unavailable = length == CK_UNAVAILABLE_INFORMATION;
    const bool too_long = attributes[i].pValue != nullptr && length > attributes[i].ulValueLen;
    if (unavailable || too_long) {
      if (result == CKR_OK && too_long && !unavailable) result = CKR_BUFFER_TOO_SMALL;
      length = 0;
    }
    attributes[i].ulValueLen = length;
  }
  return result;
}

}  // namespace

std::optional<std::vector<CK_BYTE>> ReadAttribute(const CK_FUNCTION_LIST& inner,
                                                  CK_SESSION_HANDLE session,
                                                  CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type,
                                                  std::size_t room) {
  std::vector<CK_BYTE> value(room);
  CK_ATTRIBUTE attribute = {type, value.data(), value.size()};
  if (inner.C_GetAttributeValue(session, object, &attribute, 1) != CKR_OK) return std::nullopt;
  if (attribute.ulValueLen > value.size()) return std::nullopt;
  value.resize(attribute.ulValueLen);
  return value;
}

std::optional<CK_ULONG> ReadNumber(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                                   CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
  CK_ULONG value = 0;
  CK_ATTRIBUTE attribute = {type, &value, sizeof(value)};
  if (inner.C_GetAttributeValue(session, object, &attribute, 1) != CKR_OK) return std::nullopt;
  if (attribute.ulValueLen != sizeof(value)) return std::nullopt;
  return value;
}

CK_RV GetAttributes(const CK_FUNCTION_LIST& inner, CK_SLOT_ID slot, CK_SESSION_HANDLE session,
                    CK_OBJECT_HANDLE object, std::span<CK_ATTRIBUTE> attributes) {
  const bool may_need_answers = std::any_of(attributes.begin(), attributes.end(), MayNeedAnAnswer);
  const std::optional<PublicKey> key =
      may_need_answers ? FindPublicKey(inner, slot, session, object) : std::nullopt;
  if (!key) return AskModule(inner, session, object, attributes);

  std::vector<CK_ATTRIBUTE> asked;
  CK_RV own_result = CKR_OK;
  for (CK_ATTRIBUTE& attribute : attributes) {
    if (!key->Handles(attribute.type)) {
      asked.push_back(attribute);
      continue;
    }
    const CK_RV result = key->Get(&attribute);
    if (result != CKR_OK) own_result = result;
  }
  if (asked.empty()) return own_result;
  const CK_RV result = AskModule(inner, session, object, asked);
  auto answer = asked.begin();
  for (CK_ATTRIBUTE& attribute : attributes) {
    if (!key->Handles(attribute.type)) attribute = *answer++;
  }
  return result != CKR_OK ? result : own_result;
}

}  // namespace kelvrin::adapter
