// A PKCS#11 module for tests: hands everything on to another one and does one thing wrong.
//
// The environment says what: KELVRIN_FAULT_BEHIND is the path of the module behind, KELVRIN_FAULT
// names the fault, and the names of the functions that are called at all go to the file
// KELVRIN_FAULT_CALLS, one a line, those of C_Login, C_DeriveKey and C_Sign. That of C_Login has
// the token's label behind it, and "context" or, where a crash would leave a core file, "core"
// before.
#include <dlfcn.h>
#include <p11-kit/pkcs11.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

#include "modulecheck/testing/fault.h"
#include "modulecheck/testing/fault_login.h"

namespace {

using kelvrin::fault::behind;
using kelvrin::fault::Environment;
using kelvrin::fault::Hang;
using kelvrin::fault::Is;
using kelvrin::fault::Note;

CK_OBJECT_CLASS ClassOf(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object) {
  CK_OBJECT_CLASS object_class = CK_UNAVAILABLE_INFORMATION;
  CK_ATTRIBUTE attribute = {CKA_CLASS, &object_class, sizeof(object_class)};
  behind->C_GetAttributeValue(session, object, &attribute, 1);
  return object_class;
}

bool HasId(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_BYTE wanted) {
  CK_BYTE id[64] = {};
  CK_ATTRIBUTE attribute = {CKA_ID, id, sizeof(id)};
  const CK_RV result = behind->C_GetAttributeValue(session, object, &attribute, 1);
  return result == CKR_OK && attribute.ulValueLen == 1 && id[0] == wanted;
}

// --- The functions that do something wrong ---

CK_RV Initialize(void* arguments) {
  if (Is("noise")) {
    std::puts("noise on standard output");
    std::fflush(stdout);
  }
  if (Is("exit-at-start")) std::exit(3);
  if (Is("no-start")) return CKR_GENERAL_ERROR;
  if (Is("initialise") && arguments == nullptr) return CKR_ARGUMENTS_BAD;
  const CK_RV result = behind->C_Initialize(nullptr);
  const bool is_again = result == CKR_CRYPTOKI_ALREADY_INITIALIZED;
  return is_again && Is("initialise-again") ? CKR_GENERAL_ERROR : result;
}

CK_RV Finalize(void* reserved) {
  const CK_RV result = behind->C_Finalize(reserved);
  return Is("finalise") ? CKR_GENERAL_ERROR : result;
}

CK_RV GetSlotList(CK_BBOOL token_present, CK_SLOT_ID* list, CK_ULONG* count) {
  if (!Is("no-slot")) return behind->C_GetSlotList(token_present, list, count);
  *count = 0;
  return CKR_OK;
}

CK_RV GetSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO* info) {
  const CK_RV result = behind->C_GetSlotInfo(slot, info);
  if (Is("slot-description")) std::memset(info->slotDescription, 0, sizeof(info->slotDescription));
  if (Is("odd-description")) std::memcpy(info->slotDescription, "A<B & \x1b[31m\xff", 12);
  return result;
}

CK_RV GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO* info) {
  const CK_RV result = behind->C_GetTokenInfo(slot, info);
  if (result != CKR_OK) return result;
  if (Is("card-number")) info->label[0] = ' ';
  if (Is("pin-locked")) info->flags |= CKF_USER_PIN_LOCKED;
  if (Is("pin-final-try")) info->flags |= CKF_USER_PIN_FINAL_TRY;
  if (Is("pin-count-low")) info->flags |= CKF_USER_PIN_COUNT_LOW;
  if (Is("token")) info->flags &= ~CKF_TOKEN_INITIALIZED;
  return CKR_OK;
}

CK_RV GetMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE* list, CK_ULONG* count) {
  if (Is("crash-in-listing")) std::abort();
  const CK_RV result = behind->C_GetMechanismList(slot, list, count);
  if (list == nullptr || result != CKR_OK || !Is("raw-rsa-offered")) return result;
  *count = static_cast<CK_ULONG>(std::remove(list, list + *count, CKM_RSA_X_509) - list);
  return CKR_OK;
}

CK_RV GetSessionInfo(CK_SESSION_HANDLE session, CK_SESSION_INFO* info) {
  const CK_RV result = behind->C_GetSessionInfo(session, info);
  if (Is("login-state")) info->state = CKS_RW_PUBLIC_SESSION;
  return result;
}

std::set<CK_SESSION_HANDLE>& OpenSearches() {
  static std::set<CK_SESSION_HANDLE> sessions;
  return sessions;
}

