// Finds and reads objects on the card: certificates, the keys under a CKA_ID, usage flags and
// allowed mechanisms. Keeps no state and takes no lock; every search is left open on the session,
// and two must not run on one session at a time. Failed calls of the module are logged through
// p11_error. The key searches live in key_search.cpp.
#pragma once

#include <p11-kit/pkcs11.h>

// Sizes in bytes of CertInfo's fields.
constexpr CK_ULONG kCertFieldSize = 512;
constexpr CK_ULONG kCertValueSize = 4096;

// A certificate's attributes. The order of the fields matters: a label or an ID of more than 512
// bytes runs on into the fields behind it.
struct CertInfo {
  CK_BYTE label[kCertFieldSize];  // CKA_LABEL; NUL-terminated only by the zero fill
  CK_BYTE id[kCertFieldSize];     // CKA_ID
  CK_ULONG id_len;                // valid bytes of the CKA_ID
  CK_BYTE value[kCertValueSize];  // CKA_VALUE, the DER encoding
  CK_ULONG value_len;             // valid bytes of value
};

// Reads a certificate's label, CKA_ID and DER value.
//   p11          function list.
//   session      open session.
//   certificate  the certificate object.
//   info         receives the attributes; all zero on failure. Owned by the caller.
// Returns C_GetAttributeValue's result.
CK_RV get_cert_info(CK_FUNCTION_LIST_PTR p11, CK_SESSION_HANDLE session,
                    CK_OBJECT_HANDLE certificate, CertInfo* info);

// Finds the first public key with a CKA_ID. Says on standard output how the search goes, and in the
// log, as an error, when there is no such key.
//   p11      function list.
//   session  open session.
//   id       CKA_ID bytes, borrowed for the call.
//   id_len   their number.
//   key      receives the first match, or CK_INVALID_HANDLE when there is none: that too is CKR_OK.
//            Untouched on failure.
// Returns the failing search call's result, or CKR_OK.
CK_RV get_pub_key(CK_FUNCTION_LIST_PTR p11, CK_SESSION_HANDLE session, const CK_BYTE* id,
                  CK_ULONG id_len, CK_OBJECT_HANDLE* key);

// The same for the private key.
CK_RV get_priv_key(CK_FUNCTION_LIST_PTR p11, CK_SESSION_HANDLE session, const CK_BYTE* id,
                   CK_ULONG id_len, CK_OBJECT_HANDLE* key);

// Reads a boolean attribute. Only the value CK_TRUE means yes.
//   p11        function list.
//   session    open session.
//   object     the object.
//   attribute  the attribute's type.
//   supported  receives the first byte of the value, 0 for an empty one; untouched on failure.
// Returns C_GetAttributeValue's result.
CK_RV is_attr_supported(CK_FUNCTION_LIST_PTR p11, CK_SESSION_HANDLE session,
                        CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE attribute, CK_BBOOL* supported);

// Reads a key's CKA_ALLOWED_MECHANISMS, at most 128 of them.
//   p11         function list.
//   session     open session.
//   key         the key object.
//   mechanisms  array of the caller.
//   count       in: elements the array has; out: elements written. Untouched on failure.
// Returns C_GetAttributeValue's result, or CKR_DEVICE_MEMORY when the array is too small.
CK_RV get_mechanism_list(CK_FUNCTION_LIST_PTR p11, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key,
                         CK_MECHANISM_TYPE* mechanisms, CK_ULONG* count);
