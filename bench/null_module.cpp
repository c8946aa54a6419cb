// A PKCS#11 module that does nothing: every call is CKR_OK at once, with a fixed handle or length.
// What a request takes through it is what the callers cost. Its one token has no certificate, every
// key, and a user who is logged in.
#include <p11-kit/pkcs11.h>

#include <cstring>

namespace {

constexpr CK_ULONG kSignatureSize = 256;

CK_RV Initialize(void* /*arguments*/) { return CKR_OK; }
CK_RV Finalize(void* /*reserved*/) { return CKR_OK; }

CK_RV GetSlotList(CK_BBOOL /*token_present*/, CK_SLOT_ID* list, CK_ULONG* count) {
  if (list != nullptr) *list = 0;
  *count = 1;
  return CKR_OK;
}

CK_RV GetSlotInfo(CK_SLOT_ID /*slot*/, CK_SLOT_INFO* info) {
  std::memset(info->slotDescription, ' ', sizeof(info->slotDescription));
  return CKR_OK;
}

CK_RV GetTokenInfo(CK_SLOT_ID /*slot*/, CK_TOKEN_INFO* info) {
  std::memset(info->label, ' ', sizeof(info->label));
  std::memcpy(info->label, "nothing", 7);
  return CKR_OK;
}

CK_RV OpenSession(CK_SLOT_ID /*slot*/, CK_FLAGS /*flags*/, void* /*application*/,
                  CK_NOTIFY /*notify*/, CK_SESSION_HANDLE* session) {
  *session = 1;
  return CKR_OK;
}

CK_RV GetSessionInfo(CK_SESSION_HANDLE /*session*/, CK_SESSION_INFO* info) {
  info->state = CKS_RW_USER_FUNCTIONS;
  return CKR_OK;
}

bool searches_certificates = false;

CK_RV FindObjectsInit(CK_SESSION_HANDLE /*session*/, CK_ATTRIBUTE* attributes, CK_ULONG /*count*/) {
  CK_OBJECT_CLASS object_class = 0;
  std::memcpy(&object_class, attributes[0].pValue, sizeof(object_class));
  searches_certificates = object_class == CKO_CERTIFICATE;
  return CKR_OK;
}

CK_RV FindObjects(CK_SESSION_HANDLE /*session*/, CK_OBJECT_HANDLE* objects, CK_ULONG /*room*/,
                  CK_ULONG* count) {
  *objects = 1;
  *count = searches_certificates ? 0 : 1;
  return CKR_OK;
}

// Flags are CK_TRUE, and the one allowed mechanism is CKM_RSA_X_509.
CK_RV GetAttributeValue(CK_SESSION_HANDLE /*session*/, CK_OBJECT_HANDLE /*object*/,
                        CK_ATTRIBUTE* attributes, CK_ULONG /*count*/) {
  const CK_MECHANISM_TYPE mechanism = CKM_RSA_X_509;
  const CK_BBOOL yes = CK_TRUE;
  const bool is_list = attributes->type == CKA_ALLOWED_MECHANISMS;
  attributes->ulValueLen = is_list ? sizeof(mechanism) : sizeof(yes);
  std::memcpy(attributes->pValue, is_list ? static_cast<const void*>(&mechanism) : &yes,
              attributes->ulValueLen);
  return CKR_OK;
}

CK_RV SignInit(CK_SESSION_HANDLE /*session*/, CK_MECHANISM* /*mechanism*/,
               CK_OBJECT_HANDLE /*key*/) {
  return CKR_OK;
}

CK_RV Sign(CK_SESSION_HANDLE /*session*/, CK_BYTE* /*data*/, CK_ULONG /*size*/,
           CK_BYTE* /*signature*/, CK_ULONG* signature_size) {
  *signature_size = kSignatureSize;
  return CKR_OK;
}

// What else there is stays null: nobody here calls it.
CK_FUNCTION_LIST MakeList() {
  CK_FUNCTION_LIST list = {};
  list.version = {2, 40};
  list.C_Initialize = Initialize;
  list.C_Finalize = Finalize;
  list.C_GetSlotList = GetSlotList;
  list.C_GetSlotInfo = GetSlotInfo;
  list.C_GetTokenInfo = GetTokenInfo;
  list.C_OpenSession = OpenSession;
  list.C_GetSessionInfo = GetSessionInfo;
  list.C_GetAttributeValue = GetAttributeValue;
  list.C_FindObjectsInit = FindObjectsInit;
  list.C_FindObjects = FindObjects;
  list.C_SignInit = SignInit;
  list.C_Sign = Sign;
  return list;
}

}  // namespace

extern "C" CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR list) {
  static CK_FUNCTION_LIST functions = MakeList();
  *list = &functions;
  return CKR_OK;
}