CK_RV FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE* attributes, CK_ULONG count) {
  const bool is_open = !OpenSearches().insert(session).second;
  if (is_open && Is("second-search")) return CKR_OPERATION_ACTIVE;
  CK_OBJECT_CLASS object_class = CK_UNAVAILABLE_INFORMATION;
  if (count != 0 && attributes[0].type == CKA_CLASS) {
    std::memcpy(&object_class, attributes[0].pValue, sizeof(object_class));
  }
  const bool is_hidden = (Is("public-keys") && object_class == CKO_PUBLIC_KEY) ||
                         (Is("private-keys") && object_class == CKO_PRIVATE_KEY) ||
                         (Is("certificates") && object_class == CKO_CERTIFICATE);
  if (!is_hidden) return behind->C_FindObjectsInit(session, attributes, count);
  CK_ATTRIBUTE nothing = {CKA_LABEL, const_cast<char*>("there is none"), 13};
  return behind->C_FindObjectsInit(session, &nothing, 1);
}

CK_RV FindObjectsFinal(CK_SESSION_HANDLE session) {
  OpenSearches().erase(session);
  return behind->C_FindObjectsFinal(session);
}

// A value of 5000 bytes in the place of a certificate's own.
CK_RV GiveLongValue(CK_ATTRIBUTE* attribute) {
  constexpr CK_ULONG kSize = 5000;
  const bool fits = attribute->pValue == nullptr || attribute->ulValueLen >= kSize;
  if (fits && attribute->pValue != nullptr) std::memset(attribute->pValue, 0x30, kSize);
  attribute->ulValueLen = fits ? kSize : 0;
  return fits ? CKR_OK : CKR_BUFFER_TOO_SMALL;
}

CK_RV GiveTrue(CK_ATTRIBUTE* attribute, CK_ULONG room) {
  attribute->ulValueLen = sizeof(CK_BBOOL);
  if (attribute->pValue == nullptr) return CKR_OK;
  if (room < sizeof(CK_BBOOL)) return CKR_BUFFER_TOO_SMALL;
  *static_cast<CK_BBOOL*>(attribute->pValue) = CK_TRUE;
  return CKR_OK;
}

// What is wrong with one attribute after it was read.
CK_RV Spoil(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE* attribute,
            CK_ULONG room, CK_RV result) {
  const CK_OBJECT_CLASS object_class = ClassOf(session, object);
  if (object_class == CKO_PRIVATE_KEY && attribute->type == CKA_ALWAYS_AUTHENTICATE &&
      Is("context-login")) {
    return GiveTrue(attribute, room);
  }
  auto* const value = static_cast<CK_BYTE*>(attribute->pValue);
  const bool has_value = result == CKR_OK && value != nullptr && attribute->ulValueLen != 0;
  if (object_class == CKO_CERTIFICATE) {
    if (attribute->type == CKA_VALUE && Is("certificate-sizes") && HasId(session, object, 1)) {
      attribute->ulValueLen = room;
      return GiveLongValue(attribute);
    }
    if (attribute->type == CKA_LABEL && has_value && Is("certificate-labels")) value[0] = 0xfc;
    if (attribute->type == CKA_VALUE && has_value && Is("no-certificate")) value[0] = 0x31;
  }
  if (object_class != CKO_PUBLIC_KEY) return result;
  if (attribute->type == CKA_VERIFY && Is("usage-flags")) {
    attribute->ulValueLen = 0;
    return CKR_ATTRIBUTE_TYPE_INVALID;
  }
  if (attribute->type == CKA_WRAP && has_value && Is("ec-usage")) value[0] = CK_TRUE;
  if (attribute->type == CKA_ALLOWED_MECHANISMS && result == CKR_OK &&
      (Is("allowed-mechanisms") || Is("raw-rsa-offered"))) {
    attribute->ulValueLen = 0;
  }
  return result;
}

CK_RV GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                        CK_ATTRIBUTE* attributes, CK_ULONG count) {
  if (object == CK_INVALID_HANDLE && Is("invalid-handle")) return CKR_OK;
  CK_RV worst = CKR_OK;
  for (CK_ULONG i = 0; i < count; ++i) {
    const CK_ULONG room = attributes[i].ulValueLen;
    CK_RV result = behind->C_GetAttributeValue(session, object, &attributes[i], 1);
    result = Spoil(session, object, &attributes[i], room, result);
    if (result != CKR_OK && object != CK_INVALID_HANDLE && Is("failed-lengths")) {
      attributes[i].ulValueLen = CK_UNAVAILABLE_INFORMATION;
    }
    if (result != CKR_OK) worst = result;
  }
  return worst;
}

// What is being signed or decrypted.
CK_MECHANISM_TYPE operation = 0;

