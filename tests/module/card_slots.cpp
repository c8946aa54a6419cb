// Module, slots, tokens and sessions.
#include <string.h>

#include <algorithm>

#include "tests/module/card_model.h"

namespace scripted {
namespace {

void PadWithBlanks(CK_BYTE* field, size_t size, const std::string& text) {
  std::fill_n(field, size, ' ');
  std::copy_n(text.begin(), std::min(size, text.size()), field);
}

}  // namespace

Slot& CardModel::AddSlot(CK_SLOT_ID id, const std::string& description, const std::string& label) {
  slots.push_back({.id = id, .description = description, .label = label});
  return slots.back();
}

Slot* CardModel::FindSlot(CK_SLOT_ID id) {
  const auto found =
      std::find_if(slots.begin(), slots.end(), [id](const Slot& slot) { return slot.id == id; });
  return found == slots.end() ? nullptr : &*found;
}

bool CardModel::logged_in() const {
  return session_state == CKS_RO_USER_FUNCTIONS || session_state == CKS_RW_USER_FUNCTIONS ||
         session_state == CKS_RW_SO_FUNCTIONS;
}

CK_RV CardModel::C_Initialize(void* /*arguments*/) {
  if (initialized) return CKR_CRYPTOKI_ALREADY_INITIALIZED;
  initialized = true;
  return CKR_OK;
}

CK_RV CardModel::C_Finalize(void* /*reserved*/) {
  if (!initialized) return CKR_CRYPTOKI_NOT_INITIALIZED;
  initialized = false;
  session_state = CKS_RW_PUBLIC_SESSION;
  searches_.clear();
  return CKR_OK;
}

CK_RV CardModel::C_GetInfo(CK_INFO* info) {
  memset(info, 0, sizeof *info);
  info->cryptokiVersion = {2, 20};
  PadWithBlanks(info->manufacturerID, sizeof info->manufacturerID, "Scripted");
  PadWithBlanks(info->libraryDescription, sizeof info->libraryDescription, "Scripted module");
  return CKR_OK;
}

CK_RV CardModel::C_GetSlotList(CK_BBOOL token_present, CK_SLOT_ID* ids, CK_ULONG* count) {
  SlotListAnswer answer;
  if (!slot_list_answers.empty()) {
    answer = slot_list_answers.front();
    slot_list_answers.pop_front();
  } else {
    for (const Slot& slot : slots) {
      if (!token_present || slot.token_present) answer.ids.push_back(slot.id);
    }
    answer.count = answer.ids.size();
    if (ids != nullptr && *count < answer.ids.size()) answer.result = CKR_BUFFER_TOO_SMALL;
  }
  if (ids != nullptr && answer.result == CKR_OK) {
    const size_t room = std::min<size_t>(*count, answer.ids.size());
    std::copy_n(answer.ids.begin(), room, ids);
  }
  if (answer.count) *count = *answer.count;
  return answer.result;
}

CK_RV CardModel::C_GetSlotInfo(CK_SLOT_ID id, CK_SLOT_INFO* info) {
  const Slot* slot = FindSlot(id);
  if (slot == nullptr) return CKR_SLOT_ID_INVALID;
  memset(info, 0, sizeof *info);
  PadWithBlanks(info->slotDescription, sizeof info->slotDescription, slot->description);
  PadWithBlanks(info->manufacturerID, sizeof info->manufacturerID, "Scripted");
  info->flags = CKF_REMOVABLE_DEVICE | CKF_HW_SLOT;
  if (slot->token_present) info->flags |= CKF_TOKEN_PRESENT;
  return CKR_OK;
}

CK_RV CardModel::C_GetTokenInfo(CK_SLOT_ID id, CK_TOKEN_INFO* info) {
  const Slot* slot = FindSlot(id);
  if (slot == nullptr) return CKR_SLOT_ID_INVALID;
  if (!slot->token_present) return CKR_TOKEN_NOT_PRESENT;
  memset(info, 0, sizeof *info);
  PadWithBlanks(info->label, sizeof info->label, slot->label);
  PadWithBlanks(info->manufacturerID, sizeof info->manufacturerID, "Scripted");
  PadWithBlanks(info->model, sizeof info->model, "Card");
  PadWithBlanks(info->serialNumber, sizeof info->serialNumber, "0001");
  info->flags = CKF_LOGIN_REQUIRED | CKF_TOKEN_INITIALIZED | CKF_USER_PIN_INITIALIZED;
  return CKR_OK;
}

CK_RV CardModel::C_OpenSession(CK_SLOT_ID id, CK_FLAGS /*flags*/, void* /*application*/,
                               CK_NOTIFY /*notify*/, CK_SESSION_HANDLE* session) {
  const Slot* slot = FindSlot(id);
  if (slot == nullptr) return CKR_SLOT_ID_INVALID;
  if (!slot->token_present) return CKR_TOKEN_NOT_PRESENT;
  *session = next_session++;
  return CKR_OK;
}

CK_RV CardModel::C_CloseSession(CK_SESSION_HANDLE session) {
  searches_.erase(session);
  return CKR_OK;
}

CK_RV CardModel::C_CloseAllSessions(CK_SLOT_ID /*id*/) {
  searches_.clear();
  return CKR_OK;
}

CK_RV CardModel::C_GetSessionInfo(CK_SESSION_HANDLE /*session*/, CK_SESSION_INFO* info) {
  memset(info, 0, sizeof *info);
  info->slotID = slots.empty() ? 0 : slots.front().id;
  info->state = session_state;
  info->flags = CKF_SERIAL_SESSION | CKF_RW_SESSION;
  return CKR_OK;
}

CK_RV CardModel::C_Login(CK_SESSION_HANDLE /*session*/, CK_USER_TYPE /*user*/, CK_BYTE* given_pin,
                         CK_ULONG length) {
  if (logged_in()) return CKR_USER_ALREADY_LOGGED_IN;
  if (pin && Bytes(given_pin, given_pin + length) != ToBytes(*pin)) return CKR_PIN_INCORRECT;
  session_state = CKS_RW_USER_FUNCTIONS;
  return CKR_OK;
}

CK_RV CardModel::C_Logout(CK_SESSION_HANDLE /*session*/) {
  if (!logged_in()) return CKR_USER_NOT_LOGGED_IN;
  session_state = CKS_RW_PUBLIC_SESSION;
  return CKR_OK;
}

}  // namespace scripted
