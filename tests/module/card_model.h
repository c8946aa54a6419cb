// The card behind the scripted module: slots, tokens, sessions and objects that behave as the
// standard says, and can be told to lie. Plain data: tests set the fields they need.
#pragma once

#include <p11-kit/pkcs11.h>

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/module/call.h"

namespace scripted {

// Bytes that the module hands out.
struct Answer {
  Bytes bytes = {};
  std::optional<CK_ULONG> claimed_length = {};  // the length reported; the bytes' own when unset
};

struct Attribute : Answer {
  CK_RV result = CKR_OK;  // otherwise the attribute is refused and its length set to -1
};

// An object of the card. The setters return the object, so that calls can be chained.
struct Object {
  CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
  std::map<CK_ATTRIBUTE_TYPE, Attribute> attributes;

  Object& Set(CK_ATTRIBUTE_TYPE type, const Bytes& value);
  Object& SetNumber(CK_ATTRIBUTE_TYPE type, CK_ULONG value);
  Object& SetText(CK_ATTRIBUTE_TYPE type, const std::string& value);
  Object& SetFlag(CK_ATTRIBUTE_TYPE type, bool value);
  Object& SetMechanisms(const std::vector<CK_MECHANISM_TYPE>& mechanisms);
  // Reports this length, whatever the value's own is.
  Object& Claim(CK_ATTRIBUTE_TYPE type, CK_ULONG length);
  Object& Refuse(CK_ATTRIBUTE_TYPE type, CK_RV result);
};

struct Slot {
  CK_SLOT_ID id = 0;
  std::string description;  // blank-padded to 64 bytes, cut there
  std::string label;        // the token's, blank-padded to 32 bytes
  bool token_present = true;
};

// One answer to C_GetSlotList in place of the model's.
struct SlotListAnswer {
  CK_RV result = CKR_OK;
  std::optional<CK_ULONG> count = {};  // left as it was when unset
  std::vector<CK_SLOT_ID> ids = {};    // written as far as the caller's count on entry allows
};

class CardModel {
 public:
  // --- What tests set ---
  std::vector<Slot> slots;
  std::deque<SlotListAnswer> slot_list_answers;  // used up before the model answers
  std::deque<Object> objects;                    // searched in this order
  CK_SESSION_HANDLE next_session = 1;
  CK_OBJECT_HANDLE next_object = 1;
  CK_STATE session_state = CKS_RW_PUBLIC_SESSION;
  std::optional<std::string> pin;         // unset: every PIN is right
  bool hide_private_keys = false;         // until somebody has logged in
  bool refuse_second_search = false;      // CKR_OPERATION_ACTIVE while a search is open
  std::optional<CK_ULONG> claimed_found;  // the count that C_FindObjects reports
  Answer signature;
  Answer plaintext;
  Answer derived_secret;  // CKA_VALUE of the objects that C_DeriveKey makes
  bool initialized = false;

  Slot& AddSlot(CK_SLOT_ID id, const std::string& description, const std::string& label = "");
  // New objects; the references stay valid. Keys get no attributes but class and CKA_ID.
  Object& AddObject(CK_OBJECT_CLASS object_class, const Bytes& id);
  Object& AddCertificate(const Bytes& id, const std::string& label, const Bytes& der);
  Object& AddPublicKey(const Bytes& id) { return AddObject(CKO_PUBLIC_KEY, id); }
  Object& AddPrivateKey(const Bytes& id) { return AddObject(CKO_PRIVATE_KEY, id); }
  Object* FindObject(CK_OBJECT_HANDLE handle);

  // --- The functions that have a behaviour; all others answer CKR_FUNCTION_NOT_SUPPORTED ---
  CK_RV C_Initialize(void* arguments);
  CK_RV C_Finalize(void* reserved);
  CK_RV C_GetInfo(CK_INFO* info);
  CK_RV C_GetSlotList(CK_BBOOL token_present, CK_SLOT_ID* ids, CK_ULONG* count);
  CK_RV C_GetSlotInfo(CK_SLOT_ID id, CK_SLOT_INFO* info);
  CK_RV C_GetTokenInfo(CK_SLOT_ID id, CK_TOKEN_INFO* info);
  CK_RV C_OpenSession(CK_SLOT_ID id, CK_FLAGS flags, void* application, CK_NOTIFY notify,
                      CK_SESSION_HANDLE* session);
  CK_RV C_CloseSession(CK_SESSION_HANDLE session);
  CK_RV C_CloseAllSessions(CK_SLOT_ID id);
  CK_RV C_GetSessionInfo(CK_SESSION_HANDLE session, CK_SESSION_INFO* info);
  CK_RV C_Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_BYTE* given_pin, CK_ULONG length);
  CK_RV C_Logout(CK_SESSION_HANDLE session);
  CK_RV C_DestroyObject(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object);
  CK_RV C_GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                            CK_ATTRIBUTE* attributes, CK_ULONG count);
  CK_RV C_FindObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE* attributes, CK_ULONG count);
  CK_RV C_FindObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE* found, CK_ULONG room,
                      CK_ULONG* count);
  CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE session);
  CK_RV C_SignInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key);
  CK_RV C_Sign(CK_SESSION_HANDLE session, CK_BYTE* data, CK_ULONG data_length, CK_BYTE* out,
               CK_ULONG* out_length);
  CK_RV C_DecryptInit(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key);
  CK_RV C_Decrypt(CK_SESSION_HANDLE session, CK_BYTE* data, CK_ULONG data_length, CK_BYTE* out,
                  CK_ULONG* out_length);
  CK_RV C_DeriveKey(CK_SESSION_HANDLE session, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key,
                    CK_ATTRIBUTE* attributes, CK_ULONG count, CK_OBJECT_HANDLE* derived);

 private:
  Slot* FindSlot(CK_SLOT_ID id);
  bool logged_in() const;
  bool Visible(const Object& object) const;

  std::map<CK_SESSION_HANDLE, std::deque<CK_OBJECT_HANDLE>> searches_;  // open ones, what is left
};

}  // namespace scripted
