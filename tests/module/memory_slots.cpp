// The memory module's life, slots, tokens, sessions and logins.
#include <cstdio>

#include "tests/module/memory_functions.h"

namespace kelvrin {
namespace {

MemoryModule& module() { return MemoryModule::Instance(); }

template <typename Field>
void Pad(Field& field, const std::string& text, char padding = ' ') {
  const auto end = std::copy_n(text.begin(), std::min(text.size(), std::size(field)), field);
  std::fill(end, std::end(field), static_cast<CK_UTF8CHAR>(padding));
}

CK_RV Initialize(void* arguments) {
  module().initialize_arguments.reset();
  module().reserved.clear();
  if (arguments != nullptr) {
    module().initialize_arguments = *static_cast<CK_C_INITIALIZE_ARGS*>(arguments);
    const void* const reserved = module().initialize_arguments->pReserved;
    if (reserved != nullptr) module().reserved = static_cast<const char*>(reserved);
  }
  if (module().is_initialized) return CKR_CRYPTOKI_ALREADY_INITIALIZED;
  module().is_initialized = true;
  return CKR_OK;
}

CK_RV CloseSessionsOf(const MemoryCard* card) {
  std::vector<CK_SESSION_HANDLE> ended;
  for (const auto& [handle, session] : module().sessions) {
    if (card == nullptr || session.slot == card->slot) ended.push_back(handle);
  }
  for (const CK_SESSION_HANDLE handle : ended) module().EndSession(handle);
  return CKR_OK;
}

CK_RV Finalize(void*) {
  CloseSessionsOf(nullptr);
  module().is_initialized = false;
  return CKR_OK;
}

CK_RV GetInfo(CK_INFO* info) {
  *info = {};
  info->cryptokiVersion = {2, 40};
  Pad(info->manufacturerID, "Memory");
  Pad(info->libraryDescription, "Memory module");
  return CKR_OK;
}

CK_RV GetSlotList(CK_BBOOL with_token, CK_SLOT_ID* list, CK_ULONG* count) {
  std::vector<CK_SLOT_ID> slots;
  for (const MemoryReader& reader : module().readers) {
    if (with_token == CK_FALSE || module().FindCard(reader.id) != nullptr) {
      slots.push_back(reader.id);
    }
  }
  return GiveList(slots, list, count);
}

CK_RV GetSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO* info) {
  const MemoryReader* const reader = module().FindReader(slot);
  if (reader == nullptr) return CKR_SLOT_ID_INVALID;
  *info = {};
  Pad(info->slotDescription, reader->description, reader->padding);
  Pad(info->manufacturerID, "Memory");
  info->flags = CKF_HW_SLOT | CKF_REMOVABLE_DEVICE;
  if (module().FindCard(slot) != nullptr) info->flags |= CKF_TOKEN_PRESENT;
  return CKR_OK;
}

// The card in the slot; otherwise what a call without it answers.
CK_RV Look(CK_SLOT_ID slot, MemoryCard** card) {
  if (module().FindReader(slot) == nullptr) return CKR_SLOT_ID_INVALID;
  *card = module().FindCard(slot);
  return *card == nullptr ? CKR_TOKEN_NOT_PRESENT : CKR_OK;
}

CK_RV GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO* info) {
  MemoryCard* card = nullptr;
  if (const CK_RV result = Look(slot, &card); result != CKR_OK) return result;
  *info = {};
  Pad(info->label, card->label);
  Pad(info->manufacturerID, "Memory");
  Pad(info->model, "Memory card");
  Pad(info->serialNumber, card->serial);
  info->flags = card->flags;
  if (card->tries < 3) info->flags |= CKF_USER_PIN_COUNT_LOW;
  if (card->tries == 1) info->flags |= CKF_USER_PIN_FINAL_TRY;
  if (card->tries == 0) info->flags |= CKF_USER_PIN_LOCKED;
  for (const auto& [handle, session] : module().sessions) {
    if (session.slot != slot) continue;
    ++info->ulSessionCount;
    if ((session.flags & CKF_RW_SESSION) != 0) ++info->ulRwSessionCount;
  }
  return CKR_OK;
}

CK_RV GetMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE* list, CK_ULONG* count) {
  MemoryCard* card = nullptr;
  const CK_RV result = Look(slot, &card);
  return result == CKR_OK ? GiveList(card->mechanisms, list, count) : result;
}

CK_RV GetMechanismInfo(CK_SLOT_ID slot, CK_MECHANISM_TYPE mechanism, CK_MECHANISM_INFO* info) {
  MemoryCard* card = nullptr;
  if (const CK_RV result = Look(slot, &card); result != CKR_OK) return result;
  const auto& offered = card->mechanisms;
  if (std::find(offered.begin(), offered.end(), mechanism) == offered.end()) {
    return CKR_MECHANISM_INVALID;
  }
  const bool is_rsa = mechanism == CKM_RSA_PKCS || mechanism == CKM_RSA_X_509;
  *info = {};
  info->ulMinKeySize = info->ulMaxKeySize = is_rsa ? 2048 : 256;
  info->flags = mechanism == CKM_ECDH1_DERIVE ? CKF_DERIVE : CKF_SIGN;
  if (is_rsa) info->flags |= CKF_DECRYPT;
  return CKR_OK;
}

