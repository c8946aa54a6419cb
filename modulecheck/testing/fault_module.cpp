// A PKCS#11 module for tests: hands everything on to another one and does one thing wrong.
//
// The environment says what: KELVRIN_FAULT_BEHIND is the path of the module behind, KELVRIN_FAULT
// names the fault, and the names of some functions that are called go to the file
// KELVRIN_FAULT_CALLS, one a line. That of C_Login has the token's label behind it, and "context"
// or, where a crash would leave a core file, "core" before; that of C_Finalize the number of
// sessions that are still open.
#include <dlfcn.h>
#include <p11-kit/pkcs11.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <string_view>

namespace {

CK_FUNCTION_LIST* behind = nullptr;

std::string Environment(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

// Whether this is the fault that the test chose.
bool Is(std::string_view fault) {
  static const std::string wanted = Environment("KELVRIN_FAULT");
  return fault == wanted;
}

void Note(const std::string& call) {
  std::FILE* const file = std::fopen(Environment("KELVRIN_FAULT_CALLS").c_str(), "a");
  if (file == nullptr) std::abort();
  std::fprintf(file, "%s\n", call.c_str());
  std::fclose(file);
}

[[noreturn]] void Hang() {
  for (;;) pause();
}

using Sessions = std::set<CK_SESSION_HANDLE>;
Sessions open_sessions;
Sessions searching;
Sessions failed;
Sessions waiting;                 // operations that want a login of their own
CK_MECHANISM_TYPE operation = 0;  // what is being signed or decrypted
CK_OBJECT_HANDLE zero = 0;        // the object that has the handle 0, with handle-zero
bool is_pulled = false;           // the card, with card-pulled
std::string user_pin;             // that was accepted

// --- Objects ---

// One object's handle is 0: the first that is found.
CK_OBJECT_HANDLE Outer(CK_OBJECT_HANDLE handle) {
  if (!Is("handle-zero")) return handle;
  if (zero == 0) zero = handle;
  return handle == zero ? 0 : handle;
}
CK_OBJECT_HANDLE Inner(CK_OBJECT_HANDLE handle) { return handle == 0 && zero != 0 ? zero : handle; }

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

// Gives the attribute a value of so many bytes like this one.
CK_RV Give(CK_ATTRIBUTE* attribute, CK_ULONG room, const void* value, CK_ULONG size) {
  const bool fits = attribute->pValue == nullptr || room >= size;
  attribute->ulValueLen = fits ? size : 0;
  if (!fits) return CKR_BUFFER_TOO_SMALL;
  if (attribute->pValue == nullptr) return CKR_OK;
  std::memcpy(attribute->pValue, value, size);
  return CKR_OK;
}

CK_RV SpoilCertificate(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE* attribute,
                       CK_ULONG room, CK_RV result) {
  auto* const value = static_cast<CK_BYTE*>(attribute->pValue);
  const bool has_value = result == CKR_OK && value != nullptr && attribute->ulValueLen != 0;
  const std::string filler(5000, '0');
  if (attribute->type == CKA_VALUE && Is("certificate-sizes") && HasId(session, object, 1)) {
    return Give(attribute, room, filler.data(), filler.size());
  }
  if (attribute->type == CKA_ID && Is("certificate-ids") && HasId(session, object, 1)) {
    return Give(attribute, room, filler.data(), 256);
  }
  if (attribute->type == CKA_LABEL && has_value && Is("certificate-labels")) value[0] = 0xfc;
  if (attribute->type == CKA_VALUE && has_value && Is("no-certificate")) value[0] = 0x31;
  return result;
}

CK_RV SpoilPublicKey(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE* attribute,
                     CK_ULONG room, CK_RV result) {
  const bool has_value = result == CKR_OK && attribute->pValue != nullptr;
  const bool is_odd = Is("odd-key") && HasId(session, object, 1);
  if (attribute->type == CKA_VERIFY && (Is("usage-flags") || is_odd)) {
    attribute->ulValueLen = 0;
    return CKR_ATTRIBUTE_TYPE_INVALID;
  }
  if (attribute->type == CKA_VERIFY && Is("verify-minus-one")) {
    attribute->ulValueLen = CK_UNAVAILABLE_INFORMATION;
  }
  if (attribute->type == CKA_WRAP && has_value && Is("ec-usage")) {
    *static_cast<CK_BBOOL*>(attribute->pValue) = CK_TRUE;
  }
  if (attribute->type != CKA_ALLOWED_MECHANISMS || result != CKR_OK) return result;
  if (Is("allowed-mechanisms") || Is("raw-rsa-offered")) attribute->ulValueLen = 0;
  const CK_MECHANISM_TYPE useless = CKM_SHA256_RSA_PKCS;
  return Is("useless-mechanism") ? Give(attribute, room, &useless, sizeof(useless)) : result;
}

// What is wrong with one attribute after it was read.
CK_RV Spoil(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE* attribute,
            CK_ULONG room, CK_RV result) {
  if (Is("huge-lengths")) {
    attribute->ulValueLen = CK_ULONG{1} << 40;
    return CKR_OK;
  }
  const CK_BBOOL yes = CK_TRUE;
  switch (ClassOf(session, object)) {
    case CKO_PRIVATE_KEY:
      return attribute->type == CKA_ALWAYS_AUTHENTICATE && Is("context-login")
                 ? Give(attribute, room, &yes, sizeof(yes))
                 : result;
    case CKO_CERTIFICATE:
      return SpoilCertificate(session, object, attribute, room, result);
    case CKO_PUBLIC_KEY:
      return SpoilPublicKey(session, object, attribute, room, result);
    default:
      return result;
  }
}

CK_RV GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                        CK_ATTRIBUTE* attributes, CK_ULONG count) {
  if (is_pulled) return CKR_DEVICE_REMOVED;
  object = Inner(object);
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

CK_RV FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE* attributes, CK_ULONG count) {
  if (is_pulled) return CKR_DEVICE_REMOVED;
  const bool is_open = !searching.insert(session).second;
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

CK_RV FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE* found, CK_ULONG room,
                  CK_ULONG* count) {
  const CK_RV result = behind->C_FindObjects(session, found, room, count);
  if (result == CKR_OK) std::transform(found, found + *count, found, Outer);
  if (result == CKR_OK && *count != 0 && Is("huge-lengths")) *count = CK_ULONG{1} << 40;
  return result;
}

CK_RV FindObjectsFinal(CK_SESSION_HANDLE session) {
  searching.erase(session);
  return behind->C_FindObjectsFinal(session);
}

// --- The module, its slots, sessions and logins ---

// Whether the worker's arguments name an adapter's copy.
bool IsBehindAdapter() {
  std::ifstream file("/proc/self/cmdline", std::ios::binary);
  const std::string arguments{std::istreambuf_iterator<char>(file), {}};
  return arguments.find("/adapter.module") != std::string::npos;
}

CK_RV Initialize(void* arguments) {
  if (Is("noise")) {
    std::puts("noise on standard output");
    std::fflush(stdout);
    dprintf(3, "noise\n[1]\n{\"step\": 7}\n");
  }
  if (Is("exit-at-start")) std::exit(3);
  if (Is("hang-behind-adapter") && IsBehindAdapter()) {
    Note("hanging");
    Hang();
  }
  if (Is("no-start")) return CKR_GENERAL_ERROR;
  if (Is("initialise") && arguments == nullptr) return CKR_ARGUMENTS_BAD;
  const CK_RV result = behind->C_Initialize(nullptr);
  const bool is_again = result == CKR_CRYPTOKI_ALREADY_INITIALIZED;
  return is_again && Is("initialise-again") ? CKR_GENERAL_ERROR : result;
}

CK_RV Finalize(void* reserved) {
  Note("C_Finalize " + std::to_string(open_sessions.size()));
  // What the last process wrote where its document belongs.
  if (Is("garbage")) {
    dprintf(3, "{\"step\": [], \"results\": 8, \"listing\": []}\n");
    std::_Exit(0);
  }
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
  if (is_pulled || Is("empty-reader")) return CKR_TOKEN_NOT_PRESENT;
  const CK_RV result = behind->C_GetTokenInfo(slot, info);
  if (result != CKR_OK) return result;
  if (Is("card-number")) info->label[0] = ' ';
  if (Is("shared-label")) std::memcpy(info->label, "piv                             ", 32);
  if (Is("pin-locked")) info->flags |= CKF_USER_PIN_LOCKED;
  if (Is("pin-final-try")) info->flags |= CKF_USER_PIN_FINAL_TRY;
  if (Is("pin-count-low")) info->flags |= CKF_USER_PIN_COUNT_LOW;
  if (Is("token")) info->flags &= ~CKF_TOKEN_INITIALIZED;
  return CKR_OK;
}

CK_RV GetMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE* list, CK_ULONG* count) {
  if (Is("crash-in-listing")) std::abort();
  const CK_RV result = behind->C_GetMechanismList(slot, list, count);
  if (Is("huge-lengths")) *count = CK_ULONG{1} << 40;
  if (list == nullptr || result != CKR_OK || !Is("raw-rsa-offered")) return result;
  *count = static_cast<CK_ULONG>(std::remove(list, list + *count, CKM_RSA_X_509) - list);
  return CKR_OK;
}

