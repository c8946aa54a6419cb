#include "adapter/objects/attributes.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

#include "adapter/config/text_fields.h"
#include "adapter/inner/object_reading.h"
#include "adapter/objects/allowed_mechanisms.h"
#include "adapter/objects/ascii_text.h"
#include "adapter/objects/key_facts.h"

namespace kelvrin::adapter {
namespace {

// The extension's room for a label, less the byte that ends it.
constexpr std::size_t kMaxLabel = 127;
// No attribute is longer; a module that says so is not believed.
constexpr CK_ULONG kMaxLength = CK_ULONG{1} << 26;

// CKR_OK when the module can mean the length for what the caller asked; otherwise what the call
// fails with.
CK_RV CheckLength(const CK_ATTRIBUTE& asked, CK_ULONG length) {
  if (length == CK_UNAVAILABLE_INFORMATION) return CKR_ATTRIBUTE_TYPE_INVALID;
  const CK_ULONG room = asked.pValue != nullptr ? asked.ulValueLen : kMaxLength;
  return length <= room ? CKR_OK : CKR_BUFFER_TOO_SMALL;
}

// Reads attributes of one object; one use, one object.
class Reader {
 public:
  Reader(TokenObjects& objects, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object)
      : objects_(objects),
        inner_(objects.inner()),
        session_(session),
        object_(object),
        virtual_key_(objects.FindVirtual(object)) {}

  CK_RV Get(std::span<CK_ATTRIBUTE> attributes) {
    std::vector<CK_ATTRIBUTE> asked;
    std::vector<CK_ATTRIBUTE*> asked_for;
    CK_RV own_result = CKR_OK;
    for (CK_ATTRIBUTE& attribute : attributes) {
      const std::optional<CK_RV> result = TryAnswer(&attribute);
      if (!result) {
        asked.push_back(attribute);
        asked_for.push_back(&attribute);
      } else if (*result != CKR_OK) {
        own_result = *result;
      }
    }
    // With nothing to ask for the module is not asked, unless the caller asked for nothing.
    if (asked.empty() && (!attributes.empty() || virtual_key_ != nullptr)) return own_result;
    const CK_RV result = AskModule(&asked);
    for (std::size_t i = 0; i < asked.size(); ++i) asked_for[i]->ulValueLen = asked[i].ulValueLen;
    return result != CKR_OK ? result : own_result;
  }

 private:
  // Answers one attribute in the module's place; nothing when that is the module's business.
  std::optional<CK_RV> TryAnswer(CK_ATTRIBUTE* attribute) {
    const Rules& rules = objects_.rules();
    switch (attribute->type) {
      case CKA_ALLOWED_MECHANISMS:
        if (!rules.Has(Rule::kAllowedMechanisms) && virtual_key_ == nullptr) break;
        if (const std::optional<CK_KEY_TYPE> type = KeyType()) {
          return GetMechanisms(*type, attribute);
        }
        break;
      case CKA_ENCRYPT:
      case CKA_WRAP:
        if (rules.Has(Rule::kEcUsage) && IsEcPublicKey()) return AnswerFlag(false, attribute);
        break;
      case CKA_DERIVE:
        if (!rules.Has(Rule::kEcUsage) && virtual_key_ == nullptr) break;
        if (IsEcPublicKey()) return GetDerive(attribute);
        break;
      case CKA_LABEL:
        return GetLabel(attribute);
      default:
        break;
    }
    return virtual_key_ != nullptr ? std::optional(GetVirtual(attribute)) : std::nullopt;
  }

  // Answers one attribute as C_GetAttributeValue does.
  static CK_RV Answer(const void* value, std::size_t size, CK_ATTRIBUTE* attribute) {
    if (attribute->pValue != nullptr) {
      if (attribute->ulValueLen < size) return Fail(CKR_BUFFER_TOO_SMALL, attribute);
      if (size != 0) std::memcpy(attribute->pValue, value, size);
    }
    attribute->ulValueLen = size;
    return CKR_OK;
  }

  static CK_RV AnswerFlag(bool value, CK_ATTRIBUTE* attribute) {
    const CK_BBOOL flag = value ? CK_TRUE : CK_FALSE;
    return Answer(&flag, sizeof(flag), attribute);
  }

  static CK_RV Fail(CK_RV result, CK_ATTRIBUTE* attribute) {
    attribute->ulValueLen = 0;
    return result;
  }

  bool IsEcPublicKey() { return KeyType() == CKK_EC; }

  // The type of a public key; nothing when the object is something else.
  std::optional<CK_KEY_TYPE> KeyType() {
    if (virtual_key_ != nullptr) return virtual_key_->type;
    if (!has_key_type_) {
      has_key_type_ = true;
      if (ReadNumber(inner_, session_, object_, CKA_CLASS) == CKO_PUBLIC_KEY) {
        key_type_ = ReadNumber(inner_, session_, object_, CKA_KEY_TYPE);
      }
    }
    return key_type_;
  }

