#include <os/log.h>
#include <stdint.h>
#include <stdio.h>

#include "p11/diagnostics.h"
#include "p11/lookup.h"

namespace {

// Handles that one search reads at most.
constexpr CK_ULONG kMaxKeys = 10;

// What differs between the searches for public and for private keys.
struct KeySearch {
  CK_OBJECT_CLASS key_class;
  const char* searching;  // standard output, first
  const char* init_call;  // the failed call in the log
  const char* init_done;  // standard output after the search started, or null for no line
  const char* find_call;  // the failed call in the log
  void (*log_none_found)();
  const char* found;  // standard output, last
};

constexpr KeySearch kPublicKeys = {
    CKO_PUBLIC_KEY,
    "Öffentlichen Schlüssel suchen...",
    "C_FindObjectsInit: CKO_PUBLIC_KEY",
    nullptr,
    "C_FindObjects: CKO_PUBLIC_KEY",
    [] { os_log_error(OS_LOG_DEFAULT, "Keinen öffentlichen Schlüssel gefunden."); },
    "Öffentlichen Schlüssel gefunden.",
};

constexpr KeySearch kPrivateKeys = {
    CKO_PRIVATE_KEY,
    "Privaten Schlüssel suchen...",
    "C_FindObjectsInit: CKO_PRIVATE_KEY",
    "C_FindObjectsInit: CKO_PRIVATE_KEY erfolgreich.",
    "C_FindObjects: CKO_PRIVATE_KEY",
    [] { os_log_error(OS_LOG_DEFAULT, "Keinen privaten Schlüssel gefunden."); },
    "Privaten Schlüssel gefunden.",
};

// Finds the first key of a kind under a CKA_ID. The search is never finished, deliberately: the
// next one starts on the same session, and the module is expected to accept that.
CK_RV FindFirstKey(const KeySearch& search, CK_FUNCTION_LIST_PTR p11, CK_SESSION_HANDLE session,
                   const CK_BYTE* id, CK_ULONG id_len, CK_OBJECT_HANDLE* key) {
  puts(search.searching);
  CK_OBJECT_CLASS key_class = search.key_class;
  CK_ATTRIBUTE attributes[] = {
      {CKA_CLASS, &key_class, sizeof(key_class)},
      {CKA_ID, const_cast<CK_BYTE*>(id), id_len},
  };
  CK_RV rv = p11->C_FindObjectsInit(session, attributes, 2);
  if (rv != CKR_OK) {
    p11_error(search.init_call, rv);
    return rv;
  }
  if (search.init_done != nullptr) puts(search.init_done);

  CK_OBJECT_HANDLE handles[kMaxKeys] = {};  // cleared, so that no match reads as no handle
  CK_ULONG count = kMaxKeys;
  rv = p11->C_FindObjects(session, handles, kMaxKeys, &count);
  if (rv != CKR_OK) {
    p11_error(search.find_call, rv);
    return rv;
  }
  printf("ulMaxCount %d\n", static_cast<int32_t>(count));
  if (count == 0) search.log_none_found();
  // The first of several, and a success without any: callers carry on either way.
  *key = handles[0];
  puts(search.found);
  return CKR_OK;
}

}  // namespace

// Finds the first public key with a CKA_ID.
CK_RV get_pub_key(CK_FUNCTION_LIST_PTR p11, CK_SESSION_HANDLE session, const CK_BYTE* id,
                  CK_ULONG id_len, CK_OBJECT_HANDLE* key) {
  return FindFirstKey(kPublicKeys, p11, session, id, id_len, key);
}

// Finds the first private key with a CKA_ID.
CK_RV get_priv_key(CK_FUNCTION_LIST_PTR p11, CK_SESSION_HANDLE session, const CK_BYTE* id,
                   CK_ULONG id_len, CK_OBJECT_HANDLE* key) {
  return FindFirstKey(kPrivateKeys, p11, session, id, id_len, key);
}
