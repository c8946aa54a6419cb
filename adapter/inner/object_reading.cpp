#include "adapter/inner/object_reading.h"

namespace kelvrin::adapter {

std::optional<Bytes> ReadAttribute(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                                   CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type,
                                   std::size_t room) {
  Bytes value(room);
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

std::optional<CK_ULONG> ReadLength(const CK_FUNCTION_LIST& inner, CK_SESSION_HANDLE session,
                                   CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
  CK_ATTRIBUTE attribute = {type, nullptr, 0};
  if (inner.C_GetAttributeValue(session, object, &attribute, 1) != CKR_OK) return std::nullopt;
  if (attribute.ulValueLen == CK_UNAVAILABLE_INFORMATION) return std::nullopt;
  return attribute.ulValueLen;
}

}  // namespace kelvrin::adapter
