#include "p11/bringup.h"

#include <ctype.h>
#include <os/log.h>
#include <stdint.h>
#include <string.h>

#include "p11/diagnostics.h"
#include "p11/loader.h"
#include "p11/slots.h"

namespace {

// Bytes that a CKA_LABEL is read into.
constexpr size_t kLabelRoom = 2048;

// Walks the slots for the first whose description contains the reader name. Without a match the
// last one is taken, deliberately and without a word: a card in another reader still works.
void FindReaderSlot(CK_FUNCTION_LIST_PTR p11, const CK_SLOT_ID* slots, CK_ULONG count,
                    CK_ULONG allocated, const char* reader_name, CK_SLOT_ID* slot) {
  *slot = 0;
  // Counted in 32 bits, as the log shows the number.
  for (int32_t i = 0; i < static_cast<int32_t>(count); ++i) {
    // The module may report more slots than it did when the array was made.
    if (static_cast<CK_ULONG>(i) >= allocated) break;
    *slot = slots[i];
    char description[kSlotDescriptionSize + 1] = {};
    // A failure, which C_GetSlotInfo's line tells already, is logged under this name once more. The
    // description is tested all the same: left alone by the module, it is empty.
    const CK_RV rv = get_reader_name(p11, *slot, description);
    if (rv != CKR_OK) p11_error("get_reader_name", rv);
    if (strstr(description, reader_name) != nullptr) {
      os_log(OS_LOG_DEFAULT, "Kartenlesername '%{public}s' gefunden.", reader_name);
      break;
    }
  }
}

// Lists the slots and chooses one; returns one of init's own codes on failure.
CK_RV ChooseSlot(CK_FUNCTION_LIST_PTR p11, const char* reader_name, CK_SLOT_ID* slot) {
  CK_ULONG count = 0;
  CK_ULONG allocated = 0;
  // Never freed: a small loss for each bring-up that is accepted by design.
  const CK_SLOT_ID* slots = list_allocated_slots(p11, CK_FALSE, &count, &allocated);
  if (count == 0) {
    os_log_error(OS_LOG_DEFAULT, "Keine Slots gefunden.");
    return INIT_ERR_NO_SLOTS;
  }
  os_log(OS_LOG_DEFAULT, "%d Slot(s) gefunden.\n", static_cast<int32_t>(count));

  const bool named = reader_name != nullptr && reader_name[0] != '\0';
  if (named) {
    FindReaderSlot(p11, slots, count, allocated, reader_name, slot);
  } else if (count >= 2) {
    os_log_error(OS_LOG_DEFAULT, "Kartenlesername nicht definiert.");
    return INIT_ERR_READER_NAME;
  } else {
    *slot = allocated > 0 ? slots[0] : 0;
  }
  return CKR_OK;
}

}  // namespace

// Brings the module up: loads, initialises, chooses the slot, opens a session.
CK_RV init(const char* module_path, void** module, CK_FUNCTION_LIST_PTR* p11, CK_SLOT_ID* slot,
           CK_SESSION_HANDLE* session, const char* reader_name) {
  if (*module == nullptr) {
    *module = C_LoadModule(module_path, p11);
    if (*module == nullptr) {
      os_log_error(OS_LOG_DEFAULT, "Fehler beim Laden von PKCS11-Modul.");
      return INIT_ERR_MODULE;
    }
    os_log(OS_LOG_DEFAULT, "PKCS11-Modul wurde geladen.");
  }

  CK_RV rv = (*p11)->C_Initialize(nullptr);
  if (rv == CKR_CRYPTOKI_ALREADY_INITIALIZED) {
    // Not a function's name, deliberately: the line is to say what happened.
    p11_warn("*** PKCS11-Bibliothek bereits initalisiert.", rv);
  } else if (rv != CKR_OK) {
    p11_error("C_Initialize", rv);
    return rv;
  }
  os_log(OS_LOG_DEFAULT, "Initialisierung erfolgreich.");

  rv = ChooseSlot(*p11, reader_name, slot);
  if (rv != CKR_OK) return rv;

  rv = (*p11)->C_OpenSession(*slot, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, session);
  if (rv != CKR_OK) {
    // The module's own code goes to the log alone: callers learn only which step failed.
    p11_error("C_OpenSession", rv);
    os_log_error(OS_LOG_DEFAULT, "Session konnte nicht initialisiert werden.");
    return INIT_ERR_SESSION;
  }
  os_log(OS_LOG_DEFAULT, "Session erfolgreich initialisiert.");
  return CKR_OK;
}

// Copies an object's CKA_LABEL.
CK_RV get_label(CK_FUNCTION_LIST_PTR p11, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                char* label) {
  CK_BYTE value[kLabelRoom] = {};
  CK_ATTRIBUTE attribute = {CKA_LABEL, value, sizeof(value)};
  const CK_RV rv = p11->C_GetAttributeValue(session, object, &attribute, 1);
  if (rv != CKR_OK) {
    p11_error("C_GetAttributeValue: CKA_LABEL", rv);
    return rv;
  }
  const size_t room = kLabelSize - 1;  // the caller's zero fill terminates the text
  memcpy(label, value, attribute.ulValueLen < room ? attribute.ulValueLen : room);
  return CKR_OK;
}

// Copies the first word of the token's label.
CK_RV get_card_no(CK_FUNCTION_LIST_PTR p11, CK_SLOT_ID slot, char* card_number) {
  CK_TOKEN_INFO info = {};
  const CK_RV rv = p11->C_GetTokenInfo(slot, &info);
  if (rv != CKR_OK) {
    p11_error("C_GetTokenInfo", rv);
    return rv;
  }
  static_assert(sizeof(info.label) >= kCardNumberSize - 1);
  for (size_t i = 0; i < kCardNumberSize - 1 && !isblank(info.label[i]); ++i) {
    card_number[i] = static_cast<char>(info.label[i]);
  }
  return CKR_OK;
}

// Tells whether the session still needs a login.
CK_RV login_required(CK_FUNCTION_LIST_PTR p11, CK_SESSION_HANDLE session, CK_BBOOL* required) {
  *required = CK_TRUE;
  CK_SESSION_INFO info = {};
  const CK_RV rv = p11->C_GetSessionInfo(session, &info);
  if (rv != CKR_OK) {
    p11_error("C_GetSessionInfo", rv);
    return rv;
  }
  if (info.state == CKS_RO_USER_FUNCTIONS || info.state == CKS_RW_USER_FUNCTIONS ||
      info.state == CKS_RW_SO_FUNCTIONS) {
    *required = CK_FALSE;
  }
  return CKR_OK;
}
