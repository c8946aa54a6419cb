// The functions of the fake module that deal with slots, tokens and sessions.
#include <algorithm>
#include <span>

#include "adapter/testing/fake_module.h"

namespace kelvrin::adapter {
namespace {

FakeModule*& fake = FakeModule::current;

void Pad(std::span<CK_UTF8CHAR> field, const std::string& text, char padding) {
  std::fill(std::copy(text.begin(), text.end(), field.begin()), field.end(),
            static_cast<CK_UTF8CHAR>(padding));
}

template <typename Entry>
CK_RV GiveList(const std::vector<Entry>& entries, Entry* list, CK_ULONG* count) {
  const CK_ULONG room = *count;
  *count = entries.size() + fake->claimed_excess;
  if (list == nullptr) return CKR_OK;
  if (room < entries.size()) return CKR_BUFFER_TOO_SMALL;
  std::copy(entries.begin(), entries.end(), list);
  return CKR_OK;
}

CK_RV Initialize(void* arguments) {
  fake->initialize_arguments.reset();
  fake->reserved.clear();
  if (arguments != nullptr) {
    fake->initialize_arguments = *static_cast<CK_C_INITIALIZE_ARGS*>(arguments);
    const void* reserved = fake->initialize_arguments->pReserved;
    if (reserved != nullptr) fake->reserved = static_cast<const char*>(reserved);
  }
  if (const CK_RV result = fake->Enter("C_Initialize"); result != CKR_OK) return result;
  fake->initialized = true;
  return CKR_OK;
}

CK_RV Finalize(void*) {
  if (const CK_RV result = fake->Enter("C_Finalize"); result != CKR_OK) return result;
  fake->initialized = false;
  fake->sessions.clear();
  fake->has_user = false;
  return CKR_OK;
}

CK_RV GetInfo(CK_INFO* info) {
  if (const CK_RV result = fake->Enter("C_GetInfo"); result != CKR_OK) return result;
  *info = {};
  info->cryptokiVersion = {3, 0};
  info->libraryVersion = {9, 9};
  return fake->initialized ? CKR_OK : CKR_CRYPTOKI_NOT_INITIALIZED;
}

CK_RV GetSlotList(CK_BBOOL, CK_SLOT_ID* list, CK_ULONG* count) {
  if (const CK_RV result = fake->Enter("C_GetSlotList"); result != CKR_OK) return result;
  std::vector<CK_SLOT_ID> ids;
  for (const auto& slot : fake->slots) ids.push_back(slot.id);
  return GiveList(ids, list, count);
}

CK_RV GetSlotInfo(CK_SLOT_ID id, CK_SLOT_INFO* info) {
  if (const CK_RV result = fake->Enter("C_GetSlotInfo"); result != CKR_OK) return result;
  const auto* slot = fake->FindSlot(id);
  if (slot == nullptr) return CKR_SLOT_ID_INVALID;
  Pad(info->slotDescription, slot->description, slot->padding);
  Pad(info->manufacturerID, "Fake", slot->padding);
  info->flags = CKF_TOKEN_PRESENT;
  return CKR_OK;
}

CK_RV GetTokenInfo(CK_SLOT_ID id, CK_TOKEN_INFO* info) {
  if (const CK_RV result = fake->Enter("C_GetTokenInfo"); result != CKR_OK) return result;
  const auto* slot = fake->FindSlot(id);
  if (slot == nullptr) return CKR_SLOT_ID_INVALID;
  Pad(info->label, slot->label, slot->padding);
  Pad(info->serialNumber, slot->serial, ' ');
  info->flags = slot->token_flags;
  for (const auto& [handle, session] : fake->sessions) {
    ++info->ulSessionCount;
    if ((session.flags & CKF_RW_SESSION) != 0) ++info->ulRwSessionCount;
  }
  return CKR_OK;
}

CK_RV GetMechanismList(CK_SLOT_ID id, CK_MECHANISM_TYPE* list, CK_ULONG* count) {
  if (const CK_RV result = fake->Enter("C_GetMechanismList"); result != CKR_OK) return result;
  const auto* slot = fake->FindSlot(id);
  return slot != nullptr ? GiveList(slot->mechanisms, list, count) : CKR_SLOT_ID_INVALID;
}

CK_RV WaitForSlotEvent(CK_FLAGS, CK_SLOT_ID* slot, void*) {
  if (const CK_RV result = fake->Enter("C_WaitForSlotEvent"); result != CKR_OK) return result;
  *slot = fake->slots.back().id;
  return CKR_OK;
}

CK_RV OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, void*, CK_NOTIFY, CK_SESSION_HANDLE* handle) {
  if (const CK_RV result = fake->Enter("C_OpenSession"); result != CKR_OK) return result;
  if (fake->sessions.size() >= fake->session_limit) return CKR_SESSION_COUNT;
  *handle = fake->next_session;
  if (*handle == CK_INVALID_HANDLE) return CKR_OK;
  ++fake->next_session;
  auto& session = fake->sessions[*handle] = {};
  session.slot = slot;
  session.flags = flags;
  return CKR_OK;
}

CK_RV CloseSession(CK_SESSION_HANDLE session) {
  if (const CK_RV result = fake->Enter("C_CloseSession"); result != CKR_OK) return result;
  const bool is_known = fake->sessions.erase(session) == 1;
  if (fake->sessions.empty()) fake->has_user = false;
  return is_known ? CKR_OK : CKR_SESSION_HANDLE_INVALID;
}

CK_RV CloseAllSessions(CK_SLOT_ID slot) {
  if (const CK_RV result = fake->Enter("C_CloseAllSessions"); result != CKR_OK) return result;
  std::erase_if(fake->sessions, [&](const auto& entry) { return entry.second.slot == slot; });
  if (fake->sessions.empty()) fake->has_user = false;
  return CKR_OK;
}

CK_RV Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_BYTE* pin, CK_ULONG size) {
  fake->login_session = session;
  fake->login_user = user;
  fake->login_pin.reset();
  fake->login_memory = pin;
  if (pin != nullptr) fake->login_pin = std::string(pin, pin + size);
  const CK_RV result = fake->Enter("C_Login");
  if (result == CKR_OK && user == CKU_USER) fake->has_user = true;
  return result;
}