std::set<CK_SESSION_HANDLE>& FailedSessions() {
  static std::set<CK_SESSION_HANDLE> sessions;
  return sessions;
}

CK_RV SignInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
  operation = mechanism->mechanism;
  if (Is("sign-during-search") && OpenSearches().contains(session)) return CKR_OPERATION_ACTIVE;
  if (Is("sign-after-failure") && FailedSessions().contains(session)) return CKR_OPERATION_ACTIVE;
  if (Is("raw-rsa-block") && operation == CKM_RSA_X_509) return CKR_MECHANISM_INVALID;
  if (Is("ecdsa-sha1") && operation == CKM_ECDSA_SHA1) return CKR_MECHANISM_INVALID;
  return kelvrin::fault::Begun(session, behind->C_SignInit(session, mechanism, key));
}

CK_RV Sign(CK_SESSION_HANDLE session, CK_BYTE* data, CK_ULONG size, CK_BYTE* signature,
           CK_ULONG* signature_size) {
  Note("C_Sign");
  if (Is("crash-in-sign")) std::abort();
  if (Is("hang-in-sign")) Hang();
  const bool is_raw = operation == CKM_RSA_X_509;
  if (Is("raw-rsa-short") && is_raw && size < 256) return CKR_DATA_LEN_RANGE;
  if (Is("ecdsa-long-digests") && operation == CKM_ECDSA && size > 32) return CKR_DEVICE_ERROR;
  if (Is("raw-rsa-too-long") && is_raw && size > 256) size = 256;
  const CK_RV result = behind->C_Sign(session, data, size, signature, signature_size);
  if (result != CKR_OK) FailedSessions().insert(session);
  if (result == CKR_OK && Is("ecdsa-der") && operation == CKM_ECDSA) *signature_size = 64;
  if (result == CKR_OK && Is("wrong-signatures")) signature[*signature_size - 1] ^= 1;
  return kelvrin::fault::Ended(session, signature_size, result);
}

CK_RV DecryptInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
  operation = mechanism->mechanism;
  if (Is("decrypt-pkcs1") && operation == CKM_RSA_PKCS) return CKR_MECHANISM_INVALID;
  return kelvrin::fault::Begun(session, behind->C_DecryptInit(session, mechanism, key));
}

CK_RV Decrypt(CK_SESSION_HANDLE session, CK_BYTE* data, CK_ULONG size, CK_BYTE* plain,
              CK_ULONG* plain_size) {
  const CK_RV result = behind->C_Decrypt(session, data, size, plain, plain_size);
  if (result == CKR_OK && Is("decrypt-raw") && operation == CKM_RSA_X_509) plain[0] = 1;
  return kelvrin::fault::Ended(session, plain_size, result);
}

CK_RV DeriveKey(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key,
                CK_ATTRIBUTE* attributes, CK_ULONG count, CK_OBJECT_HANDLE* derived) {
  Note("C_DeriveKey");
  if (Is("derivation")) return CKR_DEVICE_ERROR;
  return behind->C_DeriveKey(session, mechanism, key, attributes, count, derived);
}

CK_FUNCTION_LIST MakeList() {
  void* const library = dlopen(Environment("KELVRIN_FAULT_BEHIND").c_str(), RTLD_NOW);
  void* const symbol = library == nullptr ? nullptr : dlsym(library, "C_GetFunctionList");
  if (symbol == nullptr || reinterpret_cast<CK_C_GetFunctionList>(symbol)(&behind) != CKR_OK) {
    std::abort();
  }
  CK_FUNCTION_LIST list = *behind;
  list.C_Initialize = Initialize;
  list.C_Finalize = Finalize;
  list.C_GetSlotList = GetSlotList;
  list.C_GetSlotInfo = GetSlotInfo;
  list.C_GetTokenInfo = GetTokenInfo;
  list.C_GetMechanismList = GetMechanismList;
  list.C_GetSessionInfo = GetSessionInfo;
  list.C_Login = kelvrin::fault::Login;
  list.C_FindObjectsInit = FindObjectsInit;
  list.C_FindObjectsFinal = FindObjectsFinal;
  list.C_GetAttributeValue = GetAttributeValue;
  list.C_SignInit = SignInit;
  list.C_Sign = Sign;
  list.C_DecryptInit = DecryptInit;
  list.C_Decrypt = Decrypt;
  list.C_DeriveKey = DeriveKey;
  return list;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) CK_RV C_GetFunctionList(CK_FUNCTION_LIST** list) {
  if (Is("no-list")) return CKR_HOST_MEMORY;
  static CK_FUNCTION_LIST functions = MakeList();
  *list = &functions;
  return CKR_OK;
}
