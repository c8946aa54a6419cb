#include "p11/operations.h"

#include <string.h>

#include "p11/diagnostics.h"

namespace {

// The parameters of the hash-and-sign PSS mechanisms; the salt is as long as the digest. Plain
// CKM_RSA_PKCS_PSS is not among them on purpose: it goes to the card without a parameter. No
// algorithm leads to one of these rows: the extension never requests them.
struct PssRow {
  CK_MECHANISM_TYPE mechanism;
  CK_RSA_PKCS_PSS_PARAMS parameters;
};

constexpr PssRow kPssTable[] = {
    {CKM_SHA1_RSA_PKCS_PSS, {CKM_SHA_1, CKG_MGF1_SHA1, 20}},
    {CKM_SHA256_RSA_PKCS_PSS, {CKM_SHA256, CKG_MGF1_SHA256, 32}},
    {CKM_SHA384_RSA_PKCS_PSS, {CKM_SHA384, CKG_MGF1_SHA384, 48}},
    {CKM_SHA512_RSA_PKCS_PSS, {CKM_SHA512, CKG_MGF1_SHA512, 64}},
};

// Says how much of the offered room a result fills: a module that claims more lies.
void KeepWithin(CK_ULONG room, CK_ULONG* length) {
  if (*length > room) *length = room;
}

}  // namespace

// Signs data as it stands.
CK_RV sign(CK_FUNCTION_LIST* p11, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key,
           CK_MECHANISM_TYPE mechanism, const CK_BYTE* data, CK_ULONG data_len, CK_BYTE* signature,
           CK_ULONG* signature_len) {
  CK_RSA_PKCS_PSS_PARAMS pss;
  CK_MECHANISM used = {mechanism, nullptr, 0};
  for (const PssRow& row : kPssTable) {
    if (row.mechanism != mechanism) continue;
    pss = row.parameters;
    used.pParameter = &pss;
    used.ulParameterLen = sizeof(pss);
  }

  CK_RV rv = p11->C_SignInit(session, &used, key);
  if (rv != CKR_OK) {
    p11_error("C_SignInit", rv);
    return rv;
  }
  const CK_ULONG room = *signature_len;
  rv = p11->C_Sign(session, const_cast<CK_BYTE*>(data), data_len, signature, signature_len);
  if (rv != CKR_OK) {
    p11_error("C_Sign", rv);
    return rv;
  }
  KeepWithin(room, signature_len);
  return CKR_OK;
}

// Decrypts a ciphertext.
CK_RV decrypt(CK_FUNCTION_LIST* p11, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key,
              CK_MECHANISM_TYPE mechanism, const CK_BYTE* ciphertext, CK_ULONG ciphertext_len,
              CK_BYTE* plaintext, CK_ULONG* plaintext_len) {
  CK_MECHANISM used = {mechanism, nullptr, 0};
  CK_RV rv = p11->C_DecryptInit(session, &used, key);
  if (rv != CKR_OK) {
    p11_error("C_DecryptInit", rv);
    return rv;
  }
  const CK_ULONG room = *plaintext_len;
  rv = p11->C_Decrypt(session, const_cast<CK_BYTE*>(ciphertext), ciphertext_len, plaintext,
                      plaintext_len);
  if (rv != CKR_OK) {
    p11_error("C_Decrypt", rv);
    return rv;
  }
  KeepWithin(room, plaintext_len);
  return CKR_OK;
}

// Derives a shared secret and reads it back.
CK_RV derive_key(CK_FUNCTION_LIST* p11, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key,
                 CK_MECHANISM_TYPE mechanism, const CK_BYTE* public_key, CK_ULONG public_key_len,
                 CK_BYTE* secret, CK_ULONG* secret_len) {
  CK_ECDH1_DERIVE_PARAMS parameters = {};
  parameters.kdf = CKD_NULL;
  parameters.ulPublicDataLen = public_key_len;
  parameters.pPublicData = const_cast<CK_BYTE*>(public_key);
  CK_MECHANISM used = {mechanism, &parameters, sizeof(parameters)};
  CK_OBJECT_HANDLE derived = CK_INVALID_HANDLE;
  CK_RV rv = p11->C_DeriveKey(session, &used, key, nullptr, 0, &derived);
  if (rv != CKR_OK) {
    p11_error("C_DeriveKey", rv);
    return rv;
  }

  CK_BYTE value[kResultSize] = {};
  CK_ATTRIBUTE attribute = {CKA_VALUE, value, sizeof(value)};
  rv = p11->C_GetAttributeValue(session, derived, &attribute, 1);
  if (rv != CKR_OK) p11_error("C_GetAttributeValue", rv);
  // Written whatever the read said, and as long as the attribute says, deliberately: the result
  // tells the caller whether the bytes count. The module must not leave more than it was offered.
  memcpy(secret, value, attribute.ulValueLen);
  *secret_len = attribute.ulValueLen;
  return rv;
}