CK_RV OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, void*, CK_NOTIFY, CK_SESSION_HANDLE* session) {
  MemoryCard* card = nullptr;
  if (const CK_RV result = Look(slot, &card); result != CKR_OK) return result;
  if ((flags & CKF_SERIAL_SESSION) == 0) return CKR_SESSION_PARALLEL_NOT_SUPPORTED;
  if ((card->flags & CKF_TOKEN_INITIALIZED) == 0) return CKR_TOKEN_NOT_RECOGNIZED;
  *session = module().next_session++;
  module().sessions[*session] = {.slot = slot, .flags = flags};
  return CKR_OK;
}

CK_RV CloseSession(CK_SESSION_HANDLE session) {
  if (module().FindSession(session) == nullptr) return CKR_SESSION_HANDLE_INVALID;
  module().EndSession(session);
  return CKR_OK;
}

CK_RV CloseAllSessions(CK_SLOT_ID slot) {
  MemoryCard* card = nullptr;
  const CK_RV result = Look(slot, &card);
  return result == CKR_OK ? CloseSessionsOf(card) : result;
}

CK_RV GetSessionInfo(CK_SESSION_HANDLE handle, CK_SESSION_INFO* info) {
  const MemorySession& session = *module().FindSession(handle);
  const bool writes = (session.flags & CKF_RW_SESSION) != 0;
  *info = {};
  info->slotID = session.slot;
  info->flags = session.flags;
  if (module().FindCard(session.slot)->is_logged_in) {
    info->state = writes ? CKS_RW_USER_FUNCTIONS : CKS_RO_USER_FUNCTIONS;
  } else {
    info->state = writes ? CKS_RW_PUBLIC_SESSION : CKS_RO_PUBLIC_SESSION;
  }
  return CKR_OK;
}

CK_RV CheckPin(MemoryCard& card, const CK_BYTE* pin, CK_ULONG size) {
  if (card.tries == 0) return CKR_PIN_LOCKED;
  if (std::equal(card.pin.begin(), card.pin.end(), pin, pin + size)) {
    card.tries = 3;
    return CKR_OK;
  }
  --card.tries;
  return CKR_PIN_INCORRECT;
}

CK_RV Login(CK_SESSION_HANDLE handle, CK_USER_TYPE user, CK_BYTE* pin, CK_ULONG size) {
  MemorySession& session = *module().FindSession(handle);
  MemoryCard& card = *module().FindCard(session.slot);
  if (user != CKU_USER && user != CKU_CONTEXT_SPECIFIC) return CKR_USER_TYPE_INVALID;
  if (user == CKU_USER && card.is_logged_in) return CKR_USER_ALREADY_LOGGED_IN;
  if (user == CKU_CONTEXT_SPECIFIC && !session.operation) return CKR_OPERATION_NOT_INITIALIZED;
  if (pin == nullptr) return CKR_ARGUMENTS_BAD;
  if (const CK_RV result = CheckPin(card, pin, size); result != CKR_OK) return result;
  if (user == CKU_USER) {
    card.is_logged_in = true;
  } else {
    session.operation->is_authenticated = true;
  }
  return CKR_OK;
}

CK_RV Logout(CK_SESSION_HANDLE handle) {
  MemoryCard& card = *module().FindCard(module().FindSession(handle)->slot);
  if (!card.is_logged_in) return CKR_USER_NOT_LOGGED_IN;
  card.is_logged_in = false;
  return CKR_OK;
}

}  // namespace

void AddMemorySlotFunctions(CK_FUNCTION_LIST* list) {
  list->C_Initialize = Initialize;
  list->C_Finalize = WhileInitialized<Finalize>::Call;
  list->C_GetInfo = WhileInitialized<GetInfo>::Call;
  list->C_GetSlotList = WhileInitialized<GetSlotList>::Call;
  list->C_GetSlotInfo = WhileInitialized<GetSlotInfo>::Call;
  list->C_GetTokenInfo = WhileInitialized<GetTokenInfo>::Call;
  list->C_GetMechanismList = WhileInitialized<GetMechanismList>::Call;
  list->C_GetMechanismInfo = WhileInitialized<GetMechanismInfo>::Call;
  list->C_OpenSession = WhileInitialized<OpenSession>::Call;
  list->C_CloseSession = WhileInitialized<CloseSession>::Call;
  list->C_CloseAllSessions = WhileInitialized<CloseAllSessions>::Call;
  list->C_GetSessionInfo = WithSession<GetSessionInfo>::Call;
  list->C_Login = WithSession<Login>::Call;
  list->C_Logout = WithSession<Logout>::Call;
}

}  // namespace kelvrin
