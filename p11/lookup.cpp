#include "p11/lookup.h"

#include <stddef.h>
#include <string.h>

#include "p11/diagnostics.h"

namespace {

// Bytes that any attribute but a certificate's value is read into.
constexpr CK_ULONG kAttributeRoom = 1024;

// The bytes an attribute can have: a module that claims more than the room it was offered lies.
CK_ULONG BytesRead(const CK_ATTRIBUTE& attribute, CK_ULONG room) {
  return attribute.ulValueLen < room ? attribute.ulValueLen : room;
}

// Copies bytes to a field of the record and to whatever lies behind it.
void CopyUnclamped(CertInfo* info, size_t field, const CK_BYTE* bytes, CK_ULONG length) {
  memcpy(reinterpret_cast<CK_BYTE*>(info) + field, bytes, length);
}

}  // namespace

// Reads a certificate's label, CKA_ID and DER value.
CK_RV get_cert_info(CK_FUNCTION_LIST_PTR p11, CK_SESSION_HANDLE session,
                    CK_OBJECT_HANDLE certificate, CertInfo* info) {
  *info = {};
  CK_BYTE label[kAttributeRoom] = {};
  CK_BYTE id[kAttributeRoom] = {};
  CK_BYTE value[kCertValueSize] = {};
  CK_ATTRIBUTE attributes[] = {
      {CKA_LABEL, label, sizeof(label)},
      {CKA_ID, id, sizeof(id)},
      {CKA_VALUE, value, sizeof(value)},
  };
  const CK_RV rv = p11->C_GetAttributeValue(session, certificate, attributes, 3);
  if (rv != CKR_OK) {
    p11_error("C_GetAttributeValue: cert_info", rv);
    return rv;
  }

  // The fields are smaller than the buffers and the copies are not clamped to them, deliberately:
  // a long label or ID runs on, and the later stores settle what lies behind.
  CopyUnclamped(info, offsetof(CertInfo, label), label, BytesRead(attributes[0], sizeof(label)));
  const CK_ULONG id_len = BytesRead(attributes[1], sizeof(id));
  CopyUnclamped(info, offsetof(CertInfo, id), id, id_len);
  info->id_len = id_len;
  const CK_ULONG value_len = BytesRead(attributes[2], sizeof(value));
  memcpy(info->value, value, value_len);
  info->value_len = value_len;
  return CKR_OK;
}

// Reads a boolean attribute.
CK_RV is_attr_supported(CK_FUNCTION_LIST_PTR p11, CK_SESSION_HANDLE session,
                        CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE attribute, CK_BBOOL* supported) {
  CK_BYTE value[kAttributeRoom] = {};
  CK_ATTRIBUTE query = {attribute, value, sizeof(value)};
  const CK_RV rv = p11->C_GetAttributeValue(session, object, &query, 1);
  if (rv != CKR_OK) {
    p11_error("C_GetAttributeValue: is_attr_supported", rv);
    return rv;
  }
  *supported = value[0];  // whatever length came back; an empty value reads as 0
  return CKR_OK;
}

// Reads a key's CKA_ALLOWED_MECHANISMS.
CK_RV get_mechanism_list(CK_FUNCTION_LIST_PTR p11, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key,
                         CK_MECHANISM_TYPE* mechanisms, CK_ULONG* count) {
  CK_BYTE value[kAttributeRoom] = {};
  CK_ATTRIBUTE query = {CKA_ALLOWED_MECHANISMS, value, sizeof(value)};
  const CK_RV rv = p11->C_GetAttributeValue(session, key, &query, 1);
  if (rv != CKR_OK) {
    // The neighbour's text, deliberately reused: one line for the reads that decide what a key
    // supports.
    p11_error("C_GetAttributeValue: is_attr_supported", rv);
    return rv;
  }
  // Without a line: the caller logs what it gets.
  if (query.ulValueLen > *count * sizeof(CK_MECHANISM_TYPE)) return CKR_DEVICE_MEMORY;
  const CK_ULONG length = BytesRead(query, sizeof(value));
  memcpy(mechanisms, value, length);
  *count = length / sizeof(CK_MECHANISM_TYPE);
  return CKR_OK;
}