CK_RV OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, void* application, CK_NOTIFY notify,
                  CK_SESSION_HANDLE* session) {
  if (Is("read-only") && (flags & CKF_RW_SESSION) != 0) return CKR_TOKEN_WRITE_PROTECTED;
  const CK_RV result = behind->C_OpenSession(slot, flags, application, notify, session);
  if (result == CKR_OK) open_sessions.insert(*session);
  return result;
}

CK_RV CloseSession(CK_SESSION_HANDLE session) {
  open_sessions.erase(session);
  searching.erase(session);
  return behind->C_CloseSession(session);
}

CK_RV GetSessionInfo(CK_SESSION_HANDLE session, CK_SESSION_INFO* info) {
  const CK_RV result = behind->C_GetSessionInfo(session, info);
  if (Is("login-state")) info->state = CKS_RW_PUBLIC_SESSION;
  return result;
}

std::string LabelOf(CK_SESSION_HANDLE session) {
  CK_SESSION_INFO info = {};
  CK_TOKEN_INFO token = {};
  behind->C_GetSessionInfo(session, &info);
  behind->C_GetTokenInfo(info.slotID, &token);
  return {reinterpret_cast<const char*>(token.label), sizeof(token.label)};
}

// As files, or through a pipe, for which the limit counts for nothing.
bool LeavesCoreFiles() {
  rlimit limit = {};
  return getrlimit(RLIMIT_CORE, &limit) != 0 || limit.rlim_max != 0 || prctl(PR_GET_DUMPABLE) != 0;
}

