#include "adapter/attribute_check.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

namespace kelvrin::adapter {
namespace {

// No attribute is longer; a module that says so is not believed.
constexpr CK_ULONG kMaxLength = CK_ULONG{1} << 26;
// No template has more attributes; a caller may claim any room.
constexpr CK_ULONG kMaxAttributes = 256;

// Makers' own types have the flag by chance.
bool HoldsTemplate(CK_ATTRIBUTE_TYPE type) {
  return (type & (CKA_VENDOR_DEFINED | CKF_ARRAY_ATTRIBUTE)) == CKF_ARRAY_ATTRIBUTE &&
         type != CKA_ALLOWED_MECHANISMS;
}

// The caller's arrays may lie anywhere.
CK_ATTRIBUTE ReadEntry(const CK_BYTE* place, std::size_t index) {
  CK_ATTRIBUTE entry;
  std::memcpy(&entry, place + index * sizeof(entry), sizeof(entry));
  return entry;
}

void WriteEntry(const CK_ATTRIBUTE& entry, std::size_t index, CK_BYTE* place) {
  std::memcpy(place + index * sizeof(entry), &entry, sizeof(entry));
}

// What was asked of a template's attribute, whose type is known only now.
CK_RV CheckEntry(const CK_ATTRIBUTE& before, const CK_ATTRIBUTE& entry) {
  // Where that template pointed to could not be remembered.
  if (HoldsTemplate(entry.type) && before.pValue != nullptr) return CKR_ATTRIBUTE_TYPE_INVALID;
  return CheckLength(before, entry.ulValueLen);
}

}  // namespace

CK_RV CheckLength(const CK_ATTRIBUTE& asked, CK_ULONG length) {
  if (length == CK_UNAVAILABLE_INFORMATION) return CKR_ATTRIBUTE_TYPE_INVALID;
  const CK_ULONG room = asked.pValue != nullptr ? asked.ulValueLen : kMaxLength;
  return length <= room ? CKR_OK : CKR_BUFFER_TOO_SMALL;
}

NestedTemplates::NestedTemplates(std::span<CK_ATTRIBUTE> attributes) {
  for (CK_ATTRIBUTE& attribute : attributes) {
    if (!HoldsTemplate(attribute.type) || attribute.pValue == nullptr) continue;
    Nested nested = {&attribute, static_cast<CK_BYTE*>(attribute.pValue), {}};
    nested.before.resize(std::min(attribute.ulValueLen / sizeof(CK_ATTRIBUTE), kMaxAttributes));
    for (std::size_t i = 0; i < nested.before.size(); ++i) {
      nested.before[i] = ReadEntry(nested.place, i);
    }
    templates_.push_back(std::move(nested));
  }
}

void NestedTemplates::Restore() const {
  for (const Nested& nested : templates_) {
    for (std::size_t i = 0; i < nested.before.size(); ++i) {
      WriteEntry(nested.before[i], i, nested.place);
    }
  }
}

CK_RV NestedTemplates::Check(CK_RV result, CK_ULONG no_length) const {
  const bool has_failed = result != CKR_OK;
  for (const Nested& nested : templates_) {
    CK_ULONG& length = nested.holder->ulValueLen;
    const std::size_t room = nested.before.size();
    // The attribute that did not fit tells so by its length.
    CK_ULONG count = has_failed ? room : length / sizeof(CK_ATTRIBUTE);
    if (count > room) {
      result = CKR_BUFFER_TOO_SMALL;
      length = no_length;
      count = 0;
    }
    for (std::size_t i = 0; i < room; ++i) {
      CK_ATTRIBUTE entry = i < count ? ReadEntry(nested.place, i) : nested.before[i];
      const CK_RV checked = i < count ? CheckEntry(nested.before[i], entry) : CK_RV{CKR_OK};
      if (checked != CKR_OK) entry.ulValueLen = no_length;
      if (result == CKR_OK) result = checked;
      entry.pValue = nested.before[i].pValue;
      WriteEntry(entry, i, nested.place);
    }
  }
  return result;
}

}  // namespace kelvrin::adapter
