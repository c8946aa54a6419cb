// Brings a PKCS#11 module from a file path to an open session on the configured reader's slot,
// and answers small questions about slots, tokens, objects and sessions. Keeps no state and takes
// no lock: the calls for one module come from one thread at a time. Failed calls of the module are
// logged through p11_error. list_slots and get_reader_name live in slots.cpp.
#pragma once

#include <p11-kit/pkcs11.h>
#include <stddef.h>

// Results of init that lie outside the standard's codes.
constexpr CK_RV INIT_ERR_MODULE = 0x900;       // the module could not be loaded
constexpr CK_RV INIT_ERR_NO_SLOTS = 0x901;     // the module has no slot
constexpr CK_RV INIT_ERR_SESSION = 0x902;      // C_OpenSession failed
constexpr CK_RV INIT_ERR_READER_NAME = 0x903;  // several slots and no reader name to choose by

// Sizes in bytes of the buffers that callers pass.
constexpr size_t kSlotDescriptionSize = 64;  // get_reader_name
constexpr size_t kLabelSize = 128;           // get_label
constexpr size_t kCardNumberSize = 32;       // get_card_no

// Brings the module up: loads it when *module is null, initialises it, chooses the slot and opens
// a read-write session. May be called again with the same variables; never cleans up, on any path,
// and keeps the array of slots it made each time.
//   module_path  full path of the module's library; used only when *module is null.
//   module       in/out: module handle, owned by the caller.
//   p11          in/out: function list; written when the module is loaded.
//   slot         out: the chosen slot; means nothing after a failure.
//   session      out: the opened session; means nothing after a failure.
//   reader_name  text to find in a slot's description; empty or null means no name.
// Returns CKR_OK, C_Initialize's failure, or one of the four codes above. An already initialised
// module is no failure.
CK_RV init(const char* module_path, void** module, CK_FUNCTION_LIST_PTR* p11, CK_SLOT_ID* slot,
           CK_SESSION_HANDLE* session, const char* reader_name);

// Lists slots. Failures of the module are logged and otherwise ignored; a failed allocation ends
// the process with exit status 1.
//   p11            function list.
//   token_present  handed to C_GetSlotList.
//   count          in/out: 0 on entry; the number that the module left in it. It can exceed the
//                  array when the module changed its mind between its two answers.
// Returns a new array that the caller owns (free).
CK_SLOT_ID* list_slots(CK_FUNCTION_LIST_PTR p11, CK_BBOOL token_present, CK_ULONG* count);

// Copies a slot's description: 64 bytes as the module pads them, not terminated. After a failure
// the bytes are zero.
//   p11          function list.
//   slot         the slot.
//   description  receives kSlotDescriptionSize bytes.
// Returns C_GetSlotInfo's result.
CK_RV get_reader_name(CK_FUNCTION_LIST_PTR p11, CK_SLOT_ID slot, char* description);

// Copies an object's CKA_LABEL, at most kLabelSize - 1 bytes and without a terminator: pass a
// zero-filled buffer.
//   p11      function list.
//   session  open session.
//   object   the object.
//   label    kLabelSize bytes; untouched on failure.
// Returns C_GetAttributeValue's result.
CK_RV get_label(CK_FUNCTION_LIST_PTR p11, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                char* label);

// Copies the card number, the first word of the token's label, at most kCardNumberSize - 1 bytes
// and without a terminator: pass a zero-filled buffer.
//   p11          function list.
//   slot         the card's slot.
//   card_number  kCardNumberSize bytes; untouched on failure.
// Returns C_GetTokenInfo's result.
CK_RV get_card_no(CK_FUNCTION_LIST_PTR p11, CK_SLOT_ID slot, char* card_number);

// Tells whether the session still needs a login.
//   p11       function list.
//   session   open session.
//   required  out: CK_FALSE in a logged-in state; CK_TRUE otherwise, and on failure.
// Returns C_GetSessionInfo's result.
CK_RV login_required(CK_FUNCTION_LIST_PTR p11, CK_SESSION_HANDLE session, CK_BBOOL* required);