CK_RV Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_BYTE* pin, CK_ULONG size) {
  const bool is_context_login = user == CKU_CONTEXT_SPECIFIC;
  Note((LeavesCoreFiles() ? "core " : "") + std::string(is_context_login ? "context " : "") +
       "C_Login " + LabelOf(session));
  if (Is("hang-in-login")) Hang();
  if (Is("crash-in-login")) std::abort();
  const std::string text(reinterpret_cast<const char*>(pin), size);
  if (is_context_login && Is("context-login")) {
    if (text != user_pin) return CKR_PIN_INCORRECT;
    return waiting.erase(session) == 1 ? CKR_OK : CKR_OPERATION_NOT_INITIALIZED;
  }
  const CK_RV result = behind->C_Login(session, user, pin, size);
  if (result == CKR_OK) user_pin = text;
  return result;
}

// --- Operations ---

// With context-login an operation that begins waits for its login.
CK_RV Begun(CK_SESSION_HANDLE session, CK_RV result) {
  if (result == CKR_OK && Is("context-login")) waiting.insert(session);
  return result;
}

// An operation that still waits for its login fails, and is over.
CK_RV Ended(CK_SESSION_HANDLE session, CK_ULONG* size, CK_RV result) {
  if (result != CKR_OK || waiting.erase(session) == 0) return result;
  *size = 0;
  return CKR_USER_NOT_LOGGED_IN;
}

CK_RV SignInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
  if (Is("card-pulled")) is_pulled = true;
  if (is_pulled) return CKR_DEVICE_ERROR;
  operation = mechanism->mechanism;
  if (Is("sign-during-search") && searching.contains(session)) return CKR_OPERATION_ACTIVE;
  if (Is("sign-after-failure") && failed.contains(session)) return CKR_OPERATION_ACTIVE;
  if (Is("raw-rsa-block") && operation == CKM_RSA_X_509) return CKR_MECHANISM_INVALID;
  if (Is("ecdsa-sha1") && operation == CKM_ECDSA_SHA1) return CKR_MECHANISM_INVALID;
  return Begun(session, behind->C_SignInit(session, mechanism, Inner(key)));
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
  if (result != CKR_OK) failed.insert(session);
  if (result == CKR_OK && Is("ecdsa-der") && operation == CKM_ECDSA) *signature_size = 64;
  if (result == CKR_OK && Is("wrong-signatures")) signature[*signature_size - 1] ^= 1;
  return Ended(session, signature_size, result);
}

CK_RV DecryptInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
  operation = mechanism->mechanism;
  if (Is("decrypt-pkcs1") && operation == CKM_RSA_PKCS) return CKR_MECHANISM_INVALID;
  return Begun(session, behind->C_DecryptInit(session, mechanism, Inner(key)));
}

CK_RV Decrypt(CK_SESSION_HANDLE session, CK_BYTE* data, CK_ULONG size, CK_BYTE* plain,
              CK_ULONG* plain_size) {
  const CK_RV result = behind->C_Decrypt(session, data, size, plain, plain_size);
  if (result == CKR_OK && Is("decrypt-raw") && operation == CKM_RSA_X_509) plain[0] = 1;
  return Ended(session, plain_size, result);
}

CK_RV DeriveKey(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key,
                CK_ATTRIBUTE* attributes, CK_ULONG count, CK_OBJECT_HANDLE* derived) {
  Note("C_DeriveKey");
  if (Is("derivation")) return CKR_DEVICE_ERROR;
  return behind->C_DeriveKey(session, mechanism, Inner(key), attributes, count, derived);
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
  list.C_OpenSession = OpenSession;
  list.C_CloseSession = CloseSession;
  list.C_GetSessionInfo = GetSessionInfo;
  list.C_Login = Login;
  list.C_FindObjectsInit = FindObjectsInit;
  list.C_FindObjects = FindObjects;
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