  CK_RV GetVirtual(CK_ATTRIBUTE* attribute) const {
    const auto value = virtual_key_->attributes.find(attribute->type);
    if (value == virtual_key_->attributes.end()) return Fail(CKR_ATTRIBUTE_TYPE_INVALID, attribute);
    return Answer(value->second.data(), value->second.size(), attribute);
  }

  CK_RV GetMechanisms(CK_KEY_TYPE key_type, CK_ATTRIBUTE* attribute) {
    Mechanisms own;
    if (virtual_key_ == nullptr) own = ReadAllowedMechanisms(inner_, session_, object_);
    Mechanisms usable;
    if (!own.empty()) {
      usable = CompleteMechanisms(objects_.rules(), own);
    } else {
      Mechanisms offered;
      const CK_RV result = objects_.GetMechanisms(&offered);
      if (result != CKR_OK) return Fail(result, attribute);
      usable = UsableMechanisms(objects_.rules(), key_type, offered);
    }
    return Answer(usable.data(), usable.size() * sizeof(CK_MECHANISM_TYPE), attribute);
  }

  CK_RV GetDerive(CK_ATTRIBUTE* attribute) {
    Mechanisms offered;
    const CK_RV result = objects_.GetMechanisms(&offered);
    if (result != CKR_OK) return Fail(result, attribute);
    return AnswerFlag(Contains(offered, CKM_ECDH1_DERIVE), attribute);
  }

  // Only a label that is not ASCII or too long is answered here. The extension reads the labels of
  // certificates and of public keys.
  std::optional<CK_RV> GetLabel(CK_ATTRIBUTE* attribute) {
    std::optional<Bytes> label;
    if (virtual_key_ != nullptr) {
      label = virtual_key_->attributes.at(CKA_LABEL);
    } else {
      label = ReadAttribute(inner_, session_, object_, CKA_LABEL, kMaxCertificateRead);
    }
    if (!label) return std::nullopt;
    const std::string_view text(reinterpret_cast<const char*>(label->data()), label->size());
    const bool becomes_ascii = objects_.rules().Has(Rule::kAsciiLabels) && !IsAscii(text);
    if (!becomes_ascii && label->size() <= kMaxLabel) {
      return virtual_key_ != nullptr ? std::optional(GetVirtual(attribute)) : std::nullopt;
    }
    if (virtual_key_ == nullptr && !KeyType().has_value() &&
        ReadNumber(inner_, session_, object_, CKA_CLASS) != CKO_CERTIFICATE) {
      return std::nullopt;
    }
    const std::string whole = becomes_ascii ? ToAscii(text) : std::string(text);
    const std::string_view shown = Cut(whole, kMaxLabel);
    return Answer(shown.data(), shown.size(), attribute);
  }

  // Asks the module and takes no length on trust.
  CK_RV AskModule(std::vector<CK_ATTRIBUTE>* asked) const {
    const std::vector<CK_ATTRIBUTE> before = *asked;
    CK_RV result = inner_.C_GetAttributeValue(session_, object_, asked->data(), asked->size());
    const bool is_failed_read = result == CKR_ATTRIBUTE_SENSITIVE ||
                                result == CKR_ATTRIBUTE_TYPE_INVALID ||
                                result == CKR_BUFFER_TOO_SMALL;
    for (std::size_t i = 0; i < asked->size(); ++i) {
      CK_ULONG& length = (*asked)[i].ulValueLen;
      // The module must not have changed where the values go, nor what they are.
      (*asked)[i] = {before[i].type, before[i].pValue, length};
      CK_RV checked = CheckLength(before[i], length);
      // No search gives an object with such a CKA_ID: the module tells another one now.
      if (before[i].type == CKA_ID && checked == CKR_OK && length > kMaxShownId) {
        checked = CKR_ATTRIBUTE_TYPE_INVALID;
      }
      if (result == CKR_OK) result = checked;
      // Some modules leave the length of the one attribute that they refused as it was.
      if (checked != CKR_OK || (is_failed_read && asked->size() == 1)) length = 0;
    }
    return result;
  }

  TokenObjects& objects_;
  const CK_FUNCTION_LIST& inner_;
  CK_SESSION_HANDLE session_;
  CK_OBJECT_HANDLE object_;
  const VirtualKey* virtual_key_;
  bool has_key_type_ = false;
  std::optional<CK_KEY_TYPE> key_type_;
};

}  // namespace

CK_RV GetAttributes(TokenObjects& objects, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                    std::span<CK_ATTRIBUTE> attributes) {
  const std::vector<CK_ATTRIBUTE> before(attributes.begin(), attributes.end());
  return objects.WithCurrent(session, object, [&](CK_OBJECT_HANDLE current) {
    // What was answered in the module's place could not be told of an unknown object.
    std::copy(before.begin(), before.end(), attributes.begin());
    return Reader(objects, session, current).Get(attributes);
  });
}

}  // namespace kelvrin::adapter