CK_RV Logout(CK_SESSION_HANDLE) {
  const CK_RV result = fake->Enter("C_Logout");
  if (result == CKR_OK) fake->has_user = false;
  return result;
}

CK_RV GetSessionInfo(CK_SESSION_HANDLE session, CK_SESSION_INFO* info) {
  if (const CK_RV result = fake->Enter("C_GetSessionInfo"); result != CKR_OK) return result;
  const auto found = fake->sessions.find(session);
  if (found == fake->sessions.end()) return CKR_SESSION_HANDLE_INVALID;
  *info = {};
  info->slotID = found->second.slot;
  info->flags = found->second.flags;
  info->state = fake->has_user ? CKS_RW_USER_FUNCTIONS : CKS_RW_PUBLIC_SESSION;
  return CKR_OK;
}

CK_RV GetMechanismInfo(CK_SLOT_ID, CK_MECHANISM_TYPE, CK_MECHANISM_INFO*) {
  return fake->Enter("C_GetMechanismInfo");
}

}  // namespace

void FakeModule::AddTokenFunctions(CK_FUNCTION_LIST* list) {
  list->C_Initialize = Initialize;
  list->C_Finalize = Finalize;
  list->C_GetInfo = GetInfo;
  list->C_GetSlotList = GetSlotList;
  list->C_GetSlotInfo = GetSlotInfo;
  list->C_GetTokenInfo = GetTokenInfo;
  list->C_GetMechanismList = GetMechanismList;
  list->C_GetMechanismInfo = GetMechanismInfo;
  list->C_WaitForSlotEvent = WaitForSlotEvent;
  list->C_OpenSession = OpenSession;
  list->C_CloseSession = CloseSession;
  list->C_CloseAllSessions = CloseAllSessions;
  list->C_GetSessionInfo = GetSessionInfo;
  list->C_Login = Login;
  list->C_Logout = Logout;
}

}  // namespace kelvrin::adapter
